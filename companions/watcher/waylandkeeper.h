#pragma once

#include "sourcechoice.h"

#include <QObject>
#include <QTimer>

#include <memory>

class ActivitySource;

// Has the source of a Wayland session: waits for it as long as there is no compositor, and again after
// the compositor ended.
class WaylandKeeper final : public QObject
{
    Q_OBJECT

public:
    // `wanted`: the only source to use, unless empty.
    explicit WaylandKeeper(std::optional<SourceKind> wanted);
    ~WaylandKeeper() override;
    Q_DISABLE_COPY_MOVE(WaylandKeeper)

    void start();

signals:
    void active();
    void found(const QString &name);
    // Once for each time that it has to wait.
    void waiting();
    // The session has a compositor, but for ten seconds none of the sources.
    void unsupported();

private:
    void attempt();
    std::unique_ptr<ActivitySource> open();

    Session m_session;
    QTimer m_retry;
    bool m_isWaiting = false;
    int m_refusals = 0;
    std::unique_ptr<ActivitySource> m_source;
};
