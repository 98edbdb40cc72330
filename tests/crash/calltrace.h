#pragma once

#include "texts.h"

#include <QFile>
#include <QRegularExpression>
#include <QVector>

#include <algorithm>

// A system call in the words of strace.
struct Call
{
    QString name;
    QString file; // what it works on, in words
    bool isMain = true; // of the thread that counts
    bool isFaulty = false;

    bool isLike(const Call &other) const
    {
        return isMain == other.isMain && name == other.name && file == other.file;
    }
};

// What strace has written of one minute.
class CallTrace final
{
public:
    // Ids of the client's main thread and of the one for the network. 0 for the only one of a trace, that
    // names none.
    struct Threads
    {
        qint64 main = 0;
        qint64 network = 0;
    };

    static CallTrace read(const QString &path, const QString &room, Threads threads, bool isOpen = true)
    {
        static const QRegularExpression call(s("^(?:(\\d+) +)?(\\w+)\\((.*)$"));
        CallTrace trace;
        if (isOpen)
            trace.calls.append({s("openat"), s("journal"), true, false});
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        while (!file.atEnd()) {
            const QString line = QString::fromUtf8(file.readLine());
            const auto found = call.match(line);
            if (line.contains(s("+++ killed")) && !trace.calls.isEmpty())
                trace.calls.last().isFaulty = true;
            if (!found.hasMatch() || found.captured(2) == s("restart_syscall"))
                continue;
            Call made;
            made.name = found.captured(2);
            const qint64 thread = found.captured(1).toLongLong();
            if (thread != 0 && thread != threads.main && thread != threads.network)
                continue;
            made.isMain = thread == threads.main;
            made.isFaulty = line.contains(s("(INJECTED)"));
            describe(found.captured(3), room, &made);
            trace.calls.append(made);
        }
        return trace;
    }

    // After the record's deletion and one call more, at which a kill finds it done.
    int end() const
    {
        const int deleted = indexOf([](const Call &call) {
            return call.isMain && call.name == s("unlink") && call.file == s("record");
        });
        return deleted < 0 ? -1 : std::min(deleted + 2, calls.size());
    }

    int faulty() const
    {
        return indexOf([](const Call &call) { return call.isFaulty; });
    }

    // How many of such calls there are up to and with this one.
    int countUpTo(int last) const
    {
        return static_cast<int>(std::count_if(calls.cbegin(), calls.cbegin() + last + 1,
                                              [&](const Call &call) { return call.isLike(calls.at(last)); }));
    }

    QVector<Call> calls;

private:
    template <typename Condition>
    int indexOf(Condition condition) const
    {
        const auto found = std::find_if(calls.cbegin(), calls.cend(), condition);
        return found == calls.cend() ? -1 : static_cast<int>(found - calls.cbegin());
    }

    static void describe(const QString &arguments, const QString &room, Call *call)
    {
        // The first that is found.
        static const QVector<QPair<QRegularExpression, QString>> files{
            {QRegularExpression(s("/activity/|/activity\", O_[^)]*O_TMPFILE")), s("record")},
            {QRegularExpression(s("/activity[\">]")), s("folder of the records")},
            {QRegularExpression(s("/journal/")), s("journal")},
            {QRegularExpression(s("/\\.new-session\\.ini\\.lock")), s("lock of the new session.ini")},
            {QRegularExpression(s("/\\.new-session\\.ini|/#\\d+>|O_TMPFILE")), s("new session.ini")},
            {QRegularExpression(s("/session\\.ini")), s("session.ini")},
            {QRegularExpression(s("\\.ini")), s("other settings")},
            {QRegularExpression(s("/\\.orvana/[^/]+@[^/]+[\">]")), s("the user's folder")},
            {QRegularExpression(s("/\\.orvana/lock")), s("lock of the storage folder")},
            {QRegularExpression(s("/\\.orvana/update\\.json")), s("update.json")},
            {QRegularExpression(s("/\\.orvana/log\\.log")), s("log")},
            {QRegularExpression(s("/\\.orvana[\">]")), s("storage folder")},
            {QRegularExpression(s("eventfd")), s("event loop")},
            {QRegularExpression(s("TCP")), s("connection")},
            {QRegularExpression(s("UNIX")), s("X server")},
            {QRegularExpression(s("/output>|/dev/null|<pipe")), s("terminal")},
            {QRegularExpression(s("[\"<]/")), s("files of the system")}};
        const QString own = QString(arguments).replace(s("AT_FDCWD<%1>").arg(room), QString());
        call->file = s("process");
        for (const auto &each : files) {
            if (!own.contains(each.first))
                continue;
            call->file = each.second;
            break;
        }
    }
};
