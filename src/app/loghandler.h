#pragma once

#include <QString>
#include <QtGlobal>

// Writes debug, warning, critical and fatal messages to the log file, to
// standard output and to the handler that was there before; info messages are
// dropped.
void qDebugHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

// Makes standard output and errors non-blocking, whatever they are; what cannot be written
// at once is lost. To be called before any file is opened.
void openOutputs();

// Opens the log file for appending; one larger than 100 MiB is deleted first. Without a
// regular file that can be opened, messages go to the other two outlets only.
void openLogFile(const QString &path);
void closeLogFile();
void installLogHandler();
