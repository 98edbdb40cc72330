#pragma once

#include <QString>
#include <QtGlobal>

// Writes debug, warning, critical and fatal messages to the log file, to
// standard output and to the handler that was there before; info messages are
// dropped.
void qDebugHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

// From here on neither standard output nor errors are waited for, whatever they are;
// what they do not take at once is lost. To be called before any file is opened.
void openOutputs();

// Opens the log file for appending; one larger than 100 MiB is deleted first. One
// that cannot be opened, or is no regular file, leaves the other two outlets.
void openLogFile(const QString &path);
void closeLogFile();
void installLogHandler();
