#pragma once

#include "minutes/arguments.h"
#include "minutes/note.h"
#include "storage/journalreader.h"

#include <QMap>

namespace minutes {

// Of the values of a journal's line: its moment, in the time of the place where it was written,
// and the day to whose counters it belongs.
QDateTime momentOf(const QJsonObject &values);
QDate dayOf(const QJsonObject &values);

// Minutes that the service took away or gave, of one day.
struct Correction
{
    int work = 0;
    int active = 0;
};

// Follows a journal from its start, or from a month before the period, and notes what interrupts
// the counting in the period and what happened apart from it.
class Story final
{
public:
    Story(QString login, const Period &period)
        : m_login(std::move(login))
        , m_period(period)
    { }

    void add(const JournalReader::Line &line, const QString &file);
    // What has not ended by now.
    void finish(const QDateTime &now);

    const QVector<Note> &notes() const { return m_notes; }
    const QMap<QDate, Correction> &corrections() const { return m_corrections; }

private:
    enum class Phase { Unknown, Closed, Stopped, Running };

    void addGap(const QDateTime &until, bool isOver = true);
    void addMinute(const QDateTime &at, const QJsonObject &values);
    void addCorrection(Note::Kind kind, const QDateTime &at, const QJsonObject &values);
    void addDamage(const QDateTime &until);
    void note(const Note &note);
    void enter(Phase phase, const QDateTime &at);

    QString m_login;
    Period m_period;
    QVector<Note> m_notes;
    QMap<QDate, Correction> m_corrections;

    Phase m_phase = Phase::Unknown;
    QDateTime m_since; // of the phase
    Note::Kind m_reason = Note::Kind::Stopped; // of a phase in which nothing is counted
    QString m_dropped; // what of a minute was lost by that
    QDateTime m_last; // the last line of a run
    QDateTime m_lastMinute; // or the start; invalid when something explains a longer minute
    QDate m_lastDay; // of a minute or the start, until the timer stops
    QString m_damaged; // the first of some lines that cannot be read
    int m_damagedCount = 0;
};

} // namespace minutes
