#include "waylandkeeper.h"

#include "extidlesource.h"
#include "kwinidlesource.h"
#include "muttersource.h"
#include "waylandconnection.h"

#include <chrono>

namespace {
constexpr std::chrono::seconds kRetryInterval{2};
// GNOME's compositor can be reached somewhat before its idle monitor.
constexpr int kMaxRefusals = 6;
} // namespace

WaylandKeeper::WaylandKeeper(std::optional<SourceKind> wanted)
{
    m_session.wanted = wanted;
    m_session.type = QStringLiteral("wayland");
    m_retry.setInterval(kRetryInterval);
    m_retry.setSingleShot(true);
    m_retry.callOnTimeout(this, &WaylandKeeper::attempt);
}

WaylandKeeper::~WaylandKeeper() = default;

void WaylandKeeper::start()
{
    attempt();
}

void WaylandKeeper::attempt()
{
    m_source = open();
    if (m_source) {
        m_isWaiting = false;
        m_refusals = 0;
        connect(m_source.get(), &ActivitySource::active, this, &WaylandKeeper::active);
        // Queued: the next attempt destroys the source.
        connect(m_source.get(), &ActivitySource::lost, this, &WaylandKeeper::attempt, Qt::QueuedConnection);
        emit found(m_source->name());
        return;
    }
    m_refusals = m_session.hasCompositor ? m_refusals + 1 : 0;
    if (m_refusals >= kMaxRefusals) {
        emit unsupported();
        return;
    }
    if (!std::exchange(m_isWaiting, true))
        emit waiting();
    m_retry.start();
}

std::unique_ptr<ActivitySource> WaylandKeeper::open()
{
    m_source.reset();
    auto connection = WaylandConnection::open();
    m_session.hasCompositor = connection != nullptr;
    m_session.hasExtIdle = connection && ExtIdleSource::isOffered(*connection);
    m_session.hasKWinIdle = connection && KWinIdleSource::isOffered(*connection);
    m_session.hasMutter = false;
    std::unique_ptr<MutterSource> mutter;
    if (!chooseSource(m_session)) {
        mutter = MutterSource::open();
        m_session.hasMutter = mutter != nullptr;
    }
    const std::optional<SourceKind> kind = chooseSource(m_session);
    if (kind == SourceKind::ExtIdle)
        return std::make_unique<ExtIdleSource>(std::move(connection));
    if (kind == SourceKind::KWinIdle)
        return std::make_unique<KWinIdleSource>(std::move(connection));
    return mutter;
}
