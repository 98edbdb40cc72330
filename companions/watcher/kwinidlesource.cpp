#include "kwinidlesource.h"

#include "kwin-idle-client-protocol.h"

bool KWinIdleSource::isOffered(const WaylandConnection &connection)
{
    return connection.versionOf(org_kde_kwin_idle_interface) > 0;
}

KWinIdleSource::KWinIdleSource(std::unique_ptr<WaylandConnection> waylandConnection)
    : WaylandIdleSource(std::move(waylandConnection))
    , m_idle(connection().bind(org_kde_kwin_idle_interface))
{
    watchSeats();
}

KWinIdleSource::~KWinIdleSource() = default;

QString KWinIdleSource::name() const
{
    return QStringLiteral("org_kde_kwin_idle");
}

bool KWinIdleSource::isAboutInputOnly() const
{
    return false;
}

WaylandIdleSource::Notification KWinIdleSource::request(wl_seat *seat, Watch *data)
{
    static constexpr org_kde_kwin_idle_timeout_listener kListener = {note<true, org_kde_kwin_idle_timeout>,
                                                                     note<false, org_kde_kwin_idle_timeout>};
    auto *idle = reinterpret_cast<org_kde_kwin_idle *>(m_idle.get());
    org_kde_kwin_idle_timeout *timeout = org_kde_kwin_idle_get_idle_timeout(idle, seat, kIdleAfter.count());
    org_kde_kwin_idle_timeout_add_listener(timeout, &kListener, data);
    return Notification(reinterpret_cast<wl_proxy *>(timeout));
}
