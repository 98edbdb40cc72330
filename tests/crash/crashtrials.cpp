// Kills the client again and again, at named places and at any moment, while the
// service fails in every way it knows and somebody starts and stops the timer,
// changes tasks, users and the service's address. Compares what was counted with
// what arrived, and what the client does with what was chosen last:
// crashtrials KILLS [SEED]
#include "clientroom.h"
#include "ledger.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QMap>
#include <QRandomGenerator>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

using localservice::Fault;
using localservice::Outage;
using namespace std::chrono_literals;

namespace {

constexpr int kSpeed = 240; // a minute in a quarter of a second
constexpr auto kPatience = 60s;
constexpr auto kInputPeriod = 10ms;
constexpr int kInputChance = 40; // percent
constexpr auto kShortRun = 1200; // ms
constexpr auto kLongRun = 4000; // ms, so that pictures fall due
constexpr int kSlowest = 150; // ms
constexpr int kLongestWait = 75000; // ms of the client's time, before a choice
constexpr int kTeamRows = 3;
constexpr int kTaskRows = 8;
constexpr auto kBetweenRuns = 300; // s of the client's time

// Where the service, not the client, is the one to strike: the report is taken
// and the answer has not left.
const QByteArray kAccepted = "accepted";
// The client has dealt with a click or a key and has not yet come to anything else.
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

// What the client was told to do; every user's task and timer are kept for the next login.
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
    int pictures = 0;
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
        options.log = [this](const QString &) { takeIn(); };
        m_room = std::make_unique<ClientRoom>(options);
        m_other = std::make_unique<localservice::Server>(options);
        if (!m_other->start())
            qFatal("no second service");
        m_addresses = {{&m_room->server, m_room->server.baseUrl()},
                       {m_other.get(), s("https://LocalHost:%1/").arg(m_other->port())}};
        m_port = m_room->server.port();
        m_room->leaveUser(true);
        m_said = {kAccounts.front().login, {{kAccounts.front().login, {s("17"), s("1702"), true}}}};
        for (const Account &account : kAccounts) {
            const QString folder = m_room->stored(account.login + s("/activity"));
            QDir().mkpath(folder);
            m_ledger.watch(account.login, folder);
        }

        QTcpServer *watcher = &m_room->watcher;
        QObject::connect(&m_input, &QTimer::timeout, watcher, [this, watcher] {
            const auto clients = watcher->findChildren<QTcpSocket *>();
            for (QTcpSocket *client : clients) {
                if (below(100) < kInputChance)
                    client->write("a");
            }
        });
        QObject::connect(watcher, &QTcpServer::newConnection, watcher, [watcher] {
            while (QTcpSocket *client = watcher->nextPendingConnection())
                QObject::connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        });
        QObject::connect(&m_weatherTimer, &QTimer::timeout, watcher, [this] {
            const bool clearsUp = m_weather != Fine;
            setWeather(clearsUp ? Fine : static_cast<Weather>(1 + below(WeatherCount - 1)));
            m_weatherTimer.start(clearsUp ? 200 + below(600) : 200 + below(1500));
        });
        m_input.start(kInputPeriod);
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
    enum Weather { Fine, Slow, Unavailable, Refused, Lost, Cut, Hanging, Stopped, WeatherCount };

    void setWeather(Weather weather)
    {
        m_weather = weather;
        if (weather == Lost || weather == Cut || weather == Stopped)
            m_ledger.repliesGetLost();
        for (Address &address : m_addresses)
            setWeather(*address.service);
        if (weather != Lost && weather != Cut && weather != Stopped)
            m_ledger.repliesArrive();
    }

    void setWeather(localservice::Server &service)
    {
        const auto all = s("*");
        if (m_weather == Stopped)
            service.stop();
        else if (!service.isRunning() && !service.start())
            qFatal("the service does not come back");
        service.setOutage(m_weather == Refused
                              ? Outage::Dropped
                              : (m_weather == Unavailable ? Outage::Unavailable : Outage::None));
        if (m_weather == Slow)
            service.setFault(all, Fault::delayed(std::chrono::milliseconds(below(kSlowest))));
        else if (m_weather == Lost)
            service.setFault(all, Fault::loseReply());
        else if (m_weather == Cut)
            service.setFault(all, Fault::truncate(below(20)));
        else if (m_weather == Hanging)
            service.setFault(all, Fault::hang());
        else
            service.clearFaults();
    }

    void takeIn()
    {
        const std::lock_guard lock(m_takeIn);
        m_ledger.readFolder();
        int taken = 0;
        for (Address &address : m_addresses)
            taken += takeInFrom(address);
        if (taken == 0 || m_passesLeft < 0)
            return;
        if ((m_passesLeft -= taken) < 0)
            ::kill(static_cast<pid_t>(m_clientId), SIGKILL);
    }

