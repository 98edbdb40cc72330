#pragma once

#include "localservice/faults.h"
#include "localservice/journal.h"
#include "localservice/request.h"
#include "localservice/world.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace localservice {

class Exchange;
class Listener;
struct Certificate;

// The team task service on this machine, over HTTPS on 127.0.0.1, in threads of its own.
// start(), stop() and isRunning() belong to one thread; everything else may be called from any
// thread and returns copies.
class Server final
{
public:
    struct Options
    {
        int port = 0; // 0: any free one, which start() then keeps
        QString dataFolder{}; // seed and what is received; empty: demonstration data, all in memory
        bool recordRequests = true; // off for a long run: requests() stays empty
        // Beyond them uploads are refused; the one for memory also limits requests().
        Limits limits{};
        std::function<void(const QString &)> log{}; // a line for each event, from the service's threads
    };

    // Demonstration data on any free port, all in memory.
    Server();
    explicit Server(Options options);
    ~Server();
    Q_DISABLE_COPY_MOVE(Server)

    // False with a reason in Russian, for instance when the port is taken. May follow a stop():
    // port, data, faults and everything recorded stay as they were.
    bool start(QString *error = nullptr);
    // Closes every connection, including those whose reply is still held back, and returns at once.
    void stop();
    bool isRunning() const;

    int port() const;
    // "https://127.0.0.1:PORT", without a slash at the end.
    QString baseUrl() const;
    // The field "token" that a post to "/control/..." must have; the same after a restart.
    QByteArray controlToken() const { return m_token; }

    // In order of arrival, including those that met a fault; without those of the control page.
    QVector<RecordedRequest> requests() const;
    QVector<RecordedRequest> requestsTo(const QString &path) const;
    void clearRequests();

    // See FaultBook. Setting or clearing any fault releases hanging requests.
    void setFault(const QString &path, const Fault &fault, int times = FaultBook::kAlways);
    void clearFaults();
    void setOutage(Outage outage);

    World world() const;
    // Changes the world while no request is being answered; `change` must not call the server.
    void edit(const std::function<void(World &)> &change);

    QVector<ActivityReport> reports() const;
    QVector<Screenshot> screenshots() const;
    QVector<DeadlineRequest> deadlineRequests() const;
    // Forgets reports, screenshots and deadline requests; files stay.
    void clearReceived();

private:
    struct Plan;

    bool prepare(QString *error);
    void handle(Exchange &exchange);
    void refuse(Exchange &exchange, const QString &problem);
    void handleClient(Exchange &exchange, RecordedRequest request);
    void handlePage(Exchange &exchange, RecordedRequest request);
    Plan planFor(const QString &path);
    bool hold(const Exchange &exchange, const Plan &plan);
    std::optional<qint64> record(const RecordedRequest &request);
    Reply process(const RecordedRequest &request, qint64 serial);
    void log(const QString &line) const;

    Options m_options;
    const QByteArray m_token;
    std::unique_ptr<Certificate> m_certificate;
    std::unique_ptr<Listener> m_listener;

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    int m_port = 0;
    bool m_prepared = false;
    bool m_stopping = false;
    Outage m_outage = Outage::None;
    FaultBook m_faults;
    World m_world;
    Journal m_journal;
    std::deque<RecordedRequest> m_requests;
    qint64 m_recordedBytes = 0;
    qint64 m_forgotten = 0; // how many requests were recorded and cleared
};

} // namespace localservice
