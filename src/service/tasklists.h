#pragma once

#include "model/records.h"

#include <QHash>
#include <QMap>
#include <QSet>

// The task lists of all teams. What happens to a task in the lists of other teams is
// noted and carried out when such a list is next used, so that a reply in which
// everything changes costs no more than its length.
class TaskLists final
{
public:
    bool contains(const QString &teamId) const { return m_lists.contains(teamId); }
    int teamCount() const { return m_lists.size(); }
    // Empty for an unknown team.
    QList<Task> ofTeam(const QString &teamId) const;
    // Every task once, from the team with the smallest id that lists it.
    QList<Task> all() const;

    void replace(const QString &teamId, const QList<Task> &tasks);
    // From every team's list.
    void remove(const QString &taskId);
    // Passes the deadline on to the lists of all teams but this one.
    void moveDeadline(const QString &teamId, const Task &task);
    void clear();
    // Carries out everywhere what has been noted, which can then be forgotten.
    void settle() { settleAll(); }

    // Teams whose list has changed since the last save.
    QSet<QString> changedTeams() const;
    void setAllChanged();
    void setSaved() { m_changed.clear(); }

private:
    struct List
    {
        QList<Task> tasks;
        quint32 settledAt = 0;
    };
    struct Event
    {
        quint32 removedAt = 0;
        quint32 movedAt = 0;
        QString movedBy;
        QDateTime deadline;
    };

    void setChanged(const QString &teamId) const;
    void settle(const QString &teamId, List &list) const;
    void settleAll() const;

    mutable QMap<QString, List> m_lists;
    mutable QHash<QString, Event> m_events; // by task id
    mutable QSet<QString> m_changed;
    quint32 m_moment = 0; // counts events
};
