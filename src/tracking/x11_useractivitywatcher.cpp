#include "tracking/x11_useractivitywatcher.h"

#include "app/deployment.h"

#include <QDebug>
#include <QHostAddress>
#include <QSettings>
#include <QTcpSocket>

namespace {

constexpr int kDefaultPort = 7682;
constexpr int kConnectTimeout = 100; // ms
// A watcher that floods us is read in small pieces between other events.
constexpr qint64 kReadBuffer = 64 * 1024;

QTcpSocket s_socket;
UserActivityWatcher *s_watcher = nullptr;

} // namespace

quint16 getPort()
{
    const QSettings config(Deployment::configFile(), QSettings::IniFormat);
    return static_cast<quint16>(config.value(QStringLiteral("watcher-port"), kDefaultPort).toInt());
}

UserActivityWatcher::UserActivityWatcher()
{
    s_socket.setReadBufferSize(kReadBuffer);
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
    s_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), getPort(), QIODevice::ReadWrite);
    qDebug() << "Service host:" << static_cast<int>(QHostAddress::LocalHost);
    qDebug() << "Service port:" << getPort();
    const bool connected = s_socket.waitForConnected(kConnectTimeout);
    qDebug() << "Was connected to service:" << connected;
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
