#pragma once

#include <QtGlobal>

#include <mutex>
#include <set>

#include <httplib.h>

namespace localservice {

/// The library's TLS server, with the connections in sight: they can be closed all at once,
/// also those that are idle, so that stopping does not wait for keep-alive times to pass.
class TlsServer final : public httplib::SSLServer
{
public:
    using httplib::SSLServer::SSLServer;
    Q_DISABLE_COPY_MOVE(TlsServer)

    /// Later connections are closed as they come.
    void closeConnections();

private:
    bool process_and_close_socket(socket_t socket) override;
    void serve(socket_t socket);
    bool enter(socket_t socket);
    void leave(socket_t socket);

    std::mutex m_mutex;
    std::set<socket_t> m_open;
    bool m_closing = false;
};

} // namespace localservice
