#pragma once

#include <QRect>
#include <QString>

// What popups need to know of, and ask from, the main window.
class NotificationHost
{
public:
    virtual ~NotificationHost() = default;

    // Height that the popups leave free at the top of the area; 0 while the window is hidden.
    virtual int notificationOffset() const = 0;
    // The free area of the screen that the window is on, or the part of it that is clear of the window.
    virtual QRect notificationArea() const = 0;
    // The set of popups has changed.
    virtual void updateNotificationState() = 0;
    virtual void openTask(const QString &taskId) = 0;
    // True when the popup that offered the update has served its purpose.
    virtual bool installUpdate() = 0;

protected:
    NotificationHost() = default;
    Q_DISABLE_COPY_MOVE(NotificationHost)
};
