#pragma once

#include "tracking/desktopscreenshot.h"

class KwinScreenshot;
class PortalScreenshot;

// Screenshots in a Wayland session: by KWin as long as it lets this program, otherwise through
// the desktop portal.
class WaylandScreenshot final : public DesktopScreenshot
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WaylandScreenshot)

public:
    WaylandScreenshot(const StorageFolder &storage, QObject *parent);
    ~WaylandScreenshot() override = default;

    void take() override;
    // Makes a request whose image is dropped, until one has succeeded.
    void askForConsent() override;

private:
    void start(bool mayAsk);
    void onTaken(const QImage &image);
    void onFailed(const QString &reason);

    KwinScreenshot *m_kwin;
    PortalScreenshot *m_portal;
    bool m_usesPortal = false;
    bool m_hasSucceeded = false; // by the source in use
    bool m_isUnderWay = false;
    bool m_isWanted = false;
    bool m_mayAsk = false;
};
