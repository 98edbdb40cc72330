// Kills the client again and again, at named places and at any moment, while the
// service fails in every way it knows and somebody starts and stops the timer,
// changes tasks, users and the service's address. Compares what the client counted with
// what arrived, and what it does with what was chosen last:
// crashtrials KILLS [SEED]
#include "ledger.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMap>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <optional>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr int kSpeed = 240; // a minute in a quarter of a second
constexpr auto kPatience = 60s;
constexpr auto kInputPeriod = 10ms;
constexpr int kInputChance = 40; // percent
constexpr auto kShortRun = 1200; // ms
constexpr auto kLongRun = 4000; // ms, so that screenshots fall due
constexpr int kLongestWait = 75000; // ms of the client's time, before a choice
constexpr int kTeamRows = 3;
constexpr int kTaskRows = 8;
constexpr auto kBetweenRuns = 300; // s of the client's time

// Here the service strikes, not the client: the report is accepted and not yet answered.
const QByteArray kAccepted = "accepted";
// The client has handled a click or a key and nothing after it.
const QByteArray kChoiceMade = "choice-made";
const std::array<QByteArray, 12> kPlaces{
    "minute-over",    kChoiceMade, "record-opened",  "record-written", kChoiceMade,      "record-renamed",
    "request-posted", kAccepted,   "reply-received", kChoiceMade,      "before-removal", "record-removed"};

struct Account
{
    QString login;
    QString password;
};

