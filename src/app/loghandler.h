#pragma once

#include <QString>
#include <QtGlobal>

// Writes debug, warning, critical and fatal messages to the log file, to
// standard output and to the handler that was there before; info messages are
// dropped.
void qDebugHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

// Opens the log file for appending; one larger than 100 MiB is deleted first. A
// file that cannot be opened leaves the other two outlets.
void openLogFile(const QString &path);
void closeLogFile();
void installLogHandler();
