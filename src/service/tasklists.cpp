#include "service/tasklists.h"

QList<Task> TaskLists::ofTeam(const QString &teamId) const
{
    const auto found = m_lists.find(teamId);
    if (found == m_lists.end())
        return {};
    settle(teamId, *found);
    return found->tasks;
}

QList<Task> TaskLists::all() const
{
    settleAll();
    QList<Task> all;
    QSet<QString> seen;
    for (const List &list : qAsConst(m_lists)) {
        for (const Task &task : list.tasks) {
            if (!seen.contains(task.id)) {
                seen.insert(task.id);
                all.append(task);
            }
        }
    }
    return all;
}

void TaskLists::replace(const QString &teamId, const QList<Task> &tasks)
{
    m_lists[teamId] = {tasks, m_moment};
    setChanged(teamId);
}

void TaskLists::remove(const QString &taskId)
{
    m_events[taskId].removedAt = ++m_moment;
}

void TaskLists::moveDeadline(const QString &teamId, const Task &task)
{
    Event &event = m_events[task.id];
    event.movedAt = ++m_moment;
    event.movedBy = teamId;
    event.deadline = task.deadline;
}

void TaskLists::clear()
{
    m_lists.clear();
    m_events.clear();
    m_changed.clear();
}

QSet<QString> TaskLists::changedTeams() const
{
    settleAll();
    return m_changed;
}

void TaskLists::setAllChanged()
{
    for (auto it = m_lists.cbegin(); it != m_lists.cend(); ++it)
        setChanged(it.key());
}

// Settings have no entry without a name.
void TaskLists::setChanged(const QString &teamId) const
{
    if (!teamId.isEmpty())
        m_changed.insert(teamId);
}

void TaskLists::settle(const QString &teamId, List &list) const
{
    const quint32 before = list.settledAt;
    list.settledAt = m_moment;
    if (before == m_moment || m_events.isEmpty())
        return;
    QList<Task> settled;
    bool isChanged = false;
    for (int i = 0; i < list.tasks.size(); ++i) {
        const Task &task = list.tasks.at(i);
        const auto event = m_events.constFind(task.id);
        const bool isRemoved = event != m_events.constEnd() && event->removedAt > before;
        const bool isMoved =
            event != m_events.constEnd() && event->movedAt > before && event->movedBy != teamId;
        if (!isChanged && (isRemoved || isMoved)) {
            settled = list.tasks.mid(0, i);
            isChanged = true;
        }
        if (!isChanged || isRemoved)
            continue;
        settled.append(task);
        if (isMoved)
            settled.last().deadline = event->deadline;
    }
    if (!isChanged)
        return;
    list.tasks = settled;
    setChanged(teamId);
}

void TaskLists::settleAll() const
{
    if (m_events.isEmpty())
        return;
    for (auto it = m_lists.begin(); it != m_lists.end(); ++it)
        settle(it.key(), *it);
    m_events.clear();
}
