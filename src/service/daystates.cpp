#include "service/daystates.h"

#include <QLocale>

const QString DayStates::kDay = QStringLiteral("day");
const QString DayStates::kSavedDay = QStringLiteral("savedDay");
const QString DayStates::kWork = QStringLiteral("workTime");
const QString DayStates::kActive = QStringLiteral("activeTime");

namespace {

const QString kDateFormat = QStringLiteral("yyyy-MM-dd");
const QString kTimeFormat = QStringLiteral("HH:mm:ss");

QDate dayAt(const QJsonObject &values, const QString &key)
{
    return QDate::fromString(values.value(key).toString(), Qt::ISODate);
}

QTime timeAt(const QJsonObject &values, const QString &key, int index)
{
    return QTime::fromString(values.value(key)[index].toString(), Qt::ISODate);
}

} // namespace

QString DayStates::dayText(const QDate &day)
{
    return QLocale::c().toString(day, kDateFormat);
}

QString DayStates::timeText(const QTime &time)
{
    return QLocale::c().toString(time, kTimeFormat);
}

DayStates::DayStates(const QVector<JournalReader::Line> &lines, const QString &login)
{
    for (const JournalReader::Line &line : lines) {
        if (!line.isWhole())
            continue;
        const QJsonValue owner = line.values.value(QLatin1String("login"));
        if (owner.isString())
            m_areForeign = owner.toString() != login;
        if (line.event == QLatin1String("opened") || line.event == QLatin1String("gap"))
            m_states.clear();
        add(line.values, line.values.value(QLatin1String("task")).toString());
    }
}

// A save may come between the two counters of a minute.
void DayStates::add(const QJsonObject &values, const QString &task)
{
    const QDate day = dayAt(values, kDay);
    const QDate savedDay = values.contains(kSavedDay) ? dayAt(values, kSavedDay) : day;
    const QTime work[] = {timeAt(values, kWork, 0), timeAt(values, kWork, 1)};
    const QTime active[] = {timeAt(values, kActive, 0), timeAt(values, kActive, 1)};
    if (!day.isValid() || !work[1].isValid() || !active[1].isValid())
        return;
    m_states += State{{savedDay, work[0], active[0]}, {}};
    m_states += State{{savedDay, work[1], active[0]}, {}};
    m_states += State{{day, work[1], active[1]}, active[0] == active[1] ? QString() : task};
}

// The latest of them.
int DayStates::find(const DayCounters &counters) const
{
    for (int i = m_states.size() - 1; i >= 0; --i) {
        if (m_states.at(i).counters == counters)
            return i;
    }
    return -1;
}

bool DayStates::areMissing(const DayCounters &stored) const
{
    return m_areForeign || (!m_states.isEmpty() && find(stored) < 0);
}

bool DayStates::apply(const DayCounters &stored, WorkDay *day) const
{
    const int known = find(stored);
    if (known < 0 || known == m_states.size() - 1 || last() == stored || last().day != day->date)
        return false;
    day->work.set(last().work);
    day->active.set(last().active);
    for (int i = known + 1; i < m_states.size(); ++i) {
        if (!m_states.at(i).task.isEmpty())
            day->activeTimes.insert(m_states.at(i).task, m_states.at(i).counters.active);
    }
    return true;
}
