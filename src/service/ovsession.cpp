#include "service/ovsession.h"

#include "base/exemptteam.h"
#include "service/listchanges.h"
#include "storage/settingsfile.h"

#include <QDebug>
#include <QDir>
#include <QSettings>

#include <algorithm>

namespace {

const QTime kMidnight(0, 0);

} // namespace

Orvana::Session::Session(Orvana *owner, QObject *parent)
    : QObject(parent)
    , m_owner(owner)
    , m_todayWorktime(kMidnight)
    , m_todayWorktimeDisplayed(kMidnight)
    , m_todayActivetime(kMidnight)
    , m_todayActivetimeDisplayed(kMidnight)
{
    const QString path = owner->storageDirectory().filePath(QStringLiteral("config.ini"));
    m_configStore = owner->storage().isUsable() ? openSettings(path) : emptySettings(path);
}

Orvana::Session::~Session() = default;

void Orvana::Session::clear()
{
    m_login.clear();
    m_password.clear();
    m_currentTeamId.clear();
    m_currentTaskId.clear();
    m_active = false;
    m_logged = false;
    m_online = false;
    m_worktimeDate = QDate::currentDate();
    resetCounters();
    m_taskInfos.clear();
    m_lists.clear();
    m_detailedTeams.clear();
    m_teams.clear();
    m_teamsChanged = false;
    m_savedChoice.clear();
    m_changedTaskInfos.clear();
    m_clearedAt = QDateTime::currentDateTime();
    m_hasStores = false;
    m_sessionStore.reset();
    m_tasksStore.reset();
    m_taskInfoStore.reset();
    m_teamsStore.reset();
}

void Orvana::Session::resetCounters()
{
    m_todayWorktime = kMidnight;
    m_todayWorktimeDisplayed = kMidnight;
    m_todayActivetime = kMidnight;
    m_todayActivetimeDisplayed = kMidnight;
    m_task2activeTimeMap.clear();
}

void Orvana::Session::addTeamsData(const QList<Team> &teams)
{
    m_triedFirstSave = false;
    m_lists.settle();
    announceTeamChanges(teams);
    const bool same = teams.size() == m_teams.size()
        && std::equal(teams.cbegin(), teams.cend(), m_teams.cbegin(),
                      [](const Team &a, const Team &b) { return a.id == b.id && a.name == b.name; });
    if (!same) {
        m_teams = teams;
        m_teamsChanged = true;
    }
    emit teamsUpdated();
}

void Orvana::Session::announceTeamChanges(const QList<Team> &teams)
{
    // Nothing is news on a user's very first load.
    if (!hasFile(m_teamsStore))
        return;
    const QVector<TeamChange> changes = teamChanges(m_teams, teams);
    for (const TeamChange &change : changes)
        m_owner->notify(change.name, change.type);
}

void Orvana::Session::addTasksData(const QList<Task> &tasks, const QString &teamId)
{
    if (!m_lists.contains(teamId) || !haveSameContents(m_lists.ofTeam(teamId), tasks)) {
        announceTaskChanges(tasks, teamId);
        setTasks(teamId, tasks);
    }
    if (!m_triedFirstSave && m_lists.teamCount() == m_teams.size()) {
        m_triedFirstSave = true;
        if (!hasFile(m_tasksStore))
            save();
    }
    emit tasksUpdated(teamId);
}

