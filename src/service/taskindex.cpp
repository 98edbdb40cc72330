#include "service/taskindex.h"

void TaskIndex::replace(const QString &teamId, const QList<Task> &oldTasks, const QList<Task> &newTasks)
{
    // The usual case: some members changed, the tasks are the same.
    if (oldTasks == newTasks)
        return;
    for (const Task &task : oldTasks) {
        const auto teams = m_teams.find(task.id);
        if (teams == m_teams.end())
            continue;
        teams->removeOne(teamId);
        if (teams->isEmpty())
            m_teams.erase(teams);
    }
    for (const Task &task : newTasks) {
        QStringList &teams = m_teams[task.id];
        if (!teams.contains(teamId))
            teams.append(teamId);
    }
}
