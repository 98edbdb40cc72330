// calltrials CLIENT [CLIENTS [CALL...]]: lists the system calls with which the client brings a minute from its end to
// the deletion of its record, and lets each of them kill the client or fail, in a minute of its own; starts
// the client again and compares the journal with what the service has accepted and with the counters. Prints
// a table. So many CLIENTS work at a time.
#include "calltrace.h"
#include "fastclient.h"
#include "files.h"
#include "storage/journalreader.h"

#include <cstdio>
#include <deque>
#include <mutex>
#include <numeric>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr int kSpeed = 40;
constexpr std::chrono::milliseconds kMinute = 60000ms / kSpeed;
constexpr auto kLead = 200ms; // strace comes so long before the minute's end
constexpr auto kSettling = 600ms; // after it
constexpr auto kPatience = 15s;
constexpr int kAttempts = 8;
constexpr int kFewPlaces = 4; // of a call that does not concern the minute
const QString kKill = s("KILL");
const QStringList kErrors{s("EIO"), s("ENOSPC"), s("EINTR")};
const QStringList kFaults = QStringList{kKill} + kErrors;

struct Trial
{
    Call call;
    int place = 0; // of such calls in the minute, from 1
    int before = 0; // what strace counts before the minute
    int within = 0; // and from there to this call
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

enum class Outcome { Kept, NotCounted, SentTwice, Failed, Missed };

// What strace counts: by name, of a file that it is told to watch along with the journal.
int countedBy(const Call &call, const CallTrace &trace, int from, int to)
{
    return static_cast<int>(
        std::count_if(trace.calls.cbegin() + from, trace.calls.cbegin() + to, [&call](const Call &each) {
            return each.isMain == call.isMain && each.name == call.name
                && (call.path.isEmpty() || each.path == call.path || each.file == s("journal"));
        }));
}

struct Result
{
    Outcome outcome = Outcome::Missed;
    Call call;
    int place = 0;
    QString text; // of a failure
    int before = -1; // what strace has counted before the minute, if known
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
        trace(s("-f"), {}, mainThread());
        const CallTrace::Threads threads{mainThread(), networkThread()};
        endClient();
        return CallTrace::read(tracePath(), m_client.room.path(), threads);
    }

    Result run(const Trial &trial)
    {
        if (!isSettled())
            return {Outcome::Failed, trial.call, trial.place, s("no minute without a fault")};
        const State before = look();
        const bool kills = trial.fault == kKill;
        QStringList options{s("-e"),
                            s("inject=%1:%2=%3:when=%4")
                                .arg(trial.call.name, s(kills ? "signal" : "error"), trial.fault)
                                .arg(trial.before + trial.within)};
        if (!trial.call.path.isEmpty())
            options += QStringList{s("-P"), m_client.room.path(trial.call.path), s("-P"),
                                   Journal::files(m_client.room.ofUser(QString())).value(0)};
        trace(QString(), options, trial.call.isMain ? mainThread() : networkThread());
        const bool endedByItself = !m_client.isRunning();
        endClient();
        const State atEnd = look();
        CallTrace calls = CallTrace::read(tracePath(), m_client.room.path(), {});
        for (Call &call : calls.calls)
            call.isMain = trial.call.isMain;
        const int hit = calls.faulty();
        if (hit < 0 || (trial.call.isMain && (calls.begin() < 0 || hit < calls.begin()))
            || (!trial.call.isMain && atEnd.counted == before.counted)
            || (calls.end() >= 0 && hit >= calls.end())) {
            Result missed;
            if (calls.begin() >= 0)
                missed.before = countedBy(trial.call, calls, 0, calls.begin());
            return missed;
        }
        Result result{Outcome::Failed, calls.calls.at(hit), calls.countUpTo(hit, calls.begin()), {}};
        if (!trial.call.isMain)
            result.place = trial.place;
        else
            result.before = countedBy(trial.call, calls, 0, calls.begin());
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
        judge(before, after, mayBeUncounted, atEnd.received > before.received, &result);
        if (!hasSettled)
            result = {Outcome::Failed, result.call, result.place, s("not delivered: ") + result.text};
        return result;
    }

private:
    static void judge(const State &before, const State &after, bool mayBeUncounted, bool wasAnswered,
                      Result *result)
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

