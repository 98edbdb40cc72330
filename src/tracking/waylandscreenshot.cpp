#include "tracking/waylandscreenshot.h"

#include "base/log.h"
#include "tracking/kwinscreenshot.h"
#include "tracking/portalscreenshot.h"

#include <utility>

WaylandScreenshot::WaylandScreenshot(const StorageFolder &storage, QObject *parent)
    : DesktopScreenshot(parent)
    , m_kwin(new KwinScreenshot(this))
    , m_portal(new PortalScreenshot(storage, this))
{
    connect(m_kwin, &KwinScreenshot::taken, this, &WaylandScreenshot::onTaken);
    connect(m_kwin, &KwinScreenshot::failed, this, &WaylandScreenshot::onFailed);
    connect(m_kwin, &KwinScreenshot::unavailable, this, [this] {
        m_usesPortal = true;
        m_hasSucceeded = false;
        m_portal->take(m_mayAsk);
    });
    connect(m_portal, &PortalScreenshot::taken, this, &WaylandScreenshot::onTaken);
    connect(m_portal, &PortalScreenshot::failed, this, &WaylandScreenshot::onFailed);
}

void WaylandScreenshot::take()
{
    m_isWanted = true;
    start(false);
}

void WaylandScreenshot::askForConsent()
{
    if (!m_hasSucceeded)
        start(true);
}

void WaylandScreenshot::start(bool mayAsk)
{
    // While the user is being asked, the image that follows their answer will do.
    if (m_isUnderWay)
        return;
    m_isUnderWay = true;
    m_mayAsk = mayAsk;
    if (m_usesPortal)
        m_portal->take(mayAsk);
    else
        m_kwin->take();
}

void WaylandScreenshot::onTaken(const QImage &image)
{
    if (!m_hasSucceeded)
        qCDebug(lcTracking) << "Screenshots come from" << (m_usesPortal ? "the desktop portal" : "KWin");
    m_hasSucceeded = true;
    m_isUnderWay = false;
    if (std::exchange(m_isWanted, false))
        emit taken(image);
}

void WaylandScreenshot::onFailed(const QString &reason)
{
    m_isUnderWay = false;
    m_isWanted = false;
    emit failed(reason);
}
