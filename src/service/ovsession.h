#pragma once

#include "service/orvana.h"

#include "model/records.h"
#include "service/sessionfiles.h"
#include "service/tasklists.h"
#include "service/workday.h"

#include <QObject>

// One user's state: credentials, choice, lists, details and the day's counters,
// kept in INI files in the owner's storage directory.
class Orvana::Session final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Session)

public:
    Session(Orvana *owner, QObject *parent);

    // Loads the user who was logged in last, if there was one.
    void initLastLogin();
    // Loads one user's files; an empty password means the stored one.
    void init(const QString &login, const QString &password);
    // Writes what changed since the last save, and what is missing on the disk.
    void save() { m_files.save(m_user, m_day, m_lists); }
    // Writes what the user has decided (credentials, choice, timer) if the file does not
    // hold it yet.
    void saveChoice() { m_files.saveChoice(m_user, m_day, m_lists); }
    // Forgets the user; the files stay.
    void clear();

    void addTeamsData(const QList<Team> &teams);
    void addTasksData(const QList<Task> &tasks, const QString &teamId);
    void addTaskInfoData(const QString &taskId, const TaskInfo &info) { m_lists.setInfo(taskId, info); }
    void removeAllSavedTasks(const Task &task) { m_lists.remove(task.id); }
    // Gives the task its new deadline in the lists of all teams but this one.
    void updateDeadlinesTo(const QString &teamId, const Task &task) { m_lists.moveDeadline(teamId, task); }

    const TaskLists &lists() const { return m_lists; }
    QList<Team> teams() const { return m_lists.teams(); }
    Team team(const QString &id) const { return m_lists.team(id); }
    QList<Task> tasks(const QString &teamId) const { return m_lists.ofTeam(teamId); }
    // Every task once, from the team with the smallest id that lists it.
    QList<Task> tasks() const { return m_lists.all(); }
    QList<Task> blockedTasks(const QString &teamId) const;
    Task task(const QString &teamId, const QString &taskId) const { return m_lists.task(teamId, taskId); }
    // An unknown id is remembered with empty details.
    TaskInfo taskInfo(const QString &taskId) { return m_lists.info(taskId); }
    QStringList tasksWithoutDetails(const QString &teamId, int most)
    {
        return m_lists.tasksWithoutDetails(teamId, most);
    }

    QString login() const { return m_user.login; }
    void setLogin(const QString &login) { m_user.login = login; }
    QString password() const { return m_user.password; }
    void setPassword(const QString &password) { m_user.password = password; }
    bool isLogged() const { return m_user.isLogged; }
    void setLogged(bool logged) { m_user.isLogged = logged; }
    bool isActive() const { return m_user.isActive; }
    // On the disk before the call returns, as is a choice of the task; what the disk
    // refuses is written with the next save.
    void setActive(bool active);
    bool isOnline() const { return m_user.isOnline; }
    void setOnline(bool online) { m_user.isOnline = online; }
    QString currentTeamID() const { return m_user.teamId; }
    void setCurrentTeamID(const QString &id) { m_user.teamId = id; }
    QString currentTaskID() const { return m_user.taskId; }
    void setCurrentTaskID(const QString &id);

    // One second of the displayed clocks; starts a new day at the first call
    // after midnight.
    void incrementTodayTime();
    // Saves the session, so that a counted minute survives.
    void addMinuteToWorktime();
    void addMinuteToActiveTime() { m_day.addActiveMinute(m_user.taskId); }
    void updateSecondsToDisplayedWorktime();
    void updateSecondsToDisplayedActiveTime();
    QTime todayTime() const { return m_day.work.displayed; }
    QTime todayActiveTime() const { return m_day.active.counted; }
    QTime todayActiveTimeDisplayed() const { return m_day.active.displayed; }
    QTime todayActiveTime(const QString &taskId) const;
    void setWorktime(const QTime &time) { m_day.work.set(time); }
    void setActiveTime(const QTime &time);
    void setActiveTaskTime(const QString &taskId, const QTime &time)
    {
        m_day.activeTimes.insert(taskId, time);
    }
    const WorkDay &day() const { return m_day; }
    QDate worktimeDate() const { return m_day.date; }
    void setWorktimeDate(const QDate &date) { m_day.date = date; }
    // Seconds since the current task's deadline, negative before it.
    qint64 overdueTime() const;
    // Invalid when the current task has none; now for the catch-all task.
    QDateTime currentDeadline() const;

signals:
    void teamsUpdated();
    void tasksUpdated(const QString &teamId);
    void timeUpdated();
    void taskClosed(const QString &taskId);
    void taskChanged(const QString &taskId);
    // By setActive(), even if it was so before; not by a change of user.
    void activeChanged(bool active);
    void overdueTimeChanged();

private:
    void announceTaskChanges(const QList<Task> &tasks, const QString &teamId);

    Orvana *m_owner;
    UserState m_user;
    WorkDay m_day;
    QDateTime m_clearedAt;
    TaskLists m_lists;
    bool m_triedFirstSave = false; // since the last list of teams
    SessionFiles m_files;
};
