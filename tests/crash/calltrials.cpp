// calltrials CLIENT [CLIENTS [CALL...]]: lists the system calls with which the client brings a minute from
// its end to the deletion of its record, and lets each of them kill the client or fail, in a minute of its
// own; starts the client again and compares the journal with what the service has accepted and with the
// counters. Prints a table. So many CLIENTS work at a time.
#include "callbench.h"

#include <cstdio>
#include <deque>
#include <mutex>
#include <numeric>
#include <vector>

namespace {

constexpr int kAttempts = 4;
constexpr int kFewPlaces = 4; // of a call that does not concern the minute
const QStringList kFaults{kKill, s("EIO"), s("ENOSPC"), s("EINTR")};

// Whether it may fail: memory, clock and threads of a process do not, and without an X server it ends.
bool canFail(const Call &call)
{
    static const QStringList only{s("process"), s("event loop"), s("X server")};
    return !only.contains(call.file) && !call.name.startsWith(s("getsockname"));
}

bool isOfMinute(const Call &call)
{
    return call.file.contains(s("journal")) || call.file.contains(s("record"))
        || (call.file.contains(s("session.ini")) && call.name != s("statx") && call.name != s("access"))
        || call.name == s("connect");
}

std::deque<Trial> plan(const CallTrace &trace)
{
    std::deque<Trial> trials;
    for (int i = 0; i < trace.end(); ++i) {
        const Call &call = trace.calls.at(i);
        const int place = trace.countUpTo(i);
        const auto isCounted = [&call](const Call &each) {
            return each.isMain == call.isMain && each.name == call.name
                && (call.file != s("journal") || each.file == call.file);
        };
        const auto first = trace.calls.cbegin() + 1; // after the opening
        const auto when = i == 0 ? 0 : std::count_if(first, first + i, isCounted);
        const auto all = std::count_if(trace.calls.cbegin(), trace.calls.cbegin() + trace.end(),
                                       [&call](const Call &each) { return each.isLike(call); });
        const bool isOneOfFew = place == 1 || place == (all + 1) / 2 || place == all;
        if (!isOfMinute(call) && all > kFewPlaces && !isOneOfFew)
            continue;
        for (const QString &fault : kFaults) {
            if (fault == kKill || canFail(call))
                trials.push_back({call, place, static_cast<int>(when), fault, 0});
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
        for (int i = 0; i < trace.end(); ++i)
            rowOf(trace.calls.at(i)).places += 1;
    }

    void add(const Result &result, const QString &fault)
    {
        const std::lock_guard lock(m_mutex);
        if (result.outcome != Outcome::Missed)
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
            && m_sums.value(Outcome::Missed) * 20 < m_sums.value(Outcome::Kept);
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
                                                  {Outcome::InGap, s("in a gap")},
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
        const bool isDone = isHit
            && ((result.call.isLike(trial.call) && result.place == trial.place) || !trial.call.isMain
                || !isOfMinute(trial.call));
        if (isHit || ++trial.attempts >= kAttempts)
            table->add(result, trial.fault);
        if (isDone || trial.attempts >= kAttempts)
            continue;
        trial.attempts += isHit ? 1 : 0;
        const std::lock_guard lock(*taking);
        trials->push_back(trial);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QString program = QDir().absoluteFilePath(QCoreApplication::arguments().value(1));
    const int clients = QCoreApplication::arguments().value(2, s("4")).toInt();
    const QStringList only = QCoreApplication::arguments().mid(3);
    CallTrace trace;
    for (int attempt = 0; attempt < kAttempts && trace.end() < 0; ++attempt)
        trace = Bench(program).record();
    if (trace.end() < 0)
        qFatal("strace has not seen a minute");
    std::deque<Trial> trials = plan(trace);
    if (!only.isEmpty())
        trials.erase(std::remove_if(trials.begin(), trials.end(),
                                    [&only](const Trial &trial) { return !only.contains(trial.call.name); }),
                     trials.end());
    std::printf("%d calls in a minute, %d trials\n", trace.end(), static_cast<int>(trials.size()));
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
