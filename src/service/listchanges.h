#pragma once

#include "base/notificationtype.h"
#include "model/records.h"

#include <QVector>

struct TeamChange
{
    NotificationType type; // TeamAdded or TeamLeft
    QString name;
};

struct TaskChange
{
    NotificationType type;
    Task oldTask; // empty for an added task
    Task newTask; // empty for a task that is gone
};
Q_DECLARE_TYPEINFO(TaskChange, Q_MOVABLE_TYPE);

// The changes of a list in the order in which they are announced: for teams the
// new ones, then those that are gone; for tasks what happened to each task of
// the new list, then the tasks that are gone, then (when wanted) the deadlines
// that moved. The catch-all entry is ignored.
QVector<TeamChange> teamChanges(const QList<Team> &oldTeams, const QList<Team> &newTeams);
QVector<TaskChange> taskChanges(const QList<Task> &oldTasks, const QList<Task> &newTasks,
                                bool trackDeadlines);
