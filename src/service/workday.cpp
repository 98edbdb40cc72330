#include "service/workday.h"

void WorkDay::addSecond(const QDate &today)
{
    if (!date.isValid() || date < today) {
        *this = WorkDay();
        date = today;
        return;
    }
    work.displayed = work.displayed.addSecs(1);
    active.displayed = active.displayed.addSecs(1);
}

void WorkDay::addActiveMinute(const QString &taskId)
{
    active.addMinute();
    // A task's entry holds the whole day's active time as it stood at the task's
    // latest active minute, not the task's own sum.
    activeTimes.insert(taskId, active.counted);
}

bool WorkDay::setActiveTime(const QTime &time)
{
    active.counted = time;
    // Only the minute field decides, so that the running seconds do not jump at
    // every correction; an hour alone that differs waits for the next step.
    if (active.displayed.minute() == time.minute())
        return false;
    active.displayed = time;
    return true;
}

QTime WorkDay::activeTimeOf(const QString &taskId) const
{
    const auto entry = activeTimes.constFind(taskId);
    return entry == activeTimes.constEnd() ? QTime(0, 0) : entry->toTime();
}
