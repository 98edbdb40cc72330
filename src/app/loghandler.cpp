#include "app/loghandler.h"

#include <QDateTime>
#include <QFile>
#include <QTextStream>

#include <iostream>

namespace {

constexpr qint64 kMaxLogSize = 104857600; // bytes

QFile s_logFile;
QTextStream s_stream(&s_logFile);
QtMessageHandler s_lastHandler = nullptr;

QString line(QtMsgType type, const QString &message)
{
    return QStringLiteral("Message(") + QString::number(type) + QStringLiteral(") at ")
        + QDateTime::currentDateTimeUtc().toString(Qt::ISODate) + QStringLiteral(": ") + message;
}

} // namespace

void qDebugHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    Q_UNUSED(context)
    if (type >= QtInfoMsg)
        return;
    if (s_logFile.isOpen()) {
        s_stream << line(type, message) << '\n';
        s_stream.flush();
        // After a refused line the stream would take no other, only gather them.
        s_stream.resetStatus();
    }
    // Line feed before carriage return: readers of this output split on it.
    std::cout << line(type, message).toUtf8().constData() << "\n\r" << std::flush;
    if (s_lastHandler)
        s_lastHandler(type, QMessageLogContext(), message);
}

void openLogFile(const QString &path)
{
    s_logFile.setFileName(path);
    if (s_logFile.size() > kMaxLogSize)
        s_logFile.remove();
    s_stream.setCodec("UTF-8");
    // Without a buffer: what a full disk refuses is lost, not kept in memory.
    if (s_logFile.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        s_logFile.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
}

void closeLogFile()
{
    s_logFile.close();
}

void installLogHandler()
{
    s_lastHandler = qInstallMessageHandler(qDebugHandler);
}
