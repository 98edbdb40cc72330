#pragma once

#include "service/orvana.h"

#include "model/records.h"
#include "service/tasklists.h"

#include <QDate>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QTime>
#include <QVariantMap>

#include <memory>

class QSettings;

// One user's state: credentials, choice, lists, details and the day's counters,
// kept in INI files in the owner's storage directory. Counters are times of day
// and wrap at 24 hours.
class Orvana::Session final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Session)

public:
    Session(Orvana *owner, QObject *parent);
    ~Session() override;

    // Loads the user who was logged in last, if there was one.
    void initLastLogin();
    // Loads one user's files; an empty password means the stored one.
    void init(const QString &login, const QString &password);
    // Writes what changed since the last save, and what is missing on the disk.
    void save();
    // Writes what the user has decided (credentials, choice, timer) if the file does not
    // hold it yet.
    void saveChoice();
    // Forgets the user; the files stay.
    void clear();

    void addTeamsData(const QList<Team> &teams);
    void addTasksData(const QList<Task> &tasks, const QString &teamId);
    void addTaskInfoData(const QString &taskId, const TaskInfo &info);
    void removeAllSavedTasks(const Task &task);
    // Gives the task its new deadline in the lists of all teams but this one.
    void updateDeadlinesTo(const QString &teamId, const Task &task);

    QList<Team> teams() const { return m_teams; }
    Team team(const QString &id) const;
    QList<Task> tasks(const QString &teamId) const;
    // Every task once, from the team with the smallest id that lists it.
    QList<Task> tasks() const;
    QList<Task> blockedTasks(const QString &teamId) const;
    Task task(const QString &teamId, const QString &taskId) const;
    // An unknown id is remembered with empty details.
    TaskInfo taskInfo(const QString &taskId);
    // The first ones, at most that many, in the order of the team's list; remembers them
    // as taskInfo() does. The catch-all task has no details.
    QStringList tasksWithoutDetails(const QString &teamId, int most);

    QString login() const { return m_login; }
    void setLogin(const QString &login) { m_login = login; }
    QString password() const { return m_password; }
    void setPassword(const QString &password) { m_password = password; }
    bool isLogged() const { return m_logged; }
    void setLogged(bool logged) { m_logged = logged; }
    bool isActive() const { return m_active; }
    // On the disk before the call returns, as is a choice of the task; what the disk
    // refuses is written with the next save.
    void setActive(bool active);
    bool isOnline() const { return m_online; }
    void setOnline(bool online) { m_online = online; }
    QString currentTeamID() const { return m_currentTeamId; }
    void setCurrentTeamID(const QString &id) { m_currentTeamId = id; }
    QString currentTaskID() const { return m_currentTaskId; }
    void setCurrentTaskID(const QString &id);

    // One second of the displayed clocks; starts a new day at the first call
    // after midnight.
    void incrementTodayTime();
    // Saves the session, so that a counted minute survives.
    void addMinuteToWorktime();
    void addMinuteToActiveTime();
    void updateSecondsToDisplayedWorktime();
    void updateSecondsToDisplayedActiveTime();
    QTime todayTime() const { return m_todayWorktimeDisplayed; }
    QTime todayActiveTime() const { return m_todayActivetime; }
    QTime todayActiveTimeDisplayed() const { return m_todayActivetimeDisplayed; }
    QTime todayActiveTime(const QString &taskId) const;
    void setWorktime(const QTime &time);
    void setActiveTime(const QTime &time);
    void setActiveTaskTime(const QString &taskId, const QTime &time);
    QDate worktimeDate() const { return m_worktimeDate; }
    void setWorktimeDate(const QDate &date) { m_worktimeDate = date; }
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
    void announceTeamChanges(const QList<Team> &teams);
    void announceTaskChanges(const QList<Task> &tasks, const QString &teamId);
    void setTasks(const QString &teamId, const QList<Task> &tasks);
    void setInfoChanged(const QString &taskId);
    QVariantList choice() const;
    void resetCounters();
    void openStores();
    void reopenStores();
    void restoreSession(bool readPassword);
    void restoreLists();
    void saveSessionValues();
    void saveLists();
    bool hasFile(const std::unique_ptr<QSettings> &store) const;
    bool write(QSettings &store) const;

    Orvana *m_owner;
    QString m_currentTeamId;
    QString m_currentTaskId;
    QString m_login;
    QString m_password;
    bool m_active = false;
    bool m_logged = false;
    bool m_online = true;
    QDate m_worktimeDate;
    QTime m_todayWorktime;
    QTime m_todayWorktimeDisplayed;
    QTime m_todayActivetime;
    QTime m_todayActivetimeDisplayed;
    QDateTime m_clearedAt;
    std::unique_ptr<QSettings> m_configStore;
    std::unique_ptr<QSettings> m_sessionStore;
    std::unique_ptr<QSettings> m_teamsStore;
    std::unique_ptr<QSettings> m_tasksStore;
    std::unique_ptr<QSettings> m_taskInfoStore;
    TaskLists m_lists;
    QHash<QString, TaskInfo> m_taskInfos;
    // Teams all of whose tasks have details: nothing to look up until the list changes.
    QSet<QString> m_detailedTeams;
    QList<Team> m_teams;
    QVariantMap m_task2activeTimeMap;

    // What the files do not hold yet; rewriting tens of thousands of unchanged
    // entries every minute would hold up the window.
    bool m_hasStores = false; // false, too, when they are stand-ins
    QVariantList m_savedChoice;
    bool m_userChanged = false;
    bool m_teamsChanged = false;
    bool m_triedFirstSave = false; // since the last list of teams
    QSet<QString> m_changedTaskInfos;
};
