#include "localservice/server.h"

#include "localservice/access.h"
#include "localservice/api.h"
#include "localservice/listener.h"
#include "localservice/page.h"
#include "localservice/replies.h"
#include "localservice/seed.h"

#include <algorithm>
#include <chrono>
#include <utility>

// The macro must be used outside of any namespace.
static void initResources()
{
    Q_INIT_RESOURCE(localservice);
}

namespace localservice {

// What will happen to one request.
struct Server::Plan
{
    std::optional<Fault> fault;
    int generation = 0;
};

Server::Server()
    : Server(Options())
{ }

Server::Server(Options options)
    : m_options(std::move(options))
    , m_token(makeToken())
    , m_certificate(std::make_unique<Certificate>(makeCertificate()))
    , m_port(m_options.port)
{
    initResources();
    if (m_options.dataFolder.isEmpty())
        m_world = demoWorld();
}

Server::~Server()
{
    stop();
}

bool Server::prepare(QString *error)
{
    if (m_prepared)
        return true;
    if (!m_options.dataFolder.isEmpty()) {
        const std::optional<World> world =
            loadWorld(m_options.dataFolder, QDateTime::currentDateTime(), error);
        if (!world)
            return false;
        m_world = *world;
    }
    m_prepared = m_journal.open(m_options.dataFolder, m_options.limits, error);
    return m_prepared;
}

bool Server::start(QString *error)
{
    QString ignored;
    QString *reason = error ? error : &ignored;
    if (m_listener)
        return true;
    const std::lock_guard lock(m_mutex);
    if (!prepare(reason))
        return false;
    auto listener =
        std::make_unique<Listener>(*m_certificate, [this](Exchange &exchange) { handle(exchange); });
    const int port = listener->start(m_port);
    if (port == 0) {
        *reason = QStringLiteral("порт %1 занят или недоступен").arg(m_port);
        return false;
    }
    m_port = port;
    m_listener = std::move(listener);
    return true;
}

void Server::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    // Without the lock, which the running handlers need to finish.
    m_listener.reset();
    const std::lock_guard lock(m_mutex);
    m_stopping = false;
}

bool Server::isRunning() const
{
    return m_listener != nullptr;
}

int Server::port() const
{
    const std::lock_guard lock(m_mutex);
    return m_port;
}

QString Server::baseUrl() const
{
    return QStringLiteral("https://127.0.0.1:%1").arg(port());
}

void Server::handle(Exchange &exchange)
{
    RecordedRequest request = exchange.head();
    const bool isForPage = isControlPath(request.path);
    const QString problem = whyForeign(request, port(), isForPage);
    if (!problem.isEmpty())
        refuse(exchange, problem);
    else if (isForPage && !exchange.clientIsOfThisUser())
        refuse(exchange, QStringLiteral("Страница открывается только у того, кто запустил сервис"));
    else if (isForPage)
        handlePage(exchange, std::move(request));
    else
        handleClient(exchange, std::move(request));
}

void Server::refuse(Exchange &exchange, const QString &problem)
{
    constexpr int kForbidden = 403;
    QByteArray ignored; // unread, it would be taken for the next request
    if (!exchange.readBody(&ignored)) {
        exchange.drop();
        return;
    }
    log(QStringLiteral("отклонено: ") % problem);
    exchange.answer(textPage(kForbidden, problem));
}

void Server::handlePage(Exchange &exchange, RecordedRequest request)
{
    constexpr int kMaxForm = 16 * 1024;
    constexpr int kTooLarge = 413;
    if (!exchange.readBody(&request.body)) {
        exchange.drop();
        return;
    }
    if (request.body.size() > kMaxForm) {
        exchange.answer(textPage(kTooLarge, QStringLiteral("Слишком длинный текст")));
        return;
    }
    request.formPairs = decodePairs(request.body);
    Reply reply;
    {
        const std::lock_guard lock(m_mutex);
        ControlState state{m_world, m_outage, m_journal, m_token};
        reply = answerControl(request, state);
    }
    log(reply.note);
    exchange.answer(reply);
}

void Server::handleClient(Exchange &exchange, RecordedRequest request)
{
    using Kind = Fault::Kind;
    const Plan plan = planFor(request.path);
    const std::optional<Fault> &fault = plan.fault;
    const bool refused = fault && fault->kind == Kind::Refuse;
    const bool complete = !refused && exchange.readBody(&request.body);
    if (complete && request.contentType.startsWith("application/x-www-form-urlencoded"))
        request.formPairs = decodePairs(request.body);
    const std::optional<qint64> serial = record(request);
    if (!serial) {
        constexpr int kInsufficientStorage = 507;
        exchange.answer(textPage(kInsufficientStorage, QStringLiteral("Слишком много записанных запросов")));
        return;
    }
    if (!hold(exchange, plan) || !complete) {
        exchange.drop();
        return;
    }
    Reply reply;
    const bool substituted = fault && fault->kind == Kind::Answer;
    if (substituted)
        reply = {fault->status, fault->body, fault->contentType};
    else
        reply = process(request, *serial);
    if (fault && fault->kind == Kind::LoseReply)
        exchange.drop();
    else if (fault && fault->kind == Kind::Truncate)
        exchange.answerCut(reply, fault->keepBytes);
    else
        exchange.answer(reply);
}

