#pragma once

#include "waylandidlesource.h"

// The protocol org_kde_kwin_idle, which compositors had before ext-idle-notify-v1.
class KWinIdleSource final : public WaylandIdleSource
{
    Q_OBJECT

public:
    static bool isOffered(const WaylandConnection &connection);
    // By a connection that offers it.
    explicit KWinIdleSource(std::unique_ptr<WaylandConnection> connection);
    ~KWinIdleSource() override;
    Q_DISABLE_COPY_MOVE(KWinIdleSource)

    QString name() const override;

private:
    Notification request(wl_seat *seat, Watch *data) override;
    bool isAboutInputOnly() const override;

    WaylandProxy m_idle;
};
