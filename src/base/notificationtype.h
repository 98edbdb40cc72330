#pragma once

class QString;

// The kinds of popup, in the core as well. The numbers never change.
enum NotificationType : int {
    Plain = 0,
    TeamAdded = 1,
    TeamLeft = 2,
    TaskAdded = 3,
    TaskGone = 4,
    CommentAdded = 5,
    UpdateAvailable = 6,
    DeadlineChanged = 7,
    TaskBlocked = 8,
    TaskUnblocked = 9,
    BlockingTaskAdded = 10
};

// What a popup shows for a text of this kind.
QString notificationMessage(const QString &text, NotificationType type);
bool staysUntilClicked(NotificationType type);
// By a left click on it.
bool opensTask(NotificationType type);