void Orvana::Session::announceTaskChanges(const QList<Task> &tasks, const QString &teamId)
{
    if (!hasFile(m_tasksStore))
        return;
    const QVector<TaskChange> changes =
        taskChanges(m_lists.ofTeam(teamId), tasks, !isExemptTeam(teamId));
    for (const TaskChange &change : changes) {
        if (change.type == TaskGone)
            m_lists.remove(change.oldTask.id);
    }
    for (const TaskChange &change : changes) {
        switch (change.type) {
        case TaskGone:
            m_owner->notify(change.oldTask.title, TaskGone);
            emit taskClosed(change.oldTask.id);
            break;
        case DeadlineChanged:
            m_lists.moveDeadline(teamId, change.newTask);
            m_owner->notify(change.oldTask.title, DeadlineChanged);
            if (change.oldTask.id == m_currentTaskId)
                emit overdueTimeChanged();
            break;
        case TaskAdded:
            qDebug() << "Task added" << change.newTask.title << change.newTask.id;
            m_owner->notify(change.newTask.title, TaskAdded, change.newTask.id);
            break;
        case BlockingTaskAdded:
            qDebug() << "Task blocked added" << change.newTask.title << change.newTask.id;
            m_owner->notify(change.newTask.title, BlockingTaskAdded, change.newTask.id);
            break;
        default:
            m_owner->notify(change.newTask.title, change.type, change.newTask.id);
        }
    }
}

void Orvana::Session::addTaskInfoData(const QString &taskId, const TaskInfo &info)
{
    m_taskInfos.insert(taskId, info);
    setInfoChanged(taskId);
    if (info.id.isEmpty())
        m_detailedTeams.clear();
}

// Settings have no entry without a name.
void Orvana::Session::setInfoChanged(const QString &taskId)
{
    if (!taskId.isEmpty())
        m_changedTaskInfos.insert(taskId);
}

void Orvana::Session::setTasks(const QString &teamId, const QList<Task> &tasks)
{
    m_detailedTeams.remove(teamId);
    m_lists.replace(teamId, tasks);
}

void Orvana::Session::removeAllSavedTasks(const Task &task)
{
    m_lists.remove(task.id);
}

void Orvana::Session::updateDeadlinesTo(const QString &teamId, const Task &task)
{
    m_lists.moveDeadline(teamId, task);
}

Team Orvana::Session::team(const QString &id) const
{
    for (const Team &team : m_teams) {
        if (team.id == id)
            return team;
    }
    return {};
}

QList<Task> Orvana::Session::tasks(const QString &teamId) const
{
    return m_lists.ofTeam(teamId);
}

QList<Task> Orvana::Session::tasks() const
{
    return m_lists.all();
}

QList<Task> Orvana::Session::blockedTasks(const QString &teamId) const
{
    QList<Task> blocking;
    const QList<Task> all = m_lists.ofTeam(teamId);
    for (const Task &task : all) {
        if (task.isBlocking())
            blocking.append(task);
    }
    return blocking;
}

Task Orvana::Session::task(const QString &teamId, const QString &taskId) const
{
    if (teamId.isEmpty() || taskId.isEmpty())
        return {};
    const QList<Task> all = m_lists.ofTeam(teamId);
    for (const Task &task : all) {
        if (task.id == taskId)
            return task;
    }
    return {};
}

TaskInfo Orvana::Session::taskInfo(const QString &taskId)
{
    const auto found = m_taskInfos.constFind(taskId);
    if (found != m_taskInfos.constEnd())
        return *found;
    m_taskInfos.insert(taskId, TaskInfo());
    setInfoChanged(taskId);
    return {};
}

QStringList Orvana::Session::tasksWithoutDetails(const QString &teamId, int most)
{
    QStringList ids;
    if (most <= 0 || m_detailedTeams.contains(teamId))
        return ids;
    const QList<Task> all = m_lists.ofTeam(teamId);
    for (const Task &task : all) {
        if (taskInfo(task.id).id.isEmpty() && !task.isCatchAll())
            ids.append(task.id);
        if (ids.size() == most)
            return ids;
    }
    if (ids.isEmpty())
        m_detailedTeams.insert(teamId);
    return ids;
}

void Orvana::Session::setActive(bool active)
{
    m_active = active;
    saveChoice();
    emit activeChanged(active);
}

void Orvana::Session::setCurrentTaskID(const QString &id)
{
    if (id == m_currentTaskId)
        return;
    m_currentTaskId = id;
    saveChoice();
    emit taskChanged(id);
}
