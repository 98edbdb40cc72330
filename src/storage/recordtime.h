#pragma once

#include <QDateTime>
#include <QString>

// Times in records and in the names of their files: local, to the second.

QString recordTimeText(const QDateTime &time);
// Invalid when the text is no such time.
QDateTime recordTime(const QString &text);
