#pragma once

#include <QObject>

// The client's end of the connection to the local activity watcher. Any arrival
// of bytes means that the user was active just now; nothing is ever written.
class UserActivityWatcher final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UserActivityWatcher)

public:
    // Created on first use, never deleted.
    static UserActivityWatcher *instance();

    // Waits at most 100 ms; a connection that comes later still counts. There is
    // no second attempt. What listens must belong to this user or the system;
    // a connection to anybody else is dropped and counts as none.
    bool startWatch();
    bool stopWatch();

signals:
    void wasActivity();

private slots:
    void emitWasActivity();

private:
    UserActivityWatcher();
    ~UserActivityWatcher() override = default;
};

// The watcher's port from the system configuration file, read each time.
quint16 getPort();
