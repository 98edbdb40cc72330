#include "service/listchanges.h"

#include <QHash>
#include <QSet>

namespace {

using Positions = QHash<QString, QVector<int>>;

// Ids are unique; were one repeated thousands of times in both lists, the work would
// be the product of their lengths.
constexpr int kMaxPositions = 16;

Positions positionsById(const QList<Task> &tasks)
{
    Positions positions;
    positions.reserve(tasks.size());
    for (int i = 0; i < tasks.size(); ++i) {
        if (tasks.at(i).isCatchAll())
            continue;
        QVector<int> &ofId = positions[tasks.at(i).id];
        if (ofId.size() < kMaxPositions)
            ofId.append(i);
    }
    return positions;
}

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
    const Positions oldPositions = positionsById(oldTasks);
    const Positions newPositions = positionsById(newTasks);

    for (const Task &task : newTasks) {
        if (task.isCatchAll())
            continue;
        const auto found = oldPositions.constFind(task.id);
        if (found != oldPositions.constEnd())
            appendChangesOfTask(oldTasks.at(found->first()), task, changes);
        else
            changes.append({task.isBlocking() ? BlockingTaskAdded : TaskAdded, Task(), task});
    }
    for (const Task &task : oldTasks) {
        if (!task.isCatchAll() && !newPositions.contains(task.id))
            changes.append({TaskGone, task, Task()});
    }
    if (!trackDeadlines)
        return changes;
    for (const Task &task : oldTasks) {
        if (task.isCatchAll())
            continue;
        const QVector<int> positions = newPositions.value(task.id);
        for (const int position : positions) {
            if (!isSameMoment(task.deadline, newTasks.at(position).deadline))
                changes.append({DeadlineChanged, task, newTasks.at(position)});
        }
    }
    return changes;
}
