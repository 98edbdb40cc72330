// Kills the client again and again, at named places and at any moment, while the
// service fails in every way it knows, and compares what had been counted with
// what arrived: crashtrials KILLS [SEED]
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

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>

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
constexpr auto kBetweenRuns = 300; // s of the client's time

// Where the service, not the client, is the one to strike: the report is taken
// and the answer has not left.
const QByteArray kAccepted = "accepted";
const std::array<QByteArray, 9> kPlaces{"minute-over",    "record-opened",  "record-written",
                                        "record-renamed", "request-posted", kAccepted,
                                        "reply-received", "before-removal", "record-removed"};

bool needsService(const QByteArray &place)
{
    return place == kAccepted || place == "reply-received" || place == "before-removal"
        || place == "record-removed";
}

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
        m_room->leaveUser(true); // every run resumes by itself
        m_ledger = std::make_unique<Ledger>(m_room->ofUser(s("activity")));

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
                std::printf("%d kills, %d counted\n", i + 1, m_ledger->counted());
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
            m_ledger->repliesGetLost();
        const auto all = s("*");
        if (weather == Stopped)
            m_room->server.stop();
        else if (!m_room->server.isRunning() && !m_room->server.start())
            qFatal("the service does not come back");
        m_room->server.setOutage(weather == Refused
                                     ? Outage::Dropped
                                     : (weather == Unavailable ? Outage::Unavailable : Outage::None));
        if (weather == Slow)
            m_room->server.setFault(all, Fault::delayed(std::chrono::milliseconds(below(kSlowest))));
        else if (weather == Lost)
            m_room->server.setFault(all, Fault::loseReply());
        else if (weather == Cut)
            m_room->server.setFault(all, Fault::truncate(below(20)));
        else if (weather == Hanging)
            m_room->server.setFault(all, Fault::hang());
        else
            m_room->server.clearFaults();
        if (weather != Lost && weather != Cut && weather != Stopped)
            m_ledger->repliesArrive();
    }

    void takeIn()
    {
        const std::lock_guard lock(m_takeIn);
        m_ledger->readFolder();
        const auto reports = m_room->server.reports();
        const auto pictures = m_room->server.screenshots();
        const int before = m_seenReports + m_seenPictures;
        for (; m_seenReports < reports.size(); ++m_seenReports) {
            const auto &report = reports.at(m_seenReports);
            m_ledger->accepted(
                Ledger::minuteId(report.version, report.taskId, QString::number(report.active)));
        }
        for (; m_seenPictures < pictures.size(); ++m_seenPictures) {
            const auto &picture = pictures.at(m_seenPictures);
            // Without its picture it is not what was promised.
            m_ledger->accepted(
                Ledger::pictureId(picture.version, picture.jpeg.isEmpty() ? QString() : picture.fileName));
        }
        const int taken = m_seenReports + m_seenPictures - before;
        if (taken == 0 || m_passesLeft < 0)
            return;
        if ((m_passesLeft -= taken) < 0)
            ::kill(static_cast<pid_t>(m_clientId), SIGKILL);
    }

    void startClient(const QByteArray &place, int passes)
    {
        // Every run begins after the one before it ended, or records would come from
        // the future.
        auto environment =
            m_room->environment(m_clientClock.toString(s("@yyyy-MM-dd HH:mm:ss x%1")).arg(kSpeed));
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
        startClient(place, below(3));
        if (clientEnds(kPatience))
            ++m_strikes[place];
        else
            complain(place.constData());
        endOfRun();
    }

    void strikeAtRandom()
    {
        startClient(QByteArray(), 0);
        const int length = below(10) == 0 ? kLongRun : kShortRun;
        if (clientEnds(std::chrono::milliseconds(below(length))))
            complain("the client ended by itself");
        endOfRun();
        ++m_strikes["random"];
    }

    // The last client runs until nothing is left over.
    bool drain()
    {
        m_weatherTimer.stop();
        setWeather(Fine);
        QElapsedTimer passed;
        passed.start();
        while (passed.elapsed() < std::chrono::milliseconds(kPatience).count()) {
            const int before = m_ledger->counted();
            startClient(QByteArray(), 0);
            while ((m_ledger->counted() == before || m_room->waiting() > 0)
                   && passed.elapsed() < std::chrono::milliseconds(kPatience).count()) {
                if (clientEnds(5ms))
                    complain("the client ended by itself");
            }
            m_client.terminate();
            if (!clientEnds(kPatience) || m_client.exitStatus() != QProcess::NormalExit
                || m_client.exitCode() != 0)
                complain("the client did not end well");
            endOfRun();
            if (m_room->waiting() == 0)
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
            complain("the client crashed by itself");
        m_clientClock = m_clientClock.addMSecs(m_clientTime.elapsed() * kSpeed).addSecs(kBetweenRuns);
        m_ledger->clientIsGone();
    }

    void complain(const char *what)
    {
        ++m_complaints;
        QFile output(m_room->path(s("output")));
        output.open(QIODevice::ReadOnly);
        std::printf("run %d: %s after %lld ms\n%s\n", m_run, what, m_clientTime.elapsed(),
                    output.readAll().right(2000).constData());
        std::fflush(stdout);
    }

    bool report(int kills, bool drained)
    {
        const Ledger::Sums sums = m_ledger->sums();
        for (auto it = m_strikes.cbegin(); it != m_strikes.cend(); ++it)
            std::printf("  %-15s %d\n", it.key().constData(), it.value());
        std::printf(
            "%d kills (seed %u), %d counted, %d received, %d waiting, %d missing, %d gone unsent, %d "
            "never counted, "
            "%d repeated after a kill or a lost reply, %d repeated without reason, %d other complaints\n",
            kills, m_seed, sums.counted, sums.received, sums.waiting, sums.missing, sums.unread,
            sums.uncounted, sums.excused, sums.unexcused, m_complaints);
        return drained && sums.isClean() && m_complaints == 0 && sums.counted > kills / 4;
    }

    int below(int bound) { return static_cast<int>(m_random.bounded(bound)); }

    QRandomGenerator m_random;
    quint32 m_seed;
    QTimer m_input;
    QTimer m_weatherTimer;
    std::unique_ptr<Ledger> m_ledger;
    std::unique_ptr<ClientRoom> m_room;
    std::atomic<int> m_passesLeft{-1}; // accepted reports until the service strikes
    std::atomic<qint64> m_clientId{0};
    QProcess m_client;
    QElapsedTimer m_clientTime;
    QDateTime m_clientClock = QDateTime(QDate(2026, 3, 2), QTime(8, 0));
    int m_run = 0;
    int m_seenReports = 0;
    int m_seenPictures = 0;
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
