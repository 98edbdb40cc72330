#include "localservice/tlsserver.h"

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace localservice {

namespace {

constexpr std::chrono::milliseconds keepAlive = std::chrono::seconds(60);
constexpr std::chrono::milliseconds patience = std::chrono::seconds(10);

struct FreeSsl
{
    void operator()(SSL *ssl) const { SSL_free(ssl); }
};

bool ready(int descriptor, short events, std::chrono::milliseconds wait)
{
    pollfd entry{descriptor, events, 0};
    int result = 0;
    do {
        result = ::poll(&entry, 1, static_cast<int>(wait.count()));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

class TlsStream final : public httplib::Stream
{
public:
    TlsStream(SSL *ssl, socket_t socket)
        : m_ssl(ssl)
        , m_socket(socket)
    { }
    Q_DISABLE_COPY_MOVE(TlsStream)

    bool waitReadable(std::chrono::milliseconds wait) const
    {
        return SSL_pending(m_ssl) > 0 || ready(m_socket, POLLIN, wait);
    }

    bool is_readable() const override { return waitReadable(patience); }
    bool is_writable() const override { return ready(m_socket, POLLOUT, patience); }

    ssize_t read(char *bytes, size_t size) override
    {
        // Clients send head and body of a post apart and wait for the first to be acknowledged;
        // the kernel would take 40 ms for that. The option lasts for one reading only.
        const int on = 1;
        ::setsockopt(m_socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
        ERR_clear_error();
        size_t count = 0;
        return SSL_read_ex(m_ssl, bytes, size, &count) == 1 ? static_cast<ssize_t>(count) : -1;
    }

    ssize_t write(const char *bytes, size_t size) override
    {
        if (size == 0) {
            return 0;
        }
        ERR_clear_error();
        size_t count = 0;
        return SSL_write_ex(m_ssl, bytes, size, &count) == 1 ? static_cast<ssize_t>(count) : -1;
    }

    void get_remote_ip_and_port(std::string &ip, int &port) const override
    {
        address(::getpeername, ip, port);
    }
    void get_local_ip_and_port(std::string &ip, int &port) const override
    {
        address(::getsockname, ip, port);
    }
    socket_t socket() const override { return m_socket; }

private:
    template <typename Ask>
    void address(Ask ask, std::string &ip, int &port) const
    {
        sockaddr_in name{};
        socklen_t length = sizeof name;
        char text[INET_ADDRSTRLEN] = "";
        if (ask(m_socket, reinterpret_cast<sockaddr *>(&name), &length) == 0 && name.sin_family == AF_INET
            && ::inet_ntop(AF_INET, &name.sin_addr, text, sizeof text)) {
            ip = text;
            port = ntohs(name.sin_port);
        }
    }

    SSL *m_ssl;
    socket_t m_socket;
};

} // namespace

void TlsServer::closeConnections()
{
    const std::lock_guard lock(m_mutex);
    m_closing = true;
    for (const socket_t each : m_open) {
        ::shutdown(each, SHUT_RDWR);
    }
}

bool TlsServer::enter(socket_t socket)
{
    const std::lock_guard lock(m_mutex);
    return !m_closing && m_open.insert(socket).second;
}

void TlsServer::leave(socket_t socket)
{
    const std::lock_guard lock(m_mutex);
    m_open.erase(socket);
}

bool TlsServer::process_and_close_socket(socket_t socket)
{
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    if (enter(socket)) {
        serve(socket);
        // Once closed, the number may belong to another connection.
        leave(socket);
    }
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
    return true;
}

void TlsServer::serve(socket_t socket)
{
    const std::unique_ptr<SSL, FreeSsl> ssl(SSL_new(ssl_context()));
    if (!ssl || SSL_set_fd(ssl.get(), socket) != 1 || SSL_accept(ssl.get()) != 1) {
        return;
    }
    TlsStream stream(ssl.get(), socket);
    bool last = false;
    while (!last && stream.waitReadable(keepAlive)) {
        if (!process_request(stream, false, last, [&ssl](httplib::Request &request) {
                request.ssl = ssl.get();
                // One route serves all; the handler reads the path from the target itself, and the
                // library's regular expressions never meet a path of many kilobytes.
                request.path = "/";
            })) {
            return;
        }
    }
    SSL_shutdown(ssl.get());
}

} // namespace localservice
