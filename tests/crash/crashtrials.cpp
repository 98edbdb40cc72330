// crashtrials KILLS [SEED]: kills the client again and again, at named places and at any moment, while the
// service fails in every way and somebody starts and stops the timer, changes tasks, users and the service's
// address. Compares what was counted with what arrived, and what was chosen last with what the next start
// does.
#include "files.h"
#include "judge.h"

#include <atomic>
#include <csignal>

using namespace std::chrono_literals;

namespace {

constexpr int kSpeed = 240; // a minute in a quarter of a second
constexpr auto kPatience = 60s;
constexpr int kShortRun = 1200; // ms
constexpr int kLongRun = 4000; // ms, so that screenshots fall due
constexpr int kLongestWait = 75000; // ms of the client's time, before a choice
constexpr auto kBetweenRuns = 300; // s of the client's time

// Here the service strikes, not the client: the report is accepted and not yet answered.
const QByteArray kAccepted = "accepted";
// The client has handled a click or a key and nothing after it.
const QByteArray kChoiceMade = "choice-made";
const QByteArray kAnywhere = "random";
// One after the other, but for a kill at any moment after each second one: the start after the place at which
// a minute has its line and no record restores it.
const QByteArray kRestored = "minute-restored";
const QByteArrayList kPlaces{"minute-over",    kChoiceMade,      "minute-journaled", kRestored,
                             "record-opened",  "record-written", "counters-saved",   kChoiceMade,
                             "record-renamed", "request-posted", kAccepted,          "reply-received",
                             kChoiceMade,      "line-written",   "answer-journaled", "before-removal",
                             "record-removed", kChoiceMade};
const QByteArrayList kWithService{kAccepted, "reply-received", "answer-journaled", "before-removal",
                                  "record-removed"};

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
        if (!m_other.start())
            qFatal("no second service");
        localservice::Server &service = m_client.room.server;
        m_addresses = {{&service, service.baseUrl()},
                       {&m_other, s("https://LocalHost:%1/").arg(m_other.port())}};
        m_port = service.port();
        for (const Account &account : kAccounts)
            m_ledger.watch(m_client.room.stored(account.login));
        QObject::connect(&m_weatherTimer, &QTimer::timeout, &m_weatherTimer, [this] {
            const bool clearsUp = m_weather != Weather::Fine;
            changeWeather(clearsUp ? Weather::Fine
                                   : static_cast<Weather>(1 + below(static_cast<int>(Weather::Count) - 1)));
            m_weatherTimer.start(clearsUp ? 200 + below(600) : 200 + below(1500));
        });
        changeWeather(Weather::Fine);
    }

    bool run(int kills)
    {
        for (int i = 0; i < kills; ++i) {
            if (!m_weatherTimer.isActive())
                m_weatherTimer.start(0);
            // Two of three at a named place, each in its turn.
            strike(i % 3 == 2 ? kAnywhere : kPlaces.at((i - i / 3) % kPlaces.size()));
            if (i % 100 == 99) {
                std::printf("%d kills, %d counted\n", i + 1, m_ledger.sums().counted);
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
        const bool losesReplies = weather > Weather::Rejected;
        if (losesReplies)
            m_ledger.repliesGetLost();
        for (Address &address : m_addresses) {
            setWeather(*address.service, weather, m_random);
            address.service->setFault(s("/api_get_active"), localservice::Fault::answer(503));
        }
        if (!losesReplies)
            m_ledger.repliesArrive();
    }

    void receive()
    {
        const std::lock_guard lock(m_receiving);
        m_ledger.readFolder();
        int received = 0;
        for (Address &from : m_addresses) {
            const auto accept = [this, &from](const auto &record, const QString &rest) {
                m_ledger.accepted({record.version, record.email, record.teamId, record.taskId,
                                   QString::number(from.service->port()), rest});
            };
            const auto reports = from.service->reports().mid(from.reports);
            const auto screenshots = from.service->screenshots().mid(from.screenshots);
            for (const auto &report : reports)
                accept(report, QString::number(report.active));
            for (const auto &shot : screenshots) // without its image it is not what was promised
                accept(shot, shot.jpeg.isEmpty() ? QString() : shot.fileName);
            from.reports += reports.size();
            from.screenshots += screenshots.size();
            received += reports.size() + screenshots.size();
        }
        if (received > 0 && m_passesLeft >= 0 && (m_passesLeft -= received) < 0)
            ::kill(static_cast<pid_t>(m_clientId), SIGKILL);
    }

    // With login and password of a user, or else with rows of the chooser.
    QString choice(const char *kind, const QStringList &who = {})
    {
        const QStringList rows{QString::number(below(3)), QString::number(below(8))};
        return (QStringList{QString::number(below(kLongestWait)), s(kind)} + (who.isEmpty() ? rows : who))
            .join(QLatin1Char('\t'));
    }

    QString toUser(const Account &account) { return choice("user", {account.login, account.password}); }

    QStringList someChoices(int count)
    {
        QStringList plan;
        while (plan.size() < count) {
            const int kind = below(3);
            plan.append(kind == 0 ? toUser(kAccounts.at(below(kAccounts.size())))
                                  : choice(kind == 1 ? "task" : "press"));
        }
        return plan;
    }

    void startClient(const QStringList &choices, const QByteArray &place = kAnywhere, int passes = 0)
    {
        QFile::remove(m_judge.journalPath());
        const Address &address = m_addresses.at(below(3) / 2);
        m_moves += address.service->port() == m_port ? 0 : 1;
        m_port = address.service->port();
        m_passesLeft = place == kAccepted ? passes : -1;
        m_clientTime.start();
        m_judge.runStarts(++m_run, m_port);
        // Every run begins after the one before it ended, or records would come from the future.
        m_client.start(s(CRASHABLE_CLIENT), m_clientClock,
                       {{s("ORVANA_SERVICE_URL"), address.url},
                        {s("ORVANA_CRASH_JOURNAL"), m_judge.journalPath()},
                        {s("ORVANA_CRASH_CHOICES"), choices.join(QLatin1Char('\n'))},
                        {s("ORVANA_CRASH_RUN"), QString::number(m_run)},
                        {s("ORVANA_CRASH_AT"), QString::fromLatin1(place)},
                        {s("ORVANA_CRASH_PASS"), QString::number(passes)}});
        m_clientId = m_client.process.processId();
    }

    void strike(const QByteArray &place)
    {
        if (kWithService.contains(place)) {
            m_weatherTimer.stop();
            changeWeather(Weather::Fine);
        }
        const int passes = place == kRestored ? 0 : below(3);
        QStringList choices = someChoices(place == kChoiceMade ? passes + 1 : below(3));
        if (place != kChoiceMade && place != kAnywhere)
            choices += choice("start"); // a minute passes all other places
        startClient(choices, place, passes);
        const std::chrono::milliseconds length(below(below(10) == 0 ? kLongRun : kShortRun));
        if (m_client.ends(place == kAnywhere ? length : kPatience) == (place == kAnywhere))
            fail(place.constData());
        ++m_strikes[place];
        endOfRun();
    }

    // Clients of all users run until nothing is left over.
    bool drain()
    {
        m_weatherTimer.stop();
        changeWeather(Weather::Fine);
        const QDeadlineTimer late(2 * kPatience);
        const auto isEmpty = [this](const Account &account) {
            return QDir(folderOf(account)).entryList({s("json*")}, QDir::Files).isEmpty();
        };
        // The user of the client before may count a minute until the next one signs in.
        const auto areEmpty = [&] { return std::all_of(kAccounts.cbegin(), kAccounts.cend(), isEmpty); };
        do {
            for (const Account &account : kAccounts) {
                const int before = m_ledger.sums().counted;
                startClient({toUser(account), choice("start")});
                while ((m_ledger.sums().counted == before || !isEmpty(account)) && !late.hasExpired()) {
                    if (m_client.ends(5ms))
                        fail("the client ended by itself");
                }
                if (!m_client.quit())
                    fail("the client did not end well");
                endOfRun();
            }
        } while (!areEmpty() && !late.hasExpired());
        return !late.hasExpired();
    }

    void endOfRun()
    {
        m_passesLeft = -1;
        QProcess &process = m_client.process;
        process.kill();
        process.waitForFinished();
        if (process.exitStatus() == QProcess::CrashExit && process.exitCode() != SIGKILL)
            fail("the client crashed by itself");
        m_clientClock = m_clientClock.addMSecs(m_clientTime.elapsed() * kSpeed).addSecs(kBetweenRuns);
        const auto bookings = m_ledger.clientIsGone();
        m_judge.judgeJournal(bookings);
    }

    void fail(const char *what)
    {
        m_judge.complain(s("%1 after %2 ms\n").arg(s(what)).arg(m_clientTime.elapsed())
                         + QString::fromUtf8(contentsOf(m_client.room.path(s("output"))).right(2000)));
    }

    bool report(int kills, bool drained)
    {
        const Ledger::Sums sums = m_ledger.sums();
        for (auto it = m_strikes.cbegin(); it != m_strikes.cend(); ++it)
            std::printf("  %-15s %d\n", it.key().constData(), it.value());
        std::printf("%d changes of address\n", m_moves);
        m_judge.print();
        std::printf("%d kills (seed %u), %d counted, %d received, %d waiting, %d missing, %d gone unsent, %d "
                    "never counted, "
                    "%d repeated after a kill or a lost reply, %d repeated without reason, %d restored, %d "
                    "breaks of the "
                    "journal\n",
                    kills, m_seed, sums.counted, sums.received, sums.waiting, sums.missing, sums.unread,
                    sums.uncounted, sums.excused, sums.unexcused, sums.restored, sums.broken);
        return drained && sums.isClean() && m_judge.isSatisfied(kills / 4) && sums.counted > kills / 4;
    }

    QString folderOf(const Account &account) const
    {
        return m_client.room.stored(account.login + s("/activity"));
    }

    int below(int bound) { return static_cast<int>(m_random.bounded(bound)); }

    QRandomGenerator m_random;
    quint32 m_seed;
    QTimer m_weatherTimer;
    Weather m_weather = Weather::Fine;
    Ledger m_ledger;
    QVector<Address> m_addresses;
    std::mutex m_receiving;
    std::atomic<int> m_passesLeft{-1}; // accepted reports until the service strikes
    std::atomic<qint64> m_clientId{0};
    // Requests are not recorded. Called between accepting a report and answering it.
    const localservice::Server::Options m_options{0, {}, false, {}, [this](const QString &) { receive(); }};
    FastClient m_client{m_options, kSpeed, 10ms, 40};
    localservice::Server m_other{m_options};
    Judge m_judge{m_client.room};
    int m_port = 0;
    int m_moves = 0;
    QElapsedTimer m_clientTime;
    QDateTime m_clientClock{QDate(2026, 3, 2), QTime(8, 0)};
    int m_run = 0;
    QMap<QByteArray, int> m_strikes;
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
