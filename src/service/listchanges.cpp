#include "service/listchanges.h"

#include "service/taskindex.h"

#include <QSet>

namespace {

QSet<QString> idsOf(const QList<Team> &teams)
{
    QSet<QString> ids;
    for (const Team &team : teams)
        ids.insert(team.id);
    return ids;
}

// A first comment counts: none is earlier than any.
bool isEarlier(const QDateTime &one, const QDateTime &other)
{
    return other.isValid() && (!one.isValid() || one < other);
}

void appendChangesOfTask(const Task &oldTask, const Task &newTask, QVector<TaskChange> &changes)
{
    if (!oldTask.isBlocking() && newTask.isBlocking())
        changes.append({TaskBlocked, oldTask, newTask});
    else if (oldTask.isBlocking() && !newTask.isBlocking())
        changes.append({TaskUnblocked, oldTask, newTask});
    if (isEarlier(oldTask.lastComment, newTask.lastComment))
        changes.append({CommentAdded, oldTask, newTask});
}

} // namespace

QVector<TeamChange> teamChanges(const QList<Team> &oldTeams, const QList<Team> &newTeams)
{
    QVector<TeamChange> changes;
    const QSet<QString> oldIds = idsOf(oldTeams);
    const QSet<QString> newIds = idsOf(newTeams);
    for (const Team &team : newTeams) {
        if (!oldIds.contains(team.id))
            changes.append({TeamAdded, team.name});
    }
    for (const Team &team : oldTeams) {
        if (!newIds.contains(team.id))
            changes.append({TeamLeft, team.name});
    }
    return changes;
}

QVector<TaskChange> taskChanges(const QList<Task> &oldTasks, const QList<Task> &newTasks, bool trackDeadlines)
{
    QVector<TaskChange> changes;
    const TaskIndex oldIndex(oldTasks);
    const TaskIndex newIndex(newTasks);

    for (const Task &task : newTasks) {
        if (task.isCatchAll())
            continue;
        const int place = oldIndex.placesOf(task.id).first;
        if (place >= 0)
            appendChangesOfTask(oldTasks.at(place), task, changes);
        else
            changes.append({task.isBlocking() ? BlockingTaskAdded : TaskAdded, Task(), task});
    }
    for (const Task &task : oldTasks) {
        if (!task.isCatchAll() && !newIndex.contains(task.id))
            changes.append({TaskGone, task, Task()});
    }
    if (!trackDeadlines)
        return changes;
    for (const Task &task : oldTasks) {
        if (task.isCatchAll())
            continue;
        const auto [first, second] = newIndex.placesOf(task.id);
        for (const int place : {first, second}) {
            if (place >= 0 && !isSameMoment(task.deadline, newTasks.at(place).deadline))
                changes.append({DeadlineChanged, task, newTasks.at(place)});
        }
    }
    return changes;
}
