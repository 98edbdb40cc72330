#include "tracking/controlserver.h"

#include "base/log.h"
#include "base/printable.h"
#include "service/orvana.h"
#include "service/ovsession.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QSocketNotifier>

#include <cerrno>
#include <chrono>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace ControlSocket;

namespace {

constexpr auto kUpkeep = std::chrono::minutes(1);
constexpr int kMostPeers = 8; // the oldest makes room: a request is sent at once
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

const QString kRunning = QStringLiteral("Таймер запущен.");
const QString kStopped = QStringLiteral("Таймер остановлен.");
const QString kNobody = QStringLiteral("Вход не выполнен: войдите в окне программы.");

// Whoever gave up waiting was told that nothing happened.
bool isGone(const QLocalSocket *peer)
{
    pollfd closed = {static_cast<int>(peer->socketDescriptor()), 0, 0};
    return poll(&closed, 1, 0) != 0;
}

} // namespace

ControlServer::ControlServer(Orvana *orvana, QObject *parent)
    : QObject(parent)
    , m_orvana(orvana)
{
    m_upkeep.setInterval(kUpkeep);
    m_upkeep.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_upkeep, &QTimer::timeout, this, &ControlServer::listen);
    m_upkeep.start();
    listen();
}

ControlServer::~ControlServer()
{
    close();
}

void ControlServer::listen()
{
    if (m_notifier)
        m_notifier->setEnabled(true);
    // A folder that is gone is made again by whoever writes to it next.
    if (isInPlace() || !m_orvana->storage().isUsable())
        return;
    close();
    const QString problem = open();
    if (!problem.isEmpty() && problem != m_problem)
        qCWarning(lcTracking).noquote() << "orvana-control can't reach this client:" << problem;
    m_problem = problem;
}

// The file may be another client's by now.
bool ControlServer::isInPlace() const
{
    struct stat info = {};
    return m_socket >= 0 && lstat(m_path.constData(), &info) == 0 && info.st_ino == m_inode;
}

void ControlServer::close()
{
    if (isInPlace())
        unlink(m_path.constData());
    m_notifier.reset();
    if (m_socket >= 0)
        ::close(m_socket);
    m_socket = -1;
}

// Returns what prevents it.
QString ControlServer::open()
{
    const QString name = m_orvana->storageDirectory().filePath(QString::fromLatin1(kName));
    m_path = QFile::encodeName(name);
    const auto address = addressOf(m_path.toStdString());
    if (!address)
        return name + QStringLiteral(" is longer than a socket's path may be");
    // Left by a client that was killed. Without the lock it may be a running one's.
    struct stat info = {};
    if (m_orvana->storage().holdsLock() && lstat(m_path.constData(), &info) == 0 && S_ISSOCK(info.st_mode))
        unlink(m_path.constData());
    m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    // A socket's mode before it has a path is the one that the file gets.
    if (m_socket < 0 || fchmod(m_socket, kOwnerOnly) != 0
        || bind(m_socket, reinterpret_cast<const sockaddr *>(&*address), sizeof *address) != 0
        || ::listen(m_socket, kMostPeers) != 0 || lstat(m_path.constData(), &info) != 0) {
        QString problem = name + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
        close();
        return problem;
    }
    m_inode = info.st_ino;
    m_notifier = std::make_unique<QSocketNotifier>(m_socket, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &ControlServer::accept);
    return {};
}

void ControlServer::accept()
{
    const int descriptor = accept4(m_socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor < 0) {
        // With too many open files the same connection would be reported for ever.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            m_notifier->setEnabled(false);
        return;
    }
    if (peerUser(descriptor) != geteuid()) {
        ::close(descriptor);
        return;
    }
    const auto peers = findChildren<QLocalSocket *>();
    if (peers.size() >= kMostPeers)
        delete peers.first();
    auto *peer = new QLocalSocket(this);
    peer->setReadBufferSize(kLongestRequest);
    connect(peer, &QLocalSocket::readyRead, this, [this, peer] { read(peer); });
    connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
    peer->setSocketDescriptor(descriptor);
}

