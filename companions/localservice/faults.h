#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <chrono>
#include <optional>

namespace localservice {

// A way to fail. Make one with the functions below and refine it through its members.
// Qt's access manager sends a request up to four times when the connection closes before any
// reply, so Refuse and LoseReply are only seen by its user when they last; Truncate is seen at once.
struct Fault
{
    enum class Kind {
        Refuse, // the connection is closed before the body is read; no effect
        LoseReply, // the request has its effect, then the connection is closed without a reply
        Delay, // after `delay` the request has its effect and its own reply
        Answer, // `status` and `body` instead of the own reply; no effect
        Truncate, // effect and own reply, but only its first `keepBytes` of the announced length are sent
        Hang // nothing until the faults are changed (then as without a fault) or the service stops
    };

    Kind kind = Kind::Refuse;
    std::chrono::milliseconds delay{0}; // waited for before anything else happens, with every kind
    int status = 200;
    QByteArray body{};
    QByteArray contentType = QByteArrayLiteral("application/json; charset=utf-8");
    int keepBytes = 0;

    static Fault refuse();
    static Fault loseReply();
    static Fault delayed(std::chrono::milliseconds delay);
    static Fault answer(int status, const QByteArray &body = {});
    static Fault truncate(int keepBytes);
    static Fault hang();
};

// What every request of the client meets; the control page is spared.
enum class Outage {
    None,
    Unavailable, // status 503
    Dropped // connections are closed without a reply
};

// Which requests fail. Not synchronised.
class FaultBook final
{
public:
    static constexpr int kAlways = -1;

    // `path` is "/api_teams" and the like, or "*" for every path that has no fault of its own.
    // Replaces what was set for the path.
    void set(const QString &path, const Fault &fault, int times = kAlways);
    void clear();
    // The fault of a request that has just come in; counts it.
    std::optional<Fault> take(const QString &path);
    // Changes whenever a fault is set or cleared, so that hanging requests notice.
    int generation() const { return m_generation; }

private:
    struct Entry
    {
        Fault fault;
        int times;
    };

    QHash<QString, Entry> m_faults;
    int m_generation = 0;
};

} // namespace localservice
