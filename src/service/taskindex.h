#pragma once

#include "model/records.h"

#include <QHash>
#include <QStringList>

// Which teams list a task. Follows the lists as they are replaced, so that a
// change of one task need not walk through all of them.
class TaskIndex final
{
public:
    void clear() { m_teams.clear(); }
    void replace(const QString &teamId, const QList<Task> &oldTasks, const QList<Task> &newTasks);
    QStringList teamsOf(const QString &taskId) const { return m_teams.value(taskId); }

private:
    QHash<QString, QStringList> m_teams;
};
