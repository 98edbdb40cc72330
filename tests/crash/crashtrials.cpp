// Kills the client again and again, at named places and at any moment, while the
// service fails in every way it knows and somebody starts and stops the timer,
// changes tasks, users and the service's address. Compares what the client counted with
// what arrived, and what it does with what was chosen last:
// crashtrials KILLS [SEED]
#include "judge.h"
#include "ledger.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMap>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
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
        m_judge = std::make_unique<Judge>(m_client->room);
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
        QFile::remove(m_judge->journalPath());
        const Address &address = m_addresses.at(static_cast<size_t>(below(3)) / 2);
        m_moves += address.service->port() == m_port ? 0 : 1;
        m_port = address.service->port();
        m_passesLeft = place == kAccepted ? passes : -1;
        m_clientTime.start();
        m_judge->runStarts(++m_run, m_port);
        // Every run begins after the one before it ended, or records would come from the future.
        m_client->start(s(CRASHABLE_CLIENT), m_clientClock,
                        {{s("ORVANA_SERVICE_URL"), address.url},
                         {s("ORVANA_CRASH_JOURNAL"), m_judge->journalPath()},
                         {s("ORVANA_CRASH_CHOICES"), choices.join(QLatin1Char('\n'))},
                         {s("ORVANA_CRASH_RUN"), QString::number(m_run)},
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

    void endOfRun(bool mayLoseMinute)
    {
        m_passesLeft = -1;
        QProcess &process = m_client->process;
        process.kill();
        process.waitForFinished();
        if (process.exitStatus() == QProcess::CrashExit && process.exitCode() != SIGKILL)
            fail("the client crashed by itself");
        m_clientClock = m_clientClock.addMSecs(m_clientTime.elapsed() * kSpeed).addSecs(kBetweenRuns);
        m_judge->runHasEnded(m_ledger.clientIsGone(), mayLoseMinute);
    }

    void fail(const char *what)
    {
        QFile output(m_client->room.path(s("output")));
        output.open(QIODevice::ReadOnly);
        m_judge->complain(s("%1 after %2 ms\n%3")
                              .arg(s(what))
                              .arg(m_clientTime.elapsed())
                              .arg(QString::fromUtf8(output.readAll().right(2000))));
    }

    bool report(int kills, bool drained)
    {
        const Ledger::Sums sums = m_ledger.sums();
        for (auto it = m_strikes.cbegin(); it != m_strikes.cend(); ++it)
            std::printf("  %-15s %d\n", it.key().constData(), it.value());
        std::printf("%d changes of address\n", m_moves);
        m_judge->print();
        std::printf("%d kills (seed %u), %d counted, %d received, %d waiting, %d missing, %d gone unsent, %d "
                    "never counted, "
                    "%d repeated after a kill or a lost reply, %d repeated without reason\n",
                    kills, m_seed, sums.counted, sums.received, sums.waiting, sums.missing, sums.unread,
                    sums.uncounted, sums.excused, sums.unexcused);
        return drained && sums.isClean() && m_judge->isSatisfied(kills / 4) && sums.counted > kills / 4;
    }

    int below(int bound) { return static_cast<int>(m_random.bounded(bound)); }

    QRandomGenerator m_random;
    quint32 m_seed;
    QTimer m_weatherTimer;
    Ledger m_ledger;
    std::unique_ptr<FastClient> m_client;
    std::unique_ptr<Judge> m_judge;
    std::unique_ptr<localservice::Server> m_other;
    std::vector<Address> m_addresses;
    int m_port = 0;
    int m_moves = 0;
    std::atomic<int> m_passesLeft{-1}; // accepted reports until the service strikes
    std::atomic<qint64> m_clientId{0};
    QElapsedTimer m_clientTime;
    QDateTime m_clientClock = QDateTime(QDate(2026, 3, 2), QTime(8, 0));
    int m_run = 0;
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