void ControlServer::read(QLocalSocket *peer)
{
    if (!peer->canReadLine() && peer->bytesAvailable() < qint64(kLongestRequest))
        return;
    peer->disconnect(this);
    // An answer is shorter than what the system buffers: whether it is read costs nothing.
    if (!isGone(peer))
        peer->write(answer(peer->readLine(kLongestRequest).trimmed()));
    peer->disconnectFromServer();
}

QByteArray ControlServer::answer(QByteArray request)
{
    const bool asJson = request.endsWith(kAsJson);
    if (asJson)
        request.chop(int(std::strlen(kAsJson)));
    const Reply reply = obey(request);
    QByteArray text = reply.second.toUtf8();
    if (asJson) {
        QJsonObject object = state();
        object.insert(QStringLiteral("message"), reply.second);
        text = QJsonDocument(object).toJson(QJsonDocument::Compact);
    }
    return QByteArray::number(reply.first) + ' ' + text + '\n';
}

bool ControlServer::isRunning() const
{
    return m_orvana->session()->isLogged() && m_orvana->session()->isActive();
}

ControlServer::Reply ControlServer::obey(const QByteArray &command)
{
    const bool toggles = command == "toggle";
    if (command == "status")
        return {Done, stateText()};
    if (command == "start" && isRunning())
        return {Done, QStringLiteral("Таймер уже запущен.")};
    if (command == "start" || (toggles && !isRunning()))
        return start();
    if (command == "stop" && !isRunning())
        return {Done, QStringLiteral("Таймер уже остановлен.")};
    if (command != "stop" && !toggles)
        return {WrongUsage, QStringLiteral("Программа не знает такого запроса.")};
    emit stopRequested();
    return isRunning() ? Reply(Refused, QStringLiteral("Таймер не остановлен.")) : Reply(Done, kStopped);
}

ControlServer::Reply ControlServer::start()
{
    const Orvana::Session *session = m_orvana->session();
    if (!session->isLogged())
        return {Refused, kNobody};
    if (session->currentTaskID().isEmpty())
        return {Refused, QStringLiteral("Задача не выбрана: выберите её в окне программы.")};
    emit startRequested();
    return isRunning() ? Reply(Done, kRunning) : Reply(Refused, QStringLiteral("Таймер не запущен."));
}

QJsonObject ControlServer::state() const
{
    const Orvana::Session *session = m_orvana->session();
    if (!session->isLogged())
        return {{QStringLiteral("signed_in"), false}, {QStringLiteral("running"), false}};
    const QString team = session->currentTeamID();
    const QString task = session->currentTaskID();
    return {{QStringLiteral("signed_in"), true},
            {QStringLiteral("running"), isRunning()},
            {QStringLiteral("team_id"), printable(team)},
            {QStringLiteral("team"), printable(session->team(team).name)},
            {QStringLiteral("task_id"), printable(task)},
            {QStringLiteral("task"), printable(session->task(team, task).title)},
            {QStringLiteral("today"), session->todayTime().toString(Qt::ISODate)},
            {QStringLiteral("today_active"), session->todayActiveTimeDisplayed().toString(Qt::ISODate)}};
}

QString ControlServer::stateText() const
{
    const Orvana::Session *session = m_orvana->session();
    if (!session->isLogged())
        return kNobody;
    const QString team = session->currentTeamID();
    const QString task = session->currentTaskID();
    const QString chosen = task.isEmpty()
        ? QStringLiteral("Задача не выбрана.")
        : QStringLiteral("Задача «") + printable(session->task(team, task).title)
            + QStringLiteral("», команда «") + printable(session->team(team).name) + QStringLiteral("».");
    return (isRunning() ? kRunning : kStopped) + QLatin1Char(' ') + chosen + QStringLiteral(" Сегодня: ")
        + session->todayTime().toString(Qt::ISODate) + QStringLiteral(", активного: ")
        + session->todayActiveTimeDisplayed().toString(Qt::ISODate) + QLatin1Char('.');
}