const std::array<Account, 2> kAccounts{
    {{s("anna@orvana.example"), s("orvana")}, {s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я")}}};

// What was chosen in the client; every user's task and timer are kept for the next login.
struct Choices
{
    struct Work
    {
        QString team;
        QString task;
        bool recording = false;
    };

    Work work() const { return users.value(login); }

    // A kind and what belongs to it, as in the journal.
    Choices after(const QStringList &choice) const
    {
        Choices next = *this;
        const QString kind = choice.value(0);
        Work &work = next.users[login];
        if (kind == s("user"))
            next.login = choice.value(1);
        else if (kind == s("task"))
            work = {choice.value(1), choice.value(2), work.recording};
        else
            work.recording = kind == s("start");
        return next;
    }

    QStringList state() const
    {
        return {login, work().team, work().task, work().recording ? s("recording") : s("idle")};
    }

    QString login;
    QMap<QString, Work> users;
};

bool needsService(const QByteArray &place)
{
    return place == kAccepted || place == "reply-received" || place == "before-removal"
        || place == "record-removed";
}

struct Address
{
    localservice::Server *service;
    QString url;
    int reports = 0; // seen
    int screenshots = 0;
};

class Trials final
{
public:
    explicit Trials(quint32 seed)
        : m_random(seed)
        , m_seed(seed)
    {
        localservice::Server::Options options;
        options.recordRequests = false;
        // Called between accepting a report and answering it.
        options.log = [this](const QString &) { receive(); };
        m_client = std::make_unique<FastClient>(options, kSpeed, kInputPeriod, kInputChance);
        m_other = std::make_unique<localservice::Server>(options);
        if (!m_other->start())
            qFatal("no second service");
        localservice::Server &service = m_client->room.server;
        m_addresses = {{&service, service.baseUrl()},
                       {m_other.get(), s("https://LocalHost:%1/").arg(m_other->port())}};
        m_port = service.port();
        m_said = {kAccounts.front().login, {{kAccounts.front().login, {s("17"), s("1702"), true}}}};
        for (const Account &account : kAccounts) {
            const QString folder = m_client->room.stored(account.login + s("/activity"));
            QDir().mkpath(folder);
            m_ledger.watch(account.login, folder);
        }
        QObject::connect(&m_weatherTimer, &QTimer::timeout, &m_weatherTimer, [this] {
            const bool clearsUp = m_weather != Weather::Fine;
            changeWeather(clearsUp ? Weather::Fine
                                   : static_cast<Weather>(1 + below(static_cast<int>(Weather::Count) - 1)));
            m_weatherTimer.start(clearsUp ? 200 + below(600) : 200 + below(1500));
        });
        changeWeather(Weather::Fine);
    }

    Q_DISABLE_COPY_MOVE(Trials)

    bool run(int kills)
    {
        for (int i = 0; i < kills; ++i) {
            if (!m_weatherTimer.isActive())
                m_weatherTimer.start(0);
            // Two of three at a named place, each in its turn.
            if (i % 3 == 2)
                strikeAtRandom();
            else
                strikeAt(kPlaces.at(static_cast<size_t>(i - i / 3) % kPlaces.size()));
            if (i % 100 == 99) {
                std::printf("%d kills, %d counted\n", i + 1, m_ledger.counted());
                std::fflush(stdout);
            }
        }
        return report(kills, drain());
    }

private:
    // The service's totals are of another clock's day; without them the client keeps its own.
    void changeWeather(Weather weather)
    {
        m_weather = weather;
        if (losesReplies(weather))
            m_ledger.repliesGetLost();
        for (Address &address : m_addresses) {
            setWeather(*address.service, weather, m_random);
            address.service->setFault(s("/api_get_active"), localservice::Fault::answer(503));
        }
        if (!losesReplies(weather))
            m_ledger.repliesArrive();
    }

    void receive()
    {
        const std::lock_guard lock(m_receiving);
        m_ledger.readFolder();
        int received = 0;
        for (Address &address : m_addresses)
            received += receiveFrom(address);
        if (received == 0 || m_passesLeft < 0)
            return;
        if ((m_passesLeft -= received) < 0)
            ::kill(static_cast<pid_t>(m_clientId), SIGKILL);
    }

    int receiveFrom(Address &from)
    {
        const auto accept = [this, &from](const auto &record, const QString &rest) {
            const QString booking =
                Ledger::booking(record.email, record.teamId, record.taskId, from.service->port());
            m_ledger.accepted(Ledger::idOf(record.version, booking, rest));
        };
        const auto reports = from.service->reports();
        const auto screenshots = from.service->screenshots();
        const int before = from.reports + from.screenshots;
        for (; from.reports < reports.size(); ++from.reports)
            accept(reports.at(from.reports), QString::number(reports.at(from.reports).active));
        for (; from.screenshots < screenshots.size(); ++from.screenshots) {
            const auto &shot = screenshots.at(from.screenshots);
            // Without its image it is not what was promised.
            accept(shot, shot.jpeg.isEmpty() ? QString() : shot.fileName);
        }
        return from.reports + from.screenshots - before;
    }

    QString choice(const QString &kind)
    {
        const QStringList rows{QString::number(below(kTeamRows)), QString::number(below(kTaskRows))};
        return choice(kind, rows);
    }

    QString choice(const QString &kind, const QStringList &rest)
    {
        return (QStringList{QString::number(below(kLongestWait)), kind} + rest).join(QLatin1Char('\t'));
    }

    QString toUser(const Account &account) { return choice(s("user"), {account.login, account.password}); }

    QStringList someChoices(int count)
    {
        QStringList plan;
        while (plan.size() < count) {
            const int kind = below(3);
            if (kind == 0)
                plan.append(toUser(kAccounts.at(static_cast<size_t>(below(kAccounts.size())))));
            else
                plan.append(choice(kind == 1 ? s("task") : s("press")));
        }
        return plan;
    }

    void startClient(const QByteArray &place, int passes, const QStringList &choices)
    {
        QFile::remove(journalPath());
        const Address &address = m_addresses.at(static_cast<size_t>(below(3)) / 2);
        m_moves += address.service->port() == m_port ? 0 : 1;
        m_port = address.service->port();
        m_passesLeft = place == kAccepted ? passes : -1;
        m_clientTime.start();
        m_counters = counters();
        // Every run begins after the one before it ended, or records would come from the future.
        m_client->start(s(CRASHABLE_CLIENT), m_clientClock,
                        {{s("ORVANA_SERVICE_URL"), address.url},
                         {s("ORVANA_CRASH_JOURNAL"), journalPath()},
                         {s("ORVANA_CRASH_CHOICES"), choices.join(QLatin1Char('\n'))},
                         {s("ORVANA_CRASH_RUN"), QString::number(++m_run)},
                         {s("ORVANA_CRASH_AT"), QString::fromLatin1(place)},
                         {s("ORVANA_CRASH_PASS"), QString::number(passes)}});
        m_clientId = m_client->process.processId();
    }

    void strikeAt(const QByteArray &place)
    {
        if (needsService(place)) {
            m_weatherTimer.stop();
            changeWeather(Weather::Fine);
        }
        const int passes = below(3);
        // A minute passes all other places.
        startClient(place, passes,
                    place == kChoiceMade ? someChoices(passes + 1)
                                         : someChoices(below(3)) << choice(s("start")));
        if (m_client->ends(kPatience))
            ++m_strikes[place];
        else
            fail(place.constData());
        const std::array<QByteArray, 3> beforeTheRecord{"minute-over", "record-opened", "record-written"};
        endOfRun(std::find(beforeTheRecord.begin(), beforeTheRecord.end(), place) != beforeTheRecord.end());
    }

    void strikeAtRandom()
    {
        startClient(QByteArray(), 0, someChoices(below(3)));
        const int length = below(10) == 0 ? kLongRun : kShortRun;
        if (m_client->ends(std::chrono::milliseconds(below(length))))
            fail("the client ended by itself");
        endOfRun(true);
        ++m_strikes["random"];
    }

    // Every user's last client runs until nothing is left over.
    bool drain()
    {
        m_weatherTimer.stop();
        changeWeather(Weather::Fine);
        return std::all_of(kAccounts.cbegin(), kAccounts.cend(),
                           [this](const Account &account) { return drain(account); });
    }

    bool drain(const Account &account)
    {
        QElapsedTimer passed;
        passed.start();
        const auto isLate = [&passed] {
            return passed.elapsed() > std::chrono::milliseconds(kPatience).count();
        };
        while (!isLate()) {
            const int before = m_ledger.counted();
            startClient(QByteArray(), 0, {toUser(account), choice(s("start"))});
            while ((m_ledger.counted() == before || m_ledger.waiting(account.login) > 0) && !isLate()) {
                if (m_client->ends(5ms))
                    fail("the client ended by itself");
            }
            if (!m_client->quit())
                fail("the client did not end well");
            endOfRun(false);
            if (m_ledger.waiting(account.login) == 0)
                return true;
        }
        return false;
    }

    // A minute is counted before it has a record: a kill in between may lose one.
    void endOfRun(bool mayLoseMinute)
    {
        m_passesLeft = -1;
        QProcess &process = m_client->process;
        process.kill();
        process.waitForFinished();
        if (process.exitStatus() == QProcess::CrashExit && process.exitCode() != SIGKILL)
            fail("the client crashed by itself");
        m_clientClock = m_clientClock.addMSecs(m_clientTime.elapsed() * kSpeed).addSecs(kBetweenRuns);
        const QMultiHash<QString, QString> bookings = m_ledger.clientIsGone();
        judgeCounters(bookings, mayLoseMinute);
        judge(bookings);
    }

    struct Counter
    {
        QString date;
        int minutes = 0;
    };

    QMap<QString, Counter> counters() const
    {
        QMap<QString, Counter> read;
        for (const Account &account : kAccounts) {
            const QSettings stored(m_client->room.stored(account.login + s("/session.ini")),
                                   QSettings::IniFormat);
            const QTime time = QTime::fromString(stored.value(s("todayWorktime")).toString(), s("hh:mm:ss"));
            read[account.login] = {stored.value(s("worktimeDate")).toString(), QTime(0, 0).secsTo(time) / 60};
        }
        return read;
    }

    // What each user sees as worked has to grow by the records of this run.
    void judgeCounters(const QMultiHash<QString, QString> &bookings, bool mayLoseMinute)
    {
        const QMap<QString, Counter> now = counters();
        int lost = 0;
        for (const Account &account : kAccounts) {
            const Counter &before = m_counters[account.login];
            const Counter &after = now[account.login];
            if (before.date != after.date)
                continue; // midnight has passed
            QSet<QString> recorded;
            for (auto it = bookings.cbegin(); it != bookings.cend(); ++it) {
                if (it->startsWith(account.login + QLatin1Char('\t')))
                    recorded.insert(it.key());
            }
            const int missing = after.minutes - before.minutes - recorded.size();
            lost += missing;
            m_compared += recorded.size();
            if (missing < 0 || (missing > 0 && lost > (mayLoseMinute ? 1 : 0))) {
                ++m_miscounted;
                complain(s("%1 minutes counted and %2 recorded of %3")
                             .arg(after.minutes - before.minutes)
                             .arg(recorded.size())
                             .arg(account.login));
            }
        }
    }

    // As long as the client has not handled a choice, it may act on it or not.
    void judge(const QMultiHash<QString, QString> &bookings)
    {
        QFile journal(journalPath());
        journal.open(QIODevice::ReadOnly);
        while (!journal.atEnd()) {
            QStringList entry =
                QString::fromUtf8(journal.readLine()).remove(QLatin1Char('\n')).split(QLatin1Char('\t'));
            const QString what = entry.takeFirst();
            if (what == s("asks")) {
                m_asked = m_said.after(entry);
                m_lastAsked = entry.value(0);
            } else if (what == s("minute")) {
                judgeMinute(bookings.values(entry.value(0)));
            } else {
                if (what == s("made")) {
                    m_said = *m_asked;
                    ++m_made[m_lastAsked];
                }
                judgeState(what, entry);
            }
        }
    }

    void judgeState(const QString &when, const QStringList &state)
    {
        if (m_asked && m_asked->state() == state)
            m_said = *m_asked;
        m_asked.reset();
        if (m_said.state() == state)
            return;
        ++m_forgotten;
        complain(
            s("%1 with [%2] and not [%3], last choice: %4")
                .arg(when, state.join(QLatin1Char(' ')), m_said.state().join(QLatin1Char(' ')), m_lastAsked));
        m_said.login = state.value(0);
        m_said.users[m_said.login] = {state.value(1), state.value(2), state.value(3) == s("recording")};
    }

    // The record and perhaps a screenshot; neither when the client died before they were written.
    void judgeMinute(const QStringList &bookings)
    {
        const auto allows = [&](const Choices &choices) {
            const Choices::Work work = choices.work();
            const QString booking = Ledger::booking(choices.login, work.team, work.task, m_port);
            return work.recording && bookings.count(booking) == bookings.size();
        };
        if (allows(m_said) || (m_asked && allows(*m_asked)))
            return;
        ++m_invented;
        complain(s("minute of [%1] and not [%2]")
                     .arg(bookings.join(s("; ")), m_said.state().join(QLatin1Char(' '))));
    }

    QString journalPath() const { return m_client->room.path(s("journal")); }

    void fail(const char *what)
    {
        ++m_complaints;
        QFile output(m_client->room.path(s("output")));
        output.open(QIODevice::ReadOnly);
        complain(s("%1 after %2 ms\n%3")
                     .arg(s(what))
                     .arg(m_clientTime.elapsed())
                     .arg(QString::fromUtf8(output.readAll().right(2000))));
    }

    void complain(const QString &what)
    {
        std::printf("run %d: %s\n", m_run, qPrintable(what));
        std::fflush(stdout);
    }

    bool report(int kills, bool drained)
    {
        const Ledger::Sums sums = m_ledger.sums();
        for (auto it = m_strikes.cbegin(); it != m_strikes.cend(); ++it)
            std::printf("  %-15s %d\n", it.key().constData(), it.value());
        std::printf(
            "%d Starts, %d Stops, %d tasks, %d users chosen, %d changes of address, %d choices forgotten, "
            "%d minutes invented or misbooked, %d compared with the session's counter, %d users miscounted\n",
            m_made[s("start")], m_made[s("stop")], m_made[s("task")], m_made[s("user")], m_moves, m_forgotten,
            m_invented, m_compared, m_miscounted);
        std::printf(
            "%d kills (seed %u), %d counted, %d received, %d waiting, %d missing, %d gone unsent, %d "
            "never counted, "
            "%d repeated after a kill or a lost reply, %d repeated without reason, %d other complaints\n",
            kills, m_seed, sums.counted, sums.received, sums.waiting, sums.missing, sums.unread,
            sums.uncounted, sums.excused, sums.unexcused, m_complaints);
        return drained && sums.isClean() && m_complaints + m_forgotten + m_invented + m_miscounted == 0
            && sums.counted > kills / 4 && m_compared > kills / 4;
    }

    int below(int bound) { return static_cast<int>(m_random.bounded(bound)); }

    QRandomGenerator m_random;
    quint32 m_seed;
    QTimer m_weatherTimer;
    Ledger m_ledger;
    std::unique_ptr<FastClient> m_client;
    std::unique_ptr<localservice::Server> m_other;
    std::vector<Address> m_addresses;
    Choices m_said;
    std::optional<Choices> m_asked; // as it will be once it is made
    QString m_lastAsked;
    int m_port = 0;
    int m_moves = 0;
    int m_forgotten = 0;
    int m_invented = 0;
    int m_compared = 0; // minutes
    int m_miscounted = 0;
    QMap<QString, Counter> m_counters; // at the start of this run
    QMap<QString, int> m_made;
    std::atomic<int> m_passesLeft{-1}; // accepted reports until the service strikes
    std::atomic<qint64> m_clientId{0};
    QElapsedTimer m_clientTime;
    QDateTime m_clientClock = QDateTime(QDate(2026, 3, 2), QTime(8, 0));
    int m_run = 0;
    int m_complaints = 0;
    QMap<QByteArray, int> m_strikes;
    Weather m_weather = Weather::Fine;
    std::mutex m_receiving;
};

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const int kills = arguments.value(1, s("60")).toInt();
    const quint32 seed =
        arguments.size() > 2 ? arguments.at(2).toUInt() : QRandomGenerator::global()->generate();
    return Trials(seed).run(kills) ? 0 : 1;
}
