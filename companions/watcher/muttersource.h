#pragma once

#include "activitysource.h"

#include <QDBusConnection>
#include <QTimer>

#include <memory>

class QDBusPendingCallWatcher;

// The idle monitor of Mutter, which GNOME has in place of a Wayland protocol. It is asked for the next
// input, and again a second after each. A film that keeps the screen on makes no difference.
class MutterSource final : public ActivitySource
{
    Q_OBJECT

public:
    // Null when there is no session bus, or no Mutter that answers within two seconds.
    static std::unique_ptr<MutterSource> open();
    ~MutterSource() override;
    Q_DISABLE_COPY_MOVE(MutterSource)

    QString name() const override;

private slots: // connected to D-Bus by name
    void noteFired(uint watch);
    void noteLost();

private:
    explicit MutterSource(const QDBusConnection &bus);
    bool start();
    void requestNext();
    void readReply(QDBusPendingCallWatcher *reply);
    void reportIfFired();

    QDBusConnection m_bus;
    QTimer m_pause;
    uint m_watch = 0; // the one that waits; Mutter counts from 1
    uint m_fired = 0; // may be known before the reply that has its number
    bool m_isLost = false;
};
