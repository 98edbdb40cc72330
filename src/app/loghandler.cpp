#include "app/loghandler.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kMaxLogSize = 104857600; // bytes
constexpr size_t kLongestErrorLine = 64 * 1024;
constexpr char kNullDevice[] = "/dev/null";

std::mutex s_mutex; // the network's thread logs too
QFile s_logFile;
QtMessageHandler s_lastHandler = nullptr;

QString line(QtMsgType type, const QString &message)
{
    return QStringLiteral("Message(") + QString::number(type) + QStringLiteral(") at ")
        + QDateTime::currentDateTimeUtc().toString(Qt::ISODate) + QStringLiteral(": ") + message;
}

// Standard output or errors. Their reader may pause without closing them, as a terminal
// does after Ctrl+S. Lines that cannot be written at once are lost.
class Output final
{
public:
    explicit Output(int descriptor)
        : m_descriptor(descriptor)
    { }

    void makeNonBlocking()
    {
        struct stat state = {};
        if (fstat(m_descriptor, &state) != 0)
            return;
        m_isSocket = S_ISSOCK(state.st_mode);
        if (!S_ISFIFO(state.st_mode) && !isatty(m_descriptor))
            return;
        // A second description: on the first one the flag would apply to the shell too.
        const QByteArray path = "/proc/self/fd/" + QByteArray::number(m_descriptor);
        int own = open(path.constData(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        // As another user's terminal, after su.
        if (own < 0)
            own = open(kNullDevice, O_WRONLY | O_CLOEXEC);
        if (own < 0)
            return;
        dup2(own, m_descriptor);
        close(own);
    }

    void print(const std::string &line)
    {
        if (!m_rest.empty())
            m_rest.erase(0, writeNow(m_rest));
        if (!m_rest.empty())
            return;
        if (const size_t size = writeNow(line); size > 0)
            m_rest = line.substr(size);
    }

private:
    size_t writeNow(const std::string &bytes) const
    {
        const ssize_t count = m_isSocket
            ? send(m_descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
            : write(m_descriptor, bytes.data(), bytes.size());
        return static_cast<size_t>(std::max<ssize_t>(count, 0));
    }

    int m_descriptor;
    bool m_isSocket = false;
    std::string m_rest; // of a line that was written in part
};

// Never destroyed: libraries write errors until the very end.
auto &s_standardOutput = *new Output(STDOUT_FILENO);
auto &s_errorOutput = *new Output(STDERR_FILENO);
auto &s_errorLine = *new std::string;

// What `stderr` calls, in pieces of a line.
ssize_t printError(void *, const char *bytes, size_t size)
{
    s_errorLine.append(bytes, size);
    if (size > 0 && (bytes[size - 1] == '\n' || s_errorLine.size() > kLongestErrorLine)) {
        s_errorOutput.print(s_errorLine);
        s_errorLine.clear();
    }
    return static_cast<ssize_t>(size);
}

} // namespace

void qDebugHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    Q_UNUSED(context)
    if (type >= QtInfoMsg)
        return;
    const std::lock_guard lock(s_mutex);
    const QByteArray text = line(type, message).toUtf8();
    if (s_logFile.isOpen())
        s_logFile.write(text + '\n');
    // Line feed before carriage return: readers of this output split on it.
    s_standardOutput.print(std::string(text.constData()) + "\n\r");
    if (s_lastHandler)
        s_lastHandler(type, QMessageLogContext(), message);
}

void openOutputs()
{
    // A file or connection that is opened later would get the number of a closed one, and
    // receive the log.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0)
            open(kNullDevice, O_RDWR);
    }
    s_standardOutput.makeNonBlocking();
    s_errorOutput.makeNonBlocking();
    if (FILE *errors = fopencookie(nullptr, "w", {nullptr, printError, nullptr, nullptr})) {
        setvbuf(errors, nullptr, _IONBF, 0);
        stderr = errors;
    }
}

void openLogFile(const QString &path)
{
    // Opening a pipe would block.
    if (const QFileInfo found(path); found.exists() && !found.isFile())
        return;
    s_logFile.setFileName(path);
    if (s_logFile.size() > kMaxLogSize)
        s_logFile.remove();
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
    // Some distributions and desktops turn all debug messages off.
    QLoggingCategory::setFilterRules(QStringLiteral("orvana.*.debug=true"));
    s_lastHandler = qInstallMessageHandler(qDebugHandler);
}
