#pragma once

#include "waylandidlesource.h"

// The protocol ext-idle-notify-v1. Its version 2 reports input; version 1 whether a seat is in use, which a
// film that keeps the screen on is too.
class ExtIdleSource final : public WaylandIdleSource
{
    Q_OBJECT

public:
    static bool isOffered(const WaylandConnection &connection);
    // By a connection that offers it.
    explicit ExtIdleSource(std::unique_ptr<WaylandConnection> connection);
    ~ExtIdleSource() override;
    Q_DISABLE_COPY_MOVE(ExtIdleSource)

    QString name() const override;

private:
    Notification request(wl_seat *seat, Watch *data) override;
    bool isAboutInputOnly() const override;

    WaylandProxy m_notifier;
};
