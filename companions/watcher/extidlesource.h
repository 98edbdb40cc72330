#pragma once

#include "waylandidlesource.h"

// The protocol ext-idle-notify-v1. With its version 2, a film that keeps the screen on is no activity;
// with version 1 a seat is in use as long as the screen is kept on.
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
    void watch(Seat &seat) override;
    bool hasInputNotification() const;

    WaylandProxy m_notifier;
};
