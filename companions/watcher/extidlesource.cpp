#include "extidlesource.h"

#include "ext-idle-notify-v1-client-protocol.h"

#include <QStringBuilder>

bool ExtIdleSource::isOffered(const WaylandConnection &connection)
{
    return connection.versionOf(ext_idle_notifier_v1_interface) > 0;
}

ExtIdleSource::ExtIdleSource(std::unique_ptr<WaylandConnection> waylandConnection)
    : WaylandIdleSource(std::move(waylandConnection))
    , m_notifier(connection().bind(ext_idle_notifier_v1_interface))
{
    watchSeats();
}

// Before the connection, which the base class has.
ExtIdleSource::~ExtIdleSource() = default;

bool ExtIdleSource::isAboutInputOnly() const
{
    return wl_proxy_get_version(m_notifier.get())
        >= EXT_IDLE_NOTIFIER_V1_GET_INPUT_IDLE_NOTIFICATION_SINCE_VERSION;
}

QString ExtIdleSource::name() const
{
    return QStringLiteral("ext-idle-notify-v1, версия %1").arg(wl_proxy_get_version(m_notifier.get()));
}

WaylandIdleSource::Notification ExtIdleSource::request(wl_seat *seat, Watch *data)
{
    static constexpr ext_idle_notification_v1_listener kListener = {note<true, ext_idle_notification_v1>,
                                                                    note<false, ext_idle_notification_v1>};
    auto *notifier = reinterpret_cast<ext_idle_notifier_v1 *>(m_notifier.get());
    const auto get = isAboutInputOnly() ? ext_idle_notifier_v1_get_input_idle_notification
                                        : ext_idle_notifier_v1_get_idle_notification;
    ext_idle_notification_v1 *notification = get(notifier, kIdleAfter.count(), seat);
    ext_idle_notification_v1_add_listener(notification, &kListener, data);
    return Notification(reinterpret_cast<wl_proxy *>(notification));
}
