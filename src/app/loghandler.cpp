#include "app/loghandler.h"

#include <QDateTime>
#include <QFile>
#include <QTextStream>

#include <algorithm>
#include <iostream>
#include <mutex>

#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr qint64 kMaxLogSize = 104857600; // bytes
constexpr int kReaderPatience = 200; // ms
constexpr int kWidestCharacter = 3; // bytes

std::mutex s_mutex; // the network's thread has messages, too
QFile s_logFile;
QTextStream s_stream(&s_logFile);
QtMessageHandler s_lastHandler = nullptr;

QString line(QtMsgType type, const QString &message)
{
    return QStringLiteral("Message(") + QString::number(type) + QStringLiteral(") at ")
        + QDateTime::currentDateTimeUtc().toString(Qt::ISODate) + QStringLiteral(": ") + message;
}

// Whoever reads an output may stop without closing it, as a terminal does that was
// told to stand still. What he does not take is lost: the clocks do not wait for him.
class Output final
{
public:
    explicit Output(int descriptor)
        : m_descriptor(descriptor)
    { }

    bool takesMore()
    {
        pollfd state = {m_descriptor, POLLOUT, 0};
        m_isStuck = poll(&state, 1, m_isStuck ? 0 : kReaderPatience) == 0;
        return !m_isStuck;
    }

    // A pipe that takes something need not take all at once.
    bool takes(int size)
    {
        if (!takesMore())
            return false;
        int unread = 0;
        const int room = fcntl(m_descriptor, F_GETPIPE_SZ);
        return room < 0 || ioctl(m_descriptor, FIONREAD, &unread) != 0 || unread == 0
            || size < (room - unread) / 2;
    }

private:
    int m_descriptor;
    bool m_isStuck = false;
};

Output s_standardOutput(STDOUT_FILENO);
Output s_errorOutput(STDERR_FILENO);

void print(const QByteArray &text)
{
    // As much as a pipe takes at once when it takes anything.
    for (int at = 0; at < text.size() && s_standardOutput.takesMore(); at += PIPE_BUF)
        std::cout.write(text.constData() + at, std::min(PIPE_BUF, text.size() - at)).flush();
    std::cout.clear();
}

} // namespace

void qDebugHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    Q_UNUSED(context)
    if (type >= QtInfoMsg)
        return;
    const std::lock_guard lock(s_mutex);
    if (s_logFile.isOpen()) {
        s_stream << line(type, message) << '\n';
        s_stream.flush();
        // After a refused line the stream would take no other, only gather them.
        s_stream.resetStatus();
    }
    // Line feed before carriage return: readers of this output split on it.
    print(line(type, message).toUtf8().constData() + QByteArrayLiteral("\n\r"));
    if (s_lastHandler && s_errorOutput.takes(message.size() * kWidestCharacter))
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