    // From shortly before the next minute's end until it is past, or the client has ended.
    void trace(const QString &mode, const QStringList &options, qint64 thread)
    {
        // The next report needs a new connection.
        m_client.room.server.stop();
        m_client.room.server.start();
        m_client.ends(kMinute - kLead - std::chrono::milliseconds(m_minuteAt.elapsed()));
        QProcess strace;
        strace.setStandardErrorFile(m_client.room.path(s("strace")));
        QStringList arguments{s("-yy"), s("-s"), s("1"), s("-o"), tracePath()};
        arguments += options + QStringList{s("-p"), QString::number(thread)};
        if (!mode.isEmpty())
            arguments.prepend(mode);
        QFile::remove(tracePath());
        strace.start(s("strace"), arguments);
        strace.waitForStarted();
        m_client.ends(kLead + kSettling);
        strace.terminate();
        strace.waitForFinished();
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

    QString tracePath() const { return m_client.room.path(s("trace")); }

    QString m_program;
    FastClient m_client{{0, {}, false}, kSpeed, kMinute / 10, 50};
    QDateTime m_clock{QDate(2026, 3, 2), QTime(6, 0)};
    QElapsedTimer m_running;
    QElapsedTimer m_minuteAt;
    int m_runs = 0;
    int m_minutes = 0; // of this run
};

// Whether it may fail: memory, clock and threads of a process do not, and without an X server it ends.
bool canFail(const Call &call)
{
    static const QStringList only{s("process"), s("event loop"), s("X server")};
    return !only.contains(call.file) && !call.name.startsWith(s("getsockname"));
}

bool isOfMinute(const Call &call)
{
    return call.file.contains(s("journal")) || call.file.contains(s("record"))
        || call.file.contains(s("session.ini")) || call.name == s("connect");
}

std::deque<Trial> plan(const CallTrace &trace)
{
    std::deque<Trial> trials;
    for (int i = trace.begin(); i < trace.end(); ++i) {
        const Call &call = trace.calls.at(i);
        const int place = trace.countUpTo(i, trace.begin());
        const int all = static_cast<int>(
            std::count_if(trace.calls.cbegin() + trace.begin(), trace.calls.cbegin() + trace.end(),
                          [&call](const Call &each) { return each.isLike(call); }));
        const bool isOneOfFew = place == 1 || place == (all + 1) / 2 || place == all;
        if (!isOfMinute(call) && all > kFewPlaces && !isOneOfFew)
            continue;
        for (const QString &fault : kFaults) {
            if (fault == kKill || canFail(call))
                trials.push_back({call, place, countedBy(call, trace, 0, trace.begin()),
                                  countedBy(call, trace, trace.begin(), i + 1), fault, 0});
        }
    }
    return trials;
}

// The outcomes, in the order of the calls.
class Table final
{
public:
    explicit Table(const CallTrace &trace)
    {
        for (int i = trace.begin(); i < trace.end(); ++i)
            rowOf(trace.calls.at(i)).places += 1;
    }

    void add(const Result &result, const QString &fault)
    {
        const std::lock_guard lock(m_mutex);
        ++rowOf(result.call).outcomes[fault][result.outcome];
        ++m_sums[result.outcome];
        if (result.outcome == Outcome::Failed)
            std::printf("FAILED: %s at %s of %s, place %d: %s\n", qPrintable(fault),
                        qPrintable(result.call.name), qPrintable(result.call.file), result.place,
                        qPrintable(result.text));
        const int all = std::accumulate(m_sums.cbegin(), m_sums.cend(), 0);
        if (all % 50 == 0)
            std::printf("%d trials\n", all);
        std::fflush(stdout);
    }

