#include "localservice/tlsserver.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <utility>

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

constexpr size_t kWorkers = 48;
// Longer than the minute between two lists, which then cost no handshake.
constexpr std::chrono::milliseconds kKeepAlive = std::chrono::seconds(75);
// How long an idle connection and one within a request stay open when another waits for a worker.
constexpr std::chrono::seconds kIdleGrant{1};
constexpr std::chrono::seconds kBusyGrant{10};
constexpr std::chrono::milliseconds kTimeout = std::chrono::seconds(10);

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

    // The library limits neither the length of a line nor the number of lines.
    void beginHead()
    {
        m_inHead = true;
        m_headLeft = size_t{256} * 1024;
    }
    void endHead() { m_inHead = false; }

    bool is_readable() const override { return waitReadable(kTimeout); }
    bool is_writable() const override { return ready(m_socket, POLLOUT, kTimeout); }

    ssize_t read(char *bytes, size_t size) override
    {
        // Clients send the head and the body of a post separately and wait for the first to be
        // acknowledged, which the kernel delays by 40 ms. The option lasts for one read only.
        const int on = 1;
        ::setsockopt(m_socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
        ERR_clear_error();
        size_t count = 0;
        if (m_headLeft == 0 || SSL_read_ex(m_ssl, bytes, std::min(size, m_headLeft), &count) != 1)
            return -1;
        m_headLeft -= m_inHead ? count : 0;
        return static_cast<ssize_t>(count);
    }

    ssize_t write(const char *bytes, size_t size) override
    {
        if (size == 0)
            return 0;
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
    bool m_inHead = false;
    size_t m_headLeft = 0;
};

} // namespace

class TlsServer::Workers final : public httplib::ThreadPool
{
public:
    explicit Workers(TlsServer &server)
        : httplib::ThreadPool(kWorkers)
        , m_server(server)
    { }
    Q_DISABLE_COPY_MOVE(Workers)

    void enqueue(std::function<void()> work) override
    {
        ++m_server.m_waiting;
        httplib::ThreadPool::enqueue(std::move(work));
        m_server.makeRoom();
    }
    void on_idle() override { m_server.makeRoom(); }

private:
    TlsServer &m_server;
};

TlsServer::TlsServer(X509 *certificate, EVP_PKEY *key)
    : httplib::SSLServer(certificate, key)
{
    constexpr time_t between = 1;
    new_task_queue = [this] { return new Workers(*this); };
    set_idle_interval(between);
}

void TlsServer::makeRoom()
{
    using Connection = decltype(m_open)::value_type;
    if (m_waiting == 0)
        return;
    const std::lock_guard lock(m_mutex);
    if (m_open.size() < kWorkers)
        return; // one of them is about to start
    const auto ending = std::count_if(m_open.begin(), m_open.end(), [](const Connection &each) {
        return each.second == Clock::time_point::max();
    });
    for (auto room = ending; room < m_waiting; ++room) {
        const auto next =
            std::min_element(m_open.begin(), m_open.end(),
                             [](const Connection &a, const Connection &b) { return a.second < b.second; });
        if (next == m_open.end() || next->second > Clock::now())
            return;
        next->second = Clock::time_point::max();
        ::shutdown(next->first, SHUT_RDWR);
    }
}

// False when the connection is being closed. What it has received can still be read then, but
// must not have its effect: there would be no reply, and the client would send it again.
bool TlsServer::grant(socket_t socket, Clock::duration time)
{
    const std::lock_guard lock(m_mutex);
    Clock::time_point &until = m_open[socket];
    if (until == Clock::time_point::max())
        return false;
    until = Clock::now() + time;
    return true;
}

void TlsServer::closeConnections()
{
    const std::lock_guard lock(m_mutex);
    m_closing = true;
    for (const auto &each : m_open)
        ::shutdown(each.first, SHUT_RDWR);
}

bool TlsServer::enter(socket_t socket)
{
    const std::lock_guard lock(m_mutex);
    return !m_closing && m_open.emplace(socket, Clock::now() + kBusyGrant).second;
}

void TlsServer::leave(socket_t socket)
{
    const std::lock_guard lock(m_mutex);
    m_open.erase(socket);
}

bool TlsServer::process_and_close_socket(socket_t socket)
{
    --m_waiting;
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
    if (!ssl || SSL_set_fd(ssl.get(), socket) != 1 || SSL_accept(ssl.get()) != 1)
        return;
    TlsStream stream(ssl.get(), socket);
    bool last = false;
    while (!last && grant(socket, kIdleGrant) && stream.waitReadable(kKeepAlive)
           && grant(socket, kBusyGrant)) {
        stream.beginHead();
        if (!process_request(stream, false, last, [&ssl, &stream](httplib::Request &request) {
                stream.endHead();
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
