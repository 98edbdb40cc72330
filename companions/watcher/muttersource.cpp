#include "muttersource.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QFile>

#include <chrono>

namespace {

constexpr int kPatience = 2000; // ms

QString connectionName()
{
    return QStringLiteral("orvana-watcher");
}

QString service()
{
    return QStringLiteral("org.gnome.Mutter.IdleMonitor");
}

QString path()
{
    return QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core");
}

// Not left to the library, which would start a bus where there is none.
QString busAddress()
{
    QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    const QString socket = qEnvironmentVariable("XDG_RUNTIME_DIR") % QStringLiteral("/bus");
    if (address.isEmpty() && QFile::exists(socket))
        return QStringLiteral("unix:path=") % socket;
    return address;
}

QDBusMessage nextInputCall()
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(service(), path(), service(), QStringLiteral("AddUserActiveWatch"));
    call.setAutoStartService(false);
    return call;
}

} // namespace

std::unique_ptr<MutterSource> MutterSource::open()
{
    const QString address = busAddress();
    if (address.isEmpty())
        return nullptr;
    std::unique_ptr<MutterSource> source(
        new MutterSource(QDBusConnection::connectToBus(address, connectionName())));
    return source->start() ? std::move(source) : nullptr;
}

MutterSource::MutterSource(const QDBusConnection &bus)
    : m_bus(bus)
{
    m_pause.setTimerType(Qt::PreciseTimer);
    m_pause.setInterval(std::chrono::seconds(1));
    m_pause.setSingleShot(true);
    m_pause.callOnTimeout(this, &MutterSource::requestNext);
}

MutterSource::~MutterSource()
{
    QDBusConnection::disconnectFromBus(connectionName());
}

QString MutterSource::name() const
{
    return service();
}

bool MutterSource::start()
{
    if (!m_bus.isConnected()
        || !m_bus.connect(service(), path(), service(), QStringLiteral("WatchFired"), this,
                          SLOT(noteFired(uint)))
        || !m_bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                          QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                          SLOT(noteLost())))
        return false;
    auto *owner =
        new QDBusServiceWatcher(service(), m_bus, QDBusServiceWatcher::WatchForUnregistration, this);
    connect(owner, &QDBusServiceWatcher::serviceUnregistered, this, &MutterSource::noteLost);
    const QDBusPendingReply<uint> reply = m_bus.call(nextInputCall(), QDBus::Block, kPatience);
    if (reply.isError())
        return false;
    m_watch = reply.value();
    return true;
}

void MutterSource::requestNext()
{
    auto *reply = new QDBusPendingCallWatcher(m_bus.asyncCall(nextInputCall()), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, &MutterSource::readReply);
}

void MutterSource::readReply(QDBusPendingCallWatcher *watcher)
{
    watcher->deleteLater();
    const QDBusPendingReply<uint> reply = *watcher;
    if (reply.isError()) {
        noteLost();
        return;
    }
    m_watch = reply.value();
    reportIfFired();
}

void MutterSource::noteFired(uint watch)
{
    m_fired = watch;
    reportIfFired();
}

void MutterSource::reportIfFired()
{
    if (m_watch == 0 || m_watch != m_fired || m_isLost)
        return;
    m_watch = 0;
    m_pause.start();
    emit active();
}

void MutterSource::noteLost()
{
    m_pause.stop();
    if (!std::exchange(m_isLost, true))
        emit lost();
}
