#pragma once

#include "minutes/arguments.h"
#include "minutes/note.h"
#include "minutes/story.h"

#include <QHash>
#include <QSet>

#include <tuple>

namespace minutes {

// What names a report. Two minutes may share it, when an hour comes twice.
struct Identity
{
    QString record; // the record's own time stamp
    QString teamId;
    QString taskId;
    int active = 0; // slices of six seconds with activity

    bool operator==(const Identity &other) const
    {
        return std::tie(record, teamId, taskId, active)
            == std::tie(other.record, other.teamId, other.taskId, other.active);
    }
    // Of the values of a journal's line or of a report.
    static Identity of(const QJsonObject &values);
};

uint qHash(const Identity &id, uint seed = 0);

// How many there are of each.
using Tally = QHash<Identity, int>;

struct Minute
{
    enum class Fate { Accepted, Waiting, Missing };

    QDate day;
    QDateTime at;
    Identity id;
    Fate fate = Fate::Missing;
};

// Of one day and task, or of several.
struct Sum
{
    QDate day;
    QString teamId;
    QString taskId;
    int counted = 0;
    int active = 0; // minutes with activity
    int slices = 0;
    int accepted = 0;
    int waiting = 0;
    int missing = 0;

    void add(const Minute &minute);
    void add(const Sum &other);
};

// The minutes of a period, and what became of their reports.
class Account final
{
public:
    Account(QString login, const Period &period)
        : m_login(std::move(login))
        , m_period(period)
    { }

    void add(const JournalReader::Line &line);
    // From now on only acceptances are taken: how many minutes there are is settled.
    void settle() { m_isSettled = true; }
    // Decides what became of each minute. One that is a few seconds old may be on its way to the disk.
    void finish(const Tally &waiting, const QDateTime &now);

    const QVector<Minute> &minutes() const { return m_minutes; }
    const QVector<Note> &notes() const { return m_notes; }
    // By day, then in the order in which the tasks were worked on.
    QVector<Sum> sums() const;

private:
    void noteRest(const Tally &waiting);

    QString m_login;
    Period m_period;
    bool m_isSettled = false;
    QVector<Minute> m_minutes;
    Tally m_counted; // those of other days, too
    Tally m_accepted;
    Tally m_restored;
    QHash<Identity, QDateTime> m_moments; // of what was counted
    QSet<QByteArray> m_known; // hashes of the lines that count
    QVector<Note> m_notes;
};

} // namespace minutes
