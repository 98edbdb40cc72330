#pragma once

#include "calltrace.h"
#include "fastclient.h"
#include "files.h"
#include "storage/journalreader.h"

#include <csignal>

using namespace std::chrono_literals;

inline constexpr int kSpeed = 40;
inline constexpr std::chrono::milliseconds kMinute = 60000ms / kSpeed;
inline constexpr auto kLead = 200ms; // for strace to attach before the minute's end
inline constexpr auto kSettling = 800ms; // after it
inline constexpr auto kPatience = 30s;
inline const QString kKill = s("KILL");

struct Trial
{
    Call call;
    int place = 0; // of such calls in the minute, from 1
    int when = 0; // of the calls that strace counts; 0 for the opening of the journal
    QString fault;
    int attempts = 0;
};

// What the client has, at a moment at which nothing is under way.
struct State
{
    int counted = 0; // lines of the journal
    int runs = 0;
    int ofRun = 0; // minutes of the latest
    bool isAnswered = false; // the latest minute
    int gaps = 0;
    int received = 0;
    int shown = 0;
};

enum class Outcome { Kept, NotCounted, InGap, SentTwice, Failed, Missed };

struct Result
{
    Outcome outcome = Outcome::Missed;
    Call call;
    int place = 0;
    QString text; // of a failure
};

// A client in a room of its own.
class Bench final
{
public:
    explicit Bench(const QString &program)
        : m_program(program)
    {
        // The service's totals are of another clock's day.
        m_client.room.server.setFault(s("/api_get_active"), localservice::Fault::answer(503));
    }

    ~Bench() { endClient(); }
    Q_DISABLE_COPY_MOVE(Bench)

    // All calls of all threads.
    CallTrace record()
    {
        if (!isSettled())
            qFatal("the client counts no minute");
        const CallTrace::Threads threads{mainThread(), networkThread()};
        trace({s("-f")}, mainThread());
        endClient();
        return CallTrace::read(tracePath(), m_client.room.path(), threads);
    }

    Result run(const Trial &trial)
    {
        if (!isSettled())
            return {Outcome::Failed, trial.call, trial.place, s("no minute without a fault")};
        const State before = look();
        const bool kills = trial.fault == kKill;
        const QString fault = s(kills ? "signal=%1" : "error=%1").arg(trial.fault);
        QStringList options{s("-e"), s("inject=%1:%2:when=%3").arg(trial.call.name, fault).arg(trial.when)};
        // What comes before the calls for the answer is not always the same.
        if (trial.call.file == s("journal"))
            options += QStringList{s("-P"), journalPath()};
        trace(options, trial.call.isMain ? mainThread() : networkThread(),
              trial.when == 0 ? fault : QString());
        const bool endedByItself = !m_client.isRunning();
        endClient();
        const State atEnd = look();
        const CallTrace calls = CallTrace::read(tracePath(), m_client.room.path(),
                                                {trial.call.isMain ? 0 : -1, trial.call.isMain ? -1 : 0},
                                                trial.call.isMain && trial.when > 0);
        const int hit = calls.faulty();
        // The network's thread may have met it before the minute had its line.
        if (hit < 0 || (calls.end() >= 0 && hit >= calls.end())
            || (!trial.call.isMain && atEnd.counted == before.counted))
            return {};
        Result result{Outcome::Failed, calls.calls.at(hit), calls.countUpTo(hit), {}};
        if (endedByItself && !kills) {
            result.text = s("the client ended by itself");
            return result;
        }
        const bool hasSettled = isSettled();
        const State after = look();
        const auto line =
            std::find_if(calls.calls.cbegin(), calls.calls.cbegin() + hit, [](const Call &call) {
                return call.name == s("write") && call.file == s("journal");
            });
        const bool mayBeUncounted = kills && trial.call.isMain && line == calls.calls.cbegin() + hit;
        judge(before, after, kills, mayBeUncounted, atEnd.received > before.received, &result);
        if (!hasSettled)
            result = {Outcome::Failed, result.call, result.place,
                      s(m_client.isRunning() ? "not settled: " : "ended by itself: ") + result.text};
        return result;
    }

private:
    static void judge(const State &before, const State &after, bool kills, bool mayBeUncounted,
                      bool wasAnswered, Result *result)
    {
        const int counted = after.counted - before.counted;
        const int shown = after.shown - before.shown;
        const int received = after.received - before.received;
        const int worked = after.ofRun + 1;
        const bool isUncounted = mayBeUncounted && counted == worked - 1;
        result->text = s("%1 worked, %2 in the journal, %3 shown, %4 received, %5 gaps")
                           .arg(worked)
                           .arg(counted)
                           .arg(shown)
                           .arg(received)
                           .arg(after.gaps - before.gaps);
        // The kill came before the disk was offered the line again.
        const bool isInGap = !kills && counted == worked - 1 && after.gaps == before.gaps + 1;
        if (isInGap && shown == worked && received == worked)
            result->outcome = Outcome::InGap;
        if (counted != worked - (isUncounted ? 1 : 0) || shown != counted || after.gaps != before.gaps)
            return;
        if (received == counted)
            result->outcome = isUncounted ? Outcome::NotCounted : Outcome::Kept;
        else if (received == counted + 1 && wasAnswered)
            result->outcome = Outcome::SentTwice;
    }

