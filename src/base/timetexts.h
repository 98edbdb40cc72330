#pragma once

#include <QDateTime>
#include <QString>

// How long ago the deadline was, "1д. 2ч. 30 мин."; parts that are zero are left
// out, so less than a minute is an empty text. Empty for an invalid deadline.
QString overdueText(const QDateTime &deadline, const QDateTime &now);

// "7мин" below an hour, "1ч. 7мин" from there on.
QString durationWords(const QTime &duration);

// "3 отчёта ждут отправки с 14:05", with the date when that was not today; empty for
// none and for a single new one, which is probably being sent.
QString backlogText(int count, const QDateTime &oldest, const QDateTime &now);
