#pragma once

#include <QtGlobal>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>

#include <httplib.h>

namespace localservice {

// The library's TLS server with access to its connections: all of them can be closed at once,
// so that stopping does not wait for idle ones to time out. Each holds a worker; when another
// waits for one, idle and slow connections are closed.
class TlsServer final : public httplib::SSLServer
{
public:
    TlsServer(X509 *certificate, EVP_PKEY *key);
    Q_DISABLE_COPY_MOVE(TlsServer)

    // Later connections are closed as they come.
    void closeConnections();

private:
    using Clock = std::chrono::steady_clock;
    class Workers;

    bool process_and_close_socket(socket_t socket) override;
    void serve(socket_t socket);
    bool enter(socket_t socket);
    void leave(socket_t socket);
    bool grant(socket_t socket, Clock::duration time);
    void makeRoom();

    std::atomic<int> m_waiting{0}; // connections that have no worker yet
    std::mutex m_mutex;
    std::map<socket_t, Clock::time_point> m_open; // when each may be closed; max(): it is being closed
    bool m_closing = false;
};

} // namespace localservice
