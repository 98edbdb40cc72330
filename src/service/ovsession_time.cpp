#include "service/ovsession.h"

#include <QDebug>

namespace {

constexpr int kMinute = 60; // seconds

} // namespace

void Orvana::Session::incrementTodayTime()
{
    const QDate today = QDate::currentDate();
    if (!m_worktimeDate.isValid() || m_worktimeDate < today) {
        resetCounters();
        m_worktimeDate = today;
    } else {
        m_todayWorktimeDisplayed = m_todayWorktimeDisplayed.addSecs(1);
        m_todayActivetimeDisplayed = m_todayActivetimeDisplayed.addSecs(1);
    }
    emit timeUpdated();
}

void Orvana::Session::addMinuteToWorktime()
{
    m_todayWorktime = m_todayWorktime.addSecs(kMinute);
    save();
}

void Orvana::Session::addMinuteToActiveTime()
{
    m_todayActivetime = m_todayActivetime.addSecs(kMinute);
    // A task's entry holds the whole day's active time as it stood at the task's
    // latest active minute, not the task's own sum.
    m_task2activeTimeMap.insert(m_currentTaskId, m_todayActivetime);
}

void Orvana::Session::updateSecondsToDisplayedWorktime()
{
    m_todayWorktimeDisplayed = m_todayWorktime;
    emit timeUpdated();
}

void Orvana::Session::updateSecondsToDisplayedActiveTime()
{
    m_todayActivetimeDisplayed = m_todayActivetime;
    emit timeUpdated();
}

QTime Orvana::Session::todayActiveTime(const QString &taskId) const
{
    qDebug() << "Session.cpp todayActiveTime";
    const auto entry = m_task2activeTimeMap.constFind(taskId);
    return entry == m_task2activeTimeMap.constEnd() ? QTime(0, 0) : entry->toTime();
}

void Orvana::Session::setWorktime(const QTime &time)
{
    m_todayWorktime = time;
    m_todayWorktimeDisplayed = time;
}

void Orvana::Session::setActiveTime(const QTime &time)
{
    m_todayActivetime = time;
    // Only the minute field decides, so that the running seconds do not jump at
    // every correction; an hour alone that differs waits for the next step.
    if (m_todayActivetimeDisplayed.minute() != time.minute()) {
        m_todayActivetimeDisplayed = time;
        emit timeUpdated();
    }
}

void Orvana::Session::setActiveTaskTime(const QString &taskId, const QTime &time)
{
    m_task2activeTimeMap.insert(taskId, time);
}

qint64 Orvana::Session::overdueTime() const
{
    const QDateTime deadline = currentDeadline();
    return deadline.isValid() ? deadline.secsTo(QDateTime::currentDateTime()) : 0;
}

QDateTime Orvana::Session::currentDeadline() const
{
    if (m_currentTaskId == QLatin1String("0"))
        return QDateTime::currentDateTime();
    return task(m_currentTeamId, m_currentTaskId).deadline;
}