    void print() const
    {
        std::puts("| Thread | Call | On | Places | Killed | EIO | ENOSPC | EINTR "
                  "|\n|---|---|---|---|---|---|---|---|");
        for (const Row &row : m_rows) {
            QStringList cells{s(row.call.isMain ? "main" : "network"), row.call.name, row.call.file,
                              QString::number(row.places)};
            for (const QString &fault : kFaults)
                cells += textOf(row.outcomes.value(fault));
            std::printf("| %s |\n", qPrintable(cells.join(s(" | "))));
        }
        std::printf("%s; %d not reached\n", qPrintable(textOf(m_sums)), m_sums.value(Outcome::Missed));
    }

    bool isGood() const
    {
        return m_sums.value(Outcome::Failed) == 0
            && m_sums.value(Outcome::Missed) * 50 < m_sums.value(Outcome::Kept);
    }

private:
    using Outcomes = QMap<Outcome, int>;
    struct Row
    {
        Call call;
        int places = 0;
        QMap<QString, Outcomes> outcomes; // by fault
    };

    Row &rowOf(const Call &call)
    {
        for (Row &row : m_rows) {
            if (row.call.isLike(call))
                return row;
        }
        m_rows.push_back({call, 0, {}});
        return m_rows.back();
    }

    static QString textOf(const Outcomes &outcomes)
    {
        static const QMap<Outcome, QString> words{{Outcome::Kept, s("kept")},
                                                  {Outcome::NotCounted, s("not counted")},
                                                  {Outcome::SentTwice, s("twice")},
                                                  {Outcome::Failed, s("FAILED")}};
        QStringList texts;
        for (auto each = outcomes.cbegin(); each != outcomes.cend(); ++each) {
            if (words.contains(each.key()))
                texts += s("%1 %2").arg(each.value()).arg(words.value(each.key()));
        }
        return texts.isEmpty() ? s("-") : texts.join(s(", "));
    }

    std::mutex m_mutex;
    std::deque<Row> m_rows;
    Outcomes m_sums;
};

// Works through the trials that are left.
void work(const QString &program, std::deque<Trial> *trials, std::mutex *taking, Table *table)
{
    Bench bench(program);
    while (true) {
        Trial trial;
        {
            const std::lock_guard lock(*taking);
            if (trials->empty())
                return;
            trial = trials->front();
            trials->pop_front();
        }
        const Result result = bench.run(trial);
        const bool isHit = result.outcome != Outcome::Missed;
        const bool isDone = isHit && result.call.isLike(trial.call)
            && (result.place == trial.place || !isOfMinute(trial.call));
        if (isHit || ++trial.attempts >= kAttempts)
            table->add(result, trial.fault);
        if (isDone || trial.attempts >= kAttempts)
            continue;
        trial.attempts += isHit ? 1 : 0;
        trial.before = result.before >= 0 ? result.before : trial.before + 1;
        const std::lock_guard lock(*taking);
        trials->push_back(trial);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QString program = QCoreApplication::arguments().value(1);
    const int clients = QCoreApplication::arguments().value(2, s("4")).toInt();
    const QStringList only = QCoreApplication::arguments().mid(3);
    const CallTrace trace = Bench(program).record();
    if (trace.begin() < 0 || trace.end() < 0)
        qFatal("strace has not seen a minute");
    std::deque<Trial> trials = plan(trace);
    if (!only.isEmpty())
        trials.erase(std::remove_if(trials.begin(), trials.end(),
                                    [&only](const Trial &trial) {
                                        return !only.contains(trial.call.name + QLatin1Char(':')
                                                              + trial.call.file);
                                    }),
                     trials.end());
    std::printf("%d calls in a minute, %d trials\n", trace.end() - trace.begin(),
                static_cast<int>(trials.size()));
    std::mutex taking;
    Table table(trace);
    std::vector<std::unique_ptr<QThread>> workers;
    for (int i = 0; i < clients; ++i) {
        workers.emplace_back(QThread::create([&] { work(program, &trials, &taking, &table); }));
        workers.back()->start();
    }
    for (const auto &worker : workers)
        worker->wait();
    table.print();
    return table.isGood() ? 0 : 1;
}
