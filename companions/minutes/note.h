#pragma once

#include <QDateTime>
#include <QString>
#include <QVector>

namespace minutes {

// What the table of minutes cannot show: a gap between them, or where journal, service and
// counters differ.
struct Note
{
    enum class Kind {
        Killed, // the program ended without a chance to write that
        Closed,
        SignedOut,
        Stopped,
        Slept,
        ClockSet,
        Stalled, // a minute took much longer than a minute
        Silent, // nothing more follows although the timer ran
        Midnight,
        Corrected, // by the service
        Counters,
        Refused,
        ScreenshotRefused,
        Restored,
        AcceptedTwice,
        NotInJournal, // accepted or waiting all the same
        Missing, // neither accepted nor waiting
        Gap, // lines are missing, and the client knew it
        Torn,
        Damaged,
        OtherLogin
    };

    Kind kind;
    QDateTime from;
    QDateTime to; // invalid: not over yet
    QString detail = {};
    int count = 1;
};

// A stable English word for programs.
QString nameOf(Note::Kind kind);
// In Russian, on one line, without the moments.
QString textOf(const Note &note);
// "2026-11-22 10:15:20 – 10:40:02"
QString momentsOf(const Note &note);

// Adds it, or counts it with the last one when that says the same.
void add(QVector<Note> &notes, const Note &note);

} // namespace minutes
