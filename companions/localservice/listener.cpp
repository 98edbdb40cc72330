#include "localservice/listener.h"

#include "localservice/tlsserver.h"
#include "tracking/socketowner.h"

#include <chrono>
#include <string>
#include <utility>

#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace localservice {

namespace {

constexpr int kMaxBody = 64 * 1024 * 1024;
constexpr qint64 kMaxBodies = 4 * qint64{kMaxBody};
constexpr size_t kRequestsPerConnection = 100000;
constexpr const char *host = "127.0.0.1";

QByteArray bytesOf(const std::string &text)
{
    return {text.data(), static_cast<int>(text.size())};
}

// Instead of the library's SO_REUSEPORT, with which two services could share a port unnoticed.
void allowQuickRestart(socket_t socket)
{
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

} // namespace

Exchange::Exchange(const httplib::Request &request, httplib::Response &response,
                   const httplib::ContentReader *reader, std::atomic<qint64> &bodies)
    : m_request(request)
    , m_response(response)
    , m_reader(reader)
    , m_bodies(bodies)
{ }

Exchange::~Exchange()
{
    m_bodies -= m_taken;
}

RecordedRequest Exchange::head() const
{
    RecordedRequest record;
    record.arrived = QDateTime::currentDateTime();
    record.method = bytesOf(m_request.method);
    record.target = bytesOf(m_request.target);
    const int mark = record.target.indexOf('?');
    record.path = QString::fromUtf8(
        QByteArray::fromPercentEncoding(mark < 0 ? record.target : record.target.left(mark)));
    if (mark >= 0)
        record.query = record.target.mid(mark + 1);
    record.queryPairs = decodePairs(record.query);
    for (const auto &[name, value] : m_request.headers)
        record.headers.insert(bytesOf(name).toLower(), bytesOf(value));
    record.contentType = record.headers.value(QByteArrayLiteral("content-type"));
    return record;
}

bool Exchange::readBody(QByteArray *body)
{
    // The library's own limit does not hold for a body that comes in chunks.
    return !m_reader || (*m_reader)([this, body](const char *bytes, size_t count) {
        const auto more = static_cast<qint64>(count);
        m_taken += more;
        if ((m_bodies += more) > kMaxBodies || body->size() + more > kMaxBody)
            return false;
        body->append(bytes, static_cast<int>(more));
        return true;
    });
}

int Exchange::descriptor() const
{
    return SSL_get_fd(m_request.ssl);
}

bool Exchange::clientIsGone() const
{
    pollfd entry{descriptor(), POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) > 0;
}

bool Exchange::clientIsOfThisUser() const
{
    const auto named = [this](auto ask) {
        sockaddr_in name{};
        socklen_t length = sizeof name;
        ask(descriptor(), reinterpret_cast<sockaddr *>(&name), &length);
        return name;
    };
    const sockaddr_in client = named(::getpeername);
    const sockaddr_in service = named(::getsockname);
    return connectionOwner(ntohl(client.sin_addr.s_addr), ntohs(client.sin_port),
                           ntohl(service.sin_addr.s_addr), ntohs(service.sin_port))
        == ::getuid();
}

void Exchange::answer(const Reply &reply)
{
    m_response.status = reply.status;
    m_response.set_content(reply.body.toStdString(), reply.contentType.toStdString());
}

void Exchange::answerCut(const Reply &reply, int keepBytes)
{
    m_response.status = reply.status;
    const size_t announced = static_cast<size_t>(std::max(reply.body.size(), keepBytes + 1));
    m_response.set_content_provider(
        announced, reply.contentType.toStdString(),
        [kept = reply.body.left(keepBytes)](size_t, size_t, httplib::DataSink &sink) {
            sink.write(kept.constData(), static_cast<size_t>(kept.size()));
            return false;
        });
}

void Exchange::drop()
{
    ::shutdown(descriptor(), SHUT_RDWR);
    m_response.status = 500;
}

Listener::Listener(const Certificate &certificate, const Handler &handler)
    : m_server(std::make_unique<TlsServer>(certificate.x509.get(), certificate.key.get()))
{
    m_server->set_socket_options(allowQuickRestart);
    m_server->set_tcp_nodelay(true);
    m_server->set_keep_alive_max_count(kRequestsPerConnection);
    m_server->set_payload_max_length(static_cast<size_t>(kMaxBody));
    m_server->set_default_headers(
        {{"Content-Security-Policy",
          "default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; connect-src 'self'; "
          "form-action 'none'; base-uri 'none'; frame-ancestors 'none'"},
         {"Cross-Origin-Resource-Policy", "same-origin"},
         {"Referrer-Policy", "same-origin"},
         {"X-Content-Type-Options", "nosniff"}});
    m_server->set_pre_routing_handler(
        [this, handler](const httplib::Request &request, httplib::Response &response) {
            if (request.method == "POST")
                return httplib::Server::HandlerResponse::Unhandled;
            Exchange exchange(request, response, nullptr, m_bodies);
            handler(exchange);
            return httplib::Server::HandlerResponse::Handled;
        });
    // The library reads at most 8 KB of a form unless the content is read piece by piece.
    m_server->Post("/",
                   [this, handler](const httplib::Request &request, httplib::Response &response,
                                   const httplib::ContentReader &reader) {
                       Exchange exchange(request, response, &reader, m_bodies);
                       handler(exchange);
                   });
}

Listener::~Listener()
{
    stop();
}

int Listener::start(int port)
{
    if (!m_server->is_valid())
        return 0;
    if (port == 0)
        port = m_server->bind_to_any_port(host);
    else if (!m_server->bind_to_port(host, port))
        port = 0;
    if (port <= 0)
        return 0;
    const auto ended = std::make_shared<std::atomic<bool>>(false);
    m_thread = std::thread([this, ended] {
        m_server->listen_after_bind();
        *ended = true;
    });
    // Until it runs, the library ignores stop().
    while (!m_server->is_running() && !*ended)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return port;
}

void Listener::stop()
{
    if (m_thread.joinable()) {
        m_server->stop();
        m_server->closeConnections();
        m_thread.join();
    }
}

} // namespace localservice