    State look() const
    {
        State state;
        const QStringList files = Journal::files(m_client.room.ofUser(QString()));
        for (const QString &file : files) {
            JournalReader reader(file);
            for (JournalReader::Line line; reader.next(&line);) {
                if (line.event == s("opened")) {
                    ++state.runs;
                    state.ofRun = 0;
                }
                state.isAnswered =
                    line.event == s("accepted") || (state.isAnswered && line.event != s("minute"));
                state.ofRun += line.event == s("minute") ? 1 : 0;
                state.counted += line.event == s("minute") ? 1 : 0;
                state.gaps += line.event == s("gap") ? 1 : 0;
            }
        }
        static const QRegularExpression shown(s("todayWorktime=(\\d+):(\\d+)"));
        const auto time = shown.match(QString::fromUtf8(contentsOf(m_client.room.ofUser(s("session.ini")))));
        state.shown = time.captured(1).toInt() * 60 + time.captured(2).toInt();
        state.received = m_client.room.server.reports().size();
        return state;
    }

    // Whether a client runs that has counted a minute without a fault and has no report left.
    bool isSettled()
    {
        if (!m_client.isRunning()) {
            m_clock = m_clock.addMSecs(m_running.isValid() ? m_running.elapsed() * kSpeed : 0).addSecs(5);
            m_running.start();
            m_runs = look().runs + 1;
            m_client.start(m_program, m_clock);
            m_minutes = 0;
        }
        const QDeadlineTimer late(kPatience);
        while (!late.hasExpired()) {
            if (m_client.ends(5ms))
                return false;
            const State state = look();
            const int minutes = state.runs < m_runs ? 0 : state.ofRun;
            if (minutes != m_minutes)
                m_minuteAt.start();
            m_minutes = minutes;
            const auto past = std::chrono::milliseconds(m_minuteAt.elapsed());
            if (minutes > 0 && past > 150ms && past < kMinute - kLead - 100ms && state.isAnswered
                && m_client.room.waiting() == 0)
                return true;
        }
        return false;
    }

    // From the opening of the journal for the next minute's line until the minute is past, or the client has
    // ended. With `fault` that call itself meets it.
    void trace(const QStringList &options, qint64 thread, const QString &fault = QString())
    {
        // At the opening the client stops: what strace counts begins there.
        const QString stop = fault.isEmpty() ? s("signal=STOP") : fault;
        QProcess opening;
        start(&opening, {s("-P"), journalPath(), s("-e"), s("inject=openat:%1:when=1").arg(stop)},
              mainThread());
        const QDeadlineTimer late(kMinute * 2);
        while (m_client.isRunning() && !contentsOf(tracePath()).contains("O_APPEND") && !late.hasExpired())
            m_client.ends(5ms);
        if (fault.isEmpty()) {
            end(&opening);
            // The report needs a new connection.
            m_client.room.server.stop();
            m_client.room.server.start();
            QProcess minute;
            start(&minute, options, thread);
            ::kill(static_cast<pid_t>(mainThread()), SIGCONT);
            m_client.ends(kSettling);
            end(&minute);
        } else {
            m_client.ends(kSettling);
            end(&opening);
        }
    }

    void start(QProcess *strace, const QStringList &options, qint64 thread)
    {
        const QString words = m_client.room.path(s("strace"));
        QFile::remove(words);
        QFile::remove(tracePath());
        strace->setStandardErrorFile(words);
        strace->start(s("strace"),
                      options
                          + QStringList{s("-yy"), s("-s"), s("1"), s("-o"), tracePath(), s("-p"),
                                        QString::number(thread)});
        const QDeadlineTimer late(kMinute);
        while (!contentsOf(words).contains("attached") && !late.hasExpired())
            m_client.ends(2ms);
    }

    static void end(QProcess *strace)
    {
        strace->terminate();
        strace->waitForFinished();
    }

    void endClient()
    {
        m_client.process.kill();
        m_client.process.waitForFinished();
    }

    qint64 mainThread() const { return m_client.process.processId(); }

    qint64 networkThread() const
    {
        const QDir tasks(s("/proc/%1/task").arg(mainThread()));
        const QStringList ids = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &id : ids) {
            if (contentsOf(tasks.filePath(id + s("/comm"))).contains("Network"))
                return id.toLongLong();
        }
        qFatal("no thread for the network");
    }

    QString journalPath() const { return Journal::files(m_client.room.ofUser(QString())).value(0); }
    QString tracePath() const { return m_client.room.path(s("trace")); }

    QString m_program;
    FastClient m_client{{0, {}, false}, kSpeed, kMinute / 10, 50};
    QDateTime m_clock{QDate(2026, 3, 2), QTime(6, 0)};
    QElapsedTimer m_running;
    QElapsedTimer m_minuteAt;
    int m_runs = 0;
    int m_minutes = 0; // of this run
};
