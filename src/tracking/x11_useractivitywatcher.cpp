#include "tracking/x11_useractivitywatcher.h"

#include "base/deployment.h"
#include "base/log.h"
#include "tracking/socketowner.h"

#include <QEventLoop>
#include <QHostAddress>
#include <QSettings>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <chrono>

#include <unistd.h>

namespace {

constexpr int kDefaultPort = 7682;
constexpr std::chrono::milliseconds kConnectTimeout(100);
// A flood from the watcher is read in small pieces, between other events.
constexpr qint64 kReadBuffer = 64 * 1024;

QTcpSocket s_socket;
UserActivityWatcher *s_watcher = nullptr;

// Not one of the system's accounts, those that systemd makes for a service included.
bool isPerson(uid_t user)
{
    constexpr uid_t firstPerson = 1000;
    constexpr uid_t firstDynamic = 61184;
    constexpr uid_t lastDynamic = 65519;
    constexpr uid_t nobody = 65534;
    return user >= firstPerson && user != nobody && (user < firstDynamic || user > lastDynamic);
}

// The watcher at the port may be another person's, whose work must not count. Checks the listeners:
// until the connection is accepted, its other end is listed as root's.
void dropStranger()
{
    const QVector<uid_t> owners = listenerOwners(s_socket.peerAddress().toIPv4Address(), s_socket.peerPort());
    if (owners.isEmpty())
        qCDebug(lcTracking) << "Activity watcher: nobody known listens on port" << s_socket.peerPort();
    const auto stranger = std::find_if(owners.begin(), owners.end(),
                                       [](uid_t owner) { return owner != geteuid() && isPerson(owner); });
    if (stranger != owners.end()) {
        qCDebug(lcTracking) << "Activity watcher refused: port" << s_socket.peerPort() << "belongs to user"
                            << *stranger;
        s_socket.abort();
    }
}

// Not the socket's own wait, which cancels the attempt when it times out: a late success
// must still count.
bool waitForConnected()
{
    const auto isUnderWay = [] {
        return s_socket.state() == QAbstractSocket::HostLookupState
            || s_socket.state() == QAbstractSocket::ConnectingState;
    };
    if (isUnderWay()) {
        QEventLoop loop;
        QObject::connect(&s_socket, &QTcpSocket::stateChanged, &loop, [&loop, isUnderWay] {
            if (!isUnderWay())
                loop.quit();
        });
        QTimer::singleShot(kConnectTimeout, Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    }
    return s_socket.state() == QAbstractSocket::ConnectedState;
}

} // namespace

quint16 getPort()
{
    const QSettings config(Deployment::configFile(), QSettings::IniFormat);
    return static_cast<quint16>(config.value(QStringLiteral("watcher-port"), kDefaultPort).toInt());
}

UserActivityWatcher::UserActivityWatcher()
{
    s_socket.setReadBufferSize(kReadBuffer);
    connect(&s_socket, &QTcpSocket::connected, this, &dropStranger);
    connect(&s_socket, &QTcpSocket::readyRead, this, &UserActivityWatcher::emitWasActivity);
}

UserActivityWatcher *UserActivityWatcher::instance()
{
    if (!s_watcher)
        s_watcher = new UserActivityWatcher;
    return s_watcher;
}

bool UserActivityWatcher::startWatch()
{
    const quint16 port = getPort();
    s_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port, QIODevice::ReadWrite);
    qCDebug(lcTracking) << "Service host:" << static_cast<int>(QHostAddress::LocalHost);
    qCDebug(lcTracking) << "Service port:" << port;
    const bool connected = waitForConnected();
    qCDebug(lcTracking) << "Was connected to service:" << connected;
    return connected;
}

bool UserActivityWatcher::stopWatch()
{
    s_socket.disconnectFromHost();
    return true;
}

void UserActivityWatcher::emitWasActivity()
{
    s_socket.readAll();
    emit wasActivity();
}