Server::Plan Server::planFor(const QString &path)
{
    constexpr int kUnavailable = 503;
    const std::lock_guard lock(m_mutex);
    switch (m_outage) {
    case Outage::Unavailable: {
        Fault fault = Fault::answer(kUnavailable, QByteArrayLiteral("Service Unavailable"));
        fault.contentType = QByteArrayLiteral("text/plain");
        return {fault, m_faults.generation()};
    }
    case Outage::Dropped:
        return {Fault::refuse(), m_faults.generation()};
    case Outage::None:
        break;
    }
    return {m_faults.take(path), m_faults.generation()};
}

// Returns false when no client is left to answer.
bool Server::hold(const Exchange &exchange, const Plan &plan)
{
    using Clock = std::chrono::steady_clock;
    // Soon enough to keep workers free when clients go away.
    constexpr std::chrono::milliseconds kClientCheck{50};
    const bool hangs = plan.fault && plan.fault->kind == Fault::Kind::Hang;
    if (!hangs && (!plan.fault || plan.fault->delay.count() <= 0))
        return true;
    const Clock::time_point until = Clock::now() + plan.fault->delay;
    std::unique_lock lock(m_mutex);
    const auto over = [&] {
        return Clock::now() >= until && (!hangs || m_faults.generation() != plan.generation);
    };
    while (!m_stopping && !over() && !exchange.clientIsGone()) {
        const auto next = Clock::now() + kClientCheck;
        m_changed.wait_until(lock, hangs ? next : std::min(next, until));
    }
    return !m_stopping && !exchange.clientIsGone();
}

// Returns nothing when there is no room.
std::optional<qint64> Server::record(const RecordedRequest &request)
{
    const std::lock_guard lock(m_mutex);
    if (m_options.recordRequests) {
        // Decoded texts have two bytes a character, and the target is there in parts as well.
        constexpr qint64 kOverhead = 2000;
        constexpr qint64 kCopies = 4;
        const qint64 size = kOverhead + kCopies * (qint64{request.target.size()} + request.body.size());
        if (m_recordedBytes + size > m_options.limits.memory)
            return std::nullopt;
        m_recordedBytes += size;
        m_requests.push_back(request);
    }
    return m_forgotten + static_cast<qint64>(m_requests.size()) - 1;
}

Reply Server::process(const RecordedRequest &request, qint64 serial)
{
    Reply reply;
    {
        const std::lock_guard lock(m_mutex);
        reply = answerClient(request, m_world, m_journal);
        if (m_options.recordRequests && serial >= m_forgotten)
            m_requests[static_cast<size_t>(serial - m_forgotten)].processed = true;
    }
    log(reply.note);
    return reply;
}

void Server::log(const QString &line) const
{
    if (m_options.log && !line.isEmpty())
        m_options.log(line);
}

QVector<RecordedRequest> Server::requests() const
{
    const std::lock_guard lock(m_mutex);
    return {m_requests.begin(), m_requests.end()};
}

QVector<RecordedRequest> Server::requestsTo(const QString &path) const
{
    const std::lock_guard lock(m_mutex);
    QVector<RecordedRequest> found;
    std::copy_if(m_requests.begin(), m_requests.end(), std::back_inserter(found),
                 [&path](const RecordedRequest &request) { return request.path == path; });
    return found;
}

void Server::clearRequests()
{
    const std::lock_guard lock(m_mutex);
    m_forgotten += static_cast<qint64>(m_requests.size());
    m_requests.clear();
    m_recordedBytes = 0;
}

void Server::setFault(const QString &path, const Fault &fault, int times)
{
    const std::lock_guard lock(m_mutex);
    m_faults.set(path, fault, times);
    m_changed.notify_all();
}

void Server::clearFaults()
{
    const std::lock_guard lock(m_mutex);
    m_faults.clear();
    m_changed.notify_all();
}

void Server::setOutage(Outage outage)
{
    const std::lock_guard lock(m_mutex);
    m_outage = outage;
}

World Server::world() const
{
    const std::lock_guard lock(m_mutex);
    return m_world;
}

void Server::edit(const std::function<void(World &)> &change)
{
    const std::lock_guard lock(m_mutex);
    change(m_world);
}

QVector<ActivityReport> Server::reports() const
{
    const std::lock_guard lock(m_mutex);
    return m_journal.reports();
}

QVector<Screenshot> Server::screenshots() const
{
    const std::lock_guard lock(m_mutex);
    return m_journal.screenshots();
}

QVector<DeadlineRequest> Server::deadlineRequests() const
{
    const std::lock_guard lock(m_mutex);
    return m_journal.deadlineRequests();
}

void Server::clearReceived()
{
    const std::lock_guard lock(m_mutex);
    m_journal.clear();
}

} // namespace localservice
