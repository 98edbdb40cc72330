#pragma once

#include "service/workday.h"
#include "storage/journalreader.h"

#include <QVector>

// The day's counters, as they are kept.
struct DayCounters
{
    QDate day;
    QTime work;
    QTime active;

    bool operator==(const DayCounters &other) const
    {
        return day == other.day && work == other.work && active == other.active;
    }
    static DayCounters of(const WorkDay &day) { return {day.date, day.work.counted, day.active.counted}; }
};

// The counters through which the last run of a user's journal went.
class DayStates final
{
public:
    static const QString kDay;
    static const QString kSavedDay; // where the first of both is another day's
    static const QString kWork;
    static const QString kActive;

    // From the last lines of the journal.
    DayStates(const QVector<JournalReader::Line> &lines, const QString &login);

    // The session file holds counters that the journal cannot have led to: its lines are missing,
    // or another user's.
    bool areMissing(const DayCounters &stored) const;
    // Gives the day the last counters, when those of its session file are earlier ones. False when
    // there is nothing to do.
    bool apply(const DayCounters &stored, WorkDay *day) const;
    DayCounters last() const { return m_states.isEmpty() ? DayCounters() : m_states.constLast().counters; }

    static QString dayText(const QDate &day);
    static QString timeText(const QTime &time);

private:
    struct State
    {
        DayCounters counters;
        QString task; // of which the active time has grown
    };

    void add(const QJsonObject &values, const QString &task);
    int find(const DayCounters &counters) const;

    QVector<State> m_states;
    bool m_areForeign = false;
};