    int takeInFrom(Address &from)
    {
        const auto accept = [this, &from](const auto &record, const QString &rest) {
            const QString booking =
                Ledger::booking(record.email, record.teamId, record.taskId, from.service->port());
            m_ledger.accepted(Ledger::idOf(record.version, booking, rest));
        };
        const auto reports = from.service->reports();
        const auto pictures = from.service->screenshots();
        const int before = from.reports + from.pictures;
        for (; from.reports < reports.size(); ++from.reports)
            accept(reports.at(from.reports), QString::number(reports.at(from.reports).active));
        for (; from.pictures < pictures.size(); ++from.pictures) {
            const auto &picture = pictures.at(from.pictures);
            // Without its picture it is not what was promised.
            accept(picture, picture.jpeg.isEmpty() ? QString() : picture.fileName);
        }
        return from.reports + from.pictures - before;
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
        // Every run begins after the one before it ended, or records would come from
        // the future.
        auto environment =
            m_room->environment(m_clientClock.toString(s("@yyyy-MM-dd HH:mm:ss x%1")).arg(kSpeed));
        environment.insert(s("ORVANA_SERVICE_URL"), address.url);
        environment.insert(s("ORVANA_CRASH_JOURNAL"), journalPath());
        environment.insert(s("ORVANA_CRASH_CHOICES"), choices.join(QLatin1Char('\n')));
        environment.insert(s("ORVANA_CRASH_RUN"), QString::number(++m_run));
        environment.insert(s("ORVANA_CRASH_AT"), QString::fromLatin1(place));
        environment.insert(s("ORVANA_CRASH_PASS"), QString::number(passes));
        m_client.setProcessEnvironment(environment);
        m_client.setStandardOutputFile(m_room->path(s("output")));
        m_client.setStandardErrorFile(QProcess::nullDevice());
        m_client.setWorkingDirectory(m_room->path());
        m_passesLeft = place == kAccepted ? passes : -1;
        m_clientTime.start();
        m_client.start(s(CRASHABLE_CLIENT), QStringList());
        if (!m_client.waitForStarted())
            qFatal("the client does not start");
        m_clientId = m_client.processId();
    }

    bool clientEnds(std::chrono::milliseconds limit)
    {
        if (m_client.state() != QProcess::NotRunning) {
            QEventLoop loop;
            QObject::connect(&m_client, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop,
                             &QEventLoop::quit);
            QTimer::singleShot(limit, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return m_client.state() == QProcess::NotRunning;
    }

    void strikeAt(const QByteArray &place)
    {
        if (needsService(place)) {
            m_weatherTimer.stop();
            setWeather(Fine);
        }
        const int passes = below(3);
        // All other places are on the way of a minute.
        startClient(place, passes,
                    place == kChoiceMade ? someChoices(passes + 1)
                                         : someChoices(below(3)) << choice(s("start")));
        if (clientEnds(kPatience))
            ++m_strikes[place];
        else
            fail(place.constData());
        endOfRun();
    }

    void strikeAtRandom()
    {
        startClient(QByteArray(), 0, someChoices(below(3)));
        const int length = below(10) == 0 ? kLongRun : kShortRun;
        if (clientEnds(std::chrono::milliseconds(below(length))))
            fail("the client ended by itself");
        endOfRun();
        ++m_strikes["random"];
    }

    // Every user's last client runs until nothing is left over.
    bool drain()
    {
        m_weatherTimer.stop();
        setWeather(Fine);
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
                if (clientEnds(5ms))
                    fail("the client ended by itself");
            }
            m_client.terminate();
            if (!clientEnds(kPatience) || m_client.exitStatus() != QProcess::NormalExit
                || m_client.exitCode() != 0)
                fail("the client did not end well");
            endOfRun();
            if (m_ledger.waiting(account.login) == 0)
                return true;
        }
        return false;
    }

    void endOfRun()
    {
        m_passesLeft = -1;
        m_client.kill();
        m_client.waitForFinished();
        if (m_client.exitStatus() == QProcess::CrashExit && m_client.exitCode() != SIGKILL)
            fail("the client crashed by itself");
        m_clientClock = m_clientClock.addMSecs(m_clientTime.elapsed() * kSpeed).addSecs(kBetweenRuns);
        judge(m_ledger.clientIsGone());
    }

    // As long as the client has not dealt with a choice, it may act on it or not.
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

    // The record and perhaps a picture; none when the client died before they came to the disk.
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

    QString journalPath() const { return m_room->path(s("journal")); }

    void fail(const char *what)
    {
        ++m_complaints;
        QFile output(m_room->path(s("output")));
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
            "%d minutes invented or misbooked\n",
            m_made[s("start")], m_made[s("stop")], m_made[s("task")], m_made[s("user")], m_moves, m_forgotten,
            m_invented);
        std::printf(
            "%d kills (seed %u), %d counted, %d received, %d waiting, %d missing, %d gone unsent, %d "
            "never counted, "
            "%d repeated after a kill or a lost reply, %d repeated without reason, %d other complaints\n",
            kills, m_seed, sums.counted, sums.received, sums.waiting, sums.missing, sums.unread,
            sums.uncounted, sums.excused, sums.unexcused, m_complaints);
        return drained && sums.isClean() && m_complaints + m_forgotten + m_invented == 0
            && sums.counted > kills / 4;
    }

    int below(int bound) { return static_cast<int>(m_random.bounded(bound)); }

    QRandomGenerator m_random;
    quint32 m_seed;
    QTimer m_input;
    QTimer m_weatherTimer;
    Ledger m_ledger;
    std::unique_ptr<ClientRoom> m_room;
    std::unique_ptr<localservice::Server> m_other;
    std::vector<Address> m_addresses;
    Choices m_said;
    std::optional<Choices> m_asked; // as it would be, were it answered
    QString m_lastAsked;
    int m_port = 0;
    int m_moves = 0;
    int m_forgotten = 0;
    int m_invented = 0;
    QMap<QString, int> m_made;
    std::atomic<int> m_passesLeft{-1}; // accepted reports until the service strikes
    std::atomic<qint64> m_clientId{0};
    QProcess m_client;
    QElapsedTimer m_clientTime;
    QDateTime m_clientClock = QDateTime(QDate(2026, 3, 2), QTime(8, 0));
    int m_run = 0;
    int m_complaints = 0;
    QMap<QByteArray, int> m_strikes;
    Weather m_weather = Fine;
    std::mutex m_takeIn;
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
