#pragma once

#include <QDateTime>
#include <QString>

// Times in records and in the names of their files: local, to the second.

constexpr int kRecordTimeLength = 19;

QString recordTimeText(const QDateTime &time);
// Invalid when the text is no such time.
QDateTime recordTime(const QString &text);

// The same as a number that grows with the time: 0 for what is none. Thousands of records may
// be counted at a start, and only the first of them be shown. What follows the time is ignored.
qint64 recordMoment(const char *text);
// The epoch for 0.
QDateTime timeOfMoment(qint64 moment);
