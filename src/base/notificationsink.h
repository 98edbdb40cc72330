#pragma once

#include "base/notificationtype.h"

#include <QString>

// How the core, which has no windows, notifies the user.
class NotificationSink
{
public:
    virtual ~NotificationSink() = default;

    // taskId, which may be empty, is the task that a click opens.
    virtual void addNotification(const QString &text, NotificationType type = Plain,
                                 const QString &taskId = QString()) = 0;
    // Removes what was meant for one user: all but the offer of an update.
    virtual void clearForNextUser() = 0;

protected:
    NotificationSink() = default;
    Q_DISABLE_COPY_MOVE(NotificationSink)
};
