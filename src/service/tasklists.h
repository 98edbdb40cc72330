#pragma once

#include "model/records.h"

#include <QHash>
#include <QSet>

// What the service has said of a user's teams: their names, the tasks of each and the
// tasks' details. What happens to a task in the lists of other teams is noted and carried
// out when such a list is next used, so that a reply in which everything changes costs no
// more than its length.
class TaskLists final
{
public:
    // What the files do not hold yet, by id.
    struct Unsaved
    {
        bool teams = false;
        QSet<QString> lists;
        QSet<QString> infos;
    };

    // The reply that says what the lists hold, if that is known: a reply that is set before
    // it is carried out, and forgotten as soon as something changes.
    bool areFrom(const QByteArray &reply) const { return !reply.isEmpty() && reply == m_source; }
    void setSource(const QByteArray &reply) { m_source = reply; }

    QList<Team> teams() const { return m_teams; }
    void setTeams(const QList<Team> &teams);
    // Empty for an unknown id, as are the records below.
    Team team(const QString &id) const;

    bool hasListOf(const QString &teamId) const { return m_lists.contains(teamId); }
    // As many lists as teams.
    bool areComplete() const { return m_lists.size() == m_teams.size(); }
    QList<Task> ofTeam(const QString &teamId) const;
    Task task(const QString &teamId, const QString &taskId) const;
    // Every task once, from the team with the smallest id that lists it.
    QList<Task> all() const;
    void replace(const QString &teamId, const QList<Task> &tasks);
    // From every team's list.
    void remove(const QString &taskId);
    // Copies the deadline to the lists of all teams but this one.
    void moveDeadline(const QString &teamId, const Task &task);
    // Carries out everywhere what has been noted, which can then be forgotten.
    void settle() const;

    const QHash<QString, TaskInfo> &infos() const { return m_infos; }
    // An unknown id is remembered with empty details.
    TaskInfo info(const QString &taskId);
    void setInfo(const QString &taskId, const TaskInfo &info);
    // The first ones, at most this many, in the order of the team's list; remembers them
    // as info() does. The catch-all task has no details.
    QStringList tasksWithoutDetails(const QString &teamId, int most);

    // Whoever writes to the files takes out what is on the disk.
    Unsaved &unsaved();
    void setAllUnsaved();
    void setAllListsUnsaved();
    void setAllInfosUnsaved();

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

    void settle(const QString &teamId, List &list) const;

    QByteArray m_source;
    QList<Team> m_teams;
    mutable QHash<QString, List> m_lists;
    mutable QHash<QString, Event> m_events; // by task id
    quint32 m_moment = 0; // counts events
    QHash<QString, TaskInfo> m_infos;
    // Teams all of whose tasks have details: nothing to search until the list changes.
    QSet<QString> m_detailedTeams;
    mutable Unsaved m_unsaved;
};
