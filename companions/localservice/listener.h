#pragma once

#include "localservice/certificate.h"
#include "localservice/request.h"

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

namespace httplib {
struct Request;
struct Response;
class ContentReader;
} // namespace httplib

namespace localservice {

// One request on its connection, for the time of the handler, which calls exactly one of
// answer(), answerCut() and drop().
class Exchange final
{
public:
    Exchange(const httplib::Request &request, httplib::Response &response,
             const httplib::ContentReader *reader, std::atomic<qint64> &bodies);
    ~Exchange();
    Q_DISABLE_COPY_MOVE(Exchange)

    // Everything that is known before the body is read.
    RecordedRequest head() const;
    // False when the body is too large, alone or with those of other connections, or when the
    // connection broke; then only drop() may follow.
    bool readBody(QByteArray *body);
    bool clientIsGone() const;
    // The other end belongs to a process of the user who runs the service.
    bool clientIsOfThisUser() const;

    void answer(const Reply &reply);
    // Announces the whole body, sends its first bytes and closes the connection.
    void answerCut(const Reply &reply, int keepBytes);
    // Closes the connection without a reply.
    void drop();

private:
    int descriptor() const;

    const httplib::Request &m_request;
    httplib::Response &m_response;
    const httplib::ContentReader *m_reader;
    std::atomic<qint64> &m_bodies; // bytes that all connections together hold
    qint64 m_taken = 0; // of these
};

class TlsServer;

// HTTPS on 127.0.0.1 in threads of its own; the handler is called from several of them at once.
class Listener final
{
public:
    using Handler = std::function<void(Exchange &)>;

    Listener(const Certificate &certificate, const Handler &handler);
    ~Listener();
    Q_DISABLE_COPY_MOVE(Listener)

    // Returns the port, or 0 when it is not available. `port` 0 means any.
    int start(int port);
    // Closes every connection and waits for the handlers that are under way.
    void stop();

private:
    std::atomic<qint64> m_bodies{0};
    std::unique_ptr<TlsServer> m_server;
    std::thread m_thread;
};

} // namespace localservice
