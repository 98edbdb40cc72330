#include "service/tasklists.h"

#include <algorithm>

namespace {

// Empty when there is none.
template <typename Record>
Record recordWithId(const QList<Record> &records, const QString &id)
{
    const auto found = std::find_if(records.cbegin(), records.cend(),
                                    [&id](const Record &record) { return record.id == id; });
    return found == records.cend() ? Record() : *found;
}

// Settings have no entry without a name.
void addKey(QSet<QString> &keys, const QString &id)
{
    if (!id.isEmpty())
        keys.insert(id);
}

} // namespace

void TaskLists::setTeams(const QList<Team> &teams)
{
    if (teams == m_teams)
        return;
    m_teams = teams;
    m_unsaved.teams = true;
}

Team TaskLists::team(const QString &id) const
{
    return recordWithId(m_teams, id);
}

QList<Task> TaskLists::ofTeam(const QString &teamId) const
{
    const auto found = m_lists.find(teamId);
    if (found == m_lists.end())
        return {};
    settle(teamId, *found);
    return found->tasks;
}

Task TaskLists::task(const QString &teamId, const QString &taskId) const
{
    return teamId.isEmpty() || taskId.isEmpty() ? Task() : recordWithId(ofTeam(teamId), taskId);
}

QList<Task> TaskLists::all() const
{
    settle();
    QList<Task> all;
    QSet<QString> seen;
    QStringList teamIds = m_lists.keys();
    std::sort(teamIds.begin(), teamIds.end());
    for (const QString &teamId : qAsConst(teamIds)) {
        const QList<Task> tasks = m_lists.value(teamId).tasks;
        for (const Task &task : tasks) {
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
    m_source.clear();
    m_detailedTeams.remove(teamId);
    addKey(m_unsaved.lists, teamId);
}

void TaskLists::remove(const QString &taskId)
{
    m_events[taskId].removedAt = ++m_moment;
    m_source.clear();
}

void TaskLists::moveDeadline(const QString &teamId, const Task &task)
{
    Event &event = m_events[task.id];
    m_source.clear();
    event.movedAt = ++m_moment;
    event.movedBy = teamId;
    event.deadline = task.deadline;
}

TaskInfo TaskLists::info(const QString &taskId)
{
    if (!m_infos.contains(taskId))
        setInfo(taskId, TaskInfo());
    return m_infos.value(taskId);
}

void TaskLists::setInfo(const QString &taskId, const TaskInfo &info)
{
    m_infos.insert(taskId, info);
    addKey(m_unsaved.infos, taskId);
    if (info.id.isEmpty())
        m_detailedTeams.clear();
}

QStringList TaskLists::tasksWithoutDetails(const QString &teamId, int most)
{
    QStringList ids;
    if (most <= 0 || m_detailedTeams.contains(teamId))
        return ids;
    const QList<Task> all = ofTeam(teamId);
    for (const Task &task : all) {
        if (info(task.id).id.isEmpty() && !task.isCatchAll())
            ids.append(task.id);
        if (ids.size() == most)
            return ids;
    }
    if (ids.isEmpty())
        m_detailedTeams.insert(teamId);
    return ids;
}

TaskLists::Unsaved &TaskLists::unsaved()
{
    settle();
    return m_unsaved;
}

void TaskLists::setAllUnsaved()
{
    m_unsaved.teams = true;
    setAllListsUnsaved();
    setAllInfosUnsaved();
}

void TaskLists::setAllListsUnsaved()
{
    for (auto it = m_lists.keyBegin(); it != m_lists.keyEnd(); ++it)
        addKey(m_unsaved.lists, *it);
}

void TaskLists::setAllInfosUnsaved()
{
    for (auto it = m_infos.keyBegin(); it != m_infos.keyEnd(); ++it)
        addKey(m_unsaved.infos, *it);
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
    addKey(m_unsaved.lists, teamId);
}

void TaskLists::settle() const
{
    if (m_events.isEmpty())
        return;
    for (auto it = m_lists.begin(); it != m_lists.end(); ++it)
        settle(it.key(), *it);
    m_events.clear();
}
