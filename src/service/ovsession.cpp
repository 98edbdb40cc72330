#include "service/ovsession.h"

#include "base/crashpoint.h"
#include "base/exemptteam.h"
#include "base/log.h"
#include "service/listchanges.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace {

// In one reply. Each line takes as long as everything else about its task.
constexpr int kMaxLoggedTasks = 1000;

// Asked each second. QDate::currentDate() would consult the time zone three times.
QDate today()
{
    const std::time_t now = QDateTime::currentSecsSinceEpoch();
    std::tm local = {};
    tzset(); // the zone may have changed
    localtime_r(&now, &local);
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

} // namespace

Orvana::Session::Session(Orvana *owner, QObject *parent)
    : QObject(parent)
    , m_owner(owner)
    , m_files(owner->storage())
{ }

void Orvana::Session::initLastLogin()
{
    const QString lastLogin = m_files.lastLogin();
    if (!lastLogin.isEmpty())
        init(lastLogin, QString());
}

void Orvana::Session::init(const QString &login, const QString &password)
{
    m_user.login = login;
    if (!password.isEmpty())
        m_user.password = password;
    m_files.open(login);
    const bool isToday = m_files.restore(m_user, m_day, QDate::currentDate(), password.isEmpty());
    m_owner->journal().open(login, m_files.storedCounters(), &m_day);
    if (isToday || m_day.work.counted != QTime(0, 0))
        emit timeUpdated();
    m_files.restore(m_lists);
    QStringList teamIds;
    const QList<Team> all = teams();
    for (const Team &team : all)
        teamIds.append(team.id);
    m_owner->storage().removeDeprecatedFiles(login, teamIds);
}

void Orvana::Session::clear()
{
    m_user = UserState();
    m_user.isOnline = false;
    m_day = WorkDay();
    m_day.date = QDate::currentDate();
    m_lists = TaskLists();
    m_clearedAt = QDateTime::currentDateTime();
    m_files.close();
}

void Orvana::Session::addTeamsData(const QList<Team> &teams)
{
    m_triedFirstSave = false;
    if (m_addedTasks > kMaxLoggedTasks)
        qCDebug(lcService) << "Tasks added in all:" << m_addedTasks;
    m_addedTasks = 0;
    m_lists.settle();
    // Nothing is news on a user's very first load.
    if (m_files.hasTeamsFile()) {
        const QVector<TeamChange> changes = teamChanges(m_lists.teams(), teams);
        for (const TeamChange &change : changes)
            m_owner->notify(change.name, change.type);
    }
    m_lists.setTeams(teams);
    emit teamsUpdated();
}

void Orvana::Session::addTasksData(const QList<Task> &tasks, const QString &teamId)
{
    if (!m_lists.hasListOf(teamId) || !haveSameContents(tasks, m_lists.ofTeam(teamId))) {
        announceTaskChanges(tasks, teamId);
        m_lists.replace(teamId, tasks);
    }
    if (!m_triedFirstSave && m_lists.areComplete()) {
        m_triedFirstSave = true;
        if (!m_files.hasTasksFile())
            save();
    }
    emit tasksUpdated(teamId);
}

void Orvana::Session::announceTaskChanges(const QList<Task> &tasks, const QString &teamId)
{
    if (!m_files.hasTasksFile())
        return;
    const QVector<TaskChange> changes = taskChanges(m_lists.ofTeam(teamId), tasks, !isExemptTeam(teamId));
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
            if (change.oldTask.id == m_user.taskId)
                emit overdueTimeChanged();
            break;
        case TaskAdded:
        case BlockingTaskAdded:
            if (++m_addedTasks <= kMaxLoggedTasks)
                qCDebug(lcService) << (change.type == TaskAdded ? "Task added" : "Task blocked added")
                                   << change.newTask.title << change.newTask.id;
            Q_FALLTHROUGH();
        default:
            m_owner->notify(change.newTask.title, change.type, change.newTask.id);
        }
    }
}

QList<Task> Orvana::Session::blockedTasks(const QString &teamId) const
{
    QList<Task> blocking;
    const QList<Task> all = m_lists.ofTeam(teamId);
    std::copy_if(all.cbegin(), all.cend(), std::back_inserter(blocking),
                 [](const Task &task) { return task.isBlocking(); });
    return blocking;
}

void Orvana::Session::setActive(bool active)
{
    m_user.isActive = active;
    saveChoice();
    emit activeChanged(active);
}

void Orvana::Session::setCurrentTaskID(const QString &id)
{
    if (id == m_user.taskId)
        return;
    m_user.taskId = id;
    saveChoice();
    emit taskChanged(id);
}

void Orvana::Session::incrementTodayTime()
{
    const DayCounters before = DayCounters::of(m_day);
    m_day.addSecond(today());
    if (m_day.date != before.day)
        m_owner->journal().dayBegan(before, DayCounters::of(m_day));
    emit timeUpdated();
}

void Orvana::Session::addMinuteToWorktime()
{
    m_day.work.addMinute();
    save();
    crashPoint("counters-saved");
}

void Orvana::Session::updateSecondsToDisplayedWorktime()
{
    m_day.work.displayed = m_day.work.counted;
    emit timeUpdated();
}

void Orvana::Session::updateSecondsToDisplayedActiveTime()
{
    m_day.active.displayed = m_day.active.counted;
    emit timeUpdated();
}

QTime Orvana::Session::todayActiveTime(const QString &taskId) const
{
    qCDebug(lcService) << "Session.cpp todayActiveTime";
    return m_day.activeTimeOf(taskId);
}

void Orvana::Session::setActiveTime(const QTime &time)
{
    if (m_day.setActiveTime(time))
        emit timeUpdated();
}

qint64 Orvana::Session::overdueTime() const
{
    const QDateTime deadline = currentDeadline();
    return deadline.isValid() ? deadline.secsTo(QDateTime::currentDateTime()) : 0;
}

QDateTime Orvana::Session::currentDeadline() const
{
    if (m_user.taskId == kCatchAllId)
        return QDateTime::currentDateTime();
    return task(m_user.teamId, m_user.taskId).deadline;
}
