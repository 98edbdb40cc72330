// Kills the client again and again, at named places and at any moment, while the
// service fails in every way it knows, and compares what had been counted with
// what arrived: crashtrials KILLS [SEED]
#include "knownuser.h"
#include "ledger.h"

#include "localservice/server.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QHostAddress>
#include <QMap>
#include <QProcess>
#include <QRandomGenerator>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
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
        leaveKnownUser(m_box.path(), true); // every run resumes by itself
        m_ledger = std::make_unique<Ledger>(cacheFolder());
        localservice::Server::Options options;
        options.recordRequests = false;
        // Called between accepting a report and answering it.
        options.log = [this](const QString &) { takeIn(); };
        m_server = std::make_unique<localservice::Server>(options);
        QString error;
        if (!m_server->start(&error) || !m_watcher.listen(QHostAddress::LocalHost))
            qFatal("no service: %s", qPrintable(error));
        QSettings config(m_box.filePath(s("orvanx.conf")), QSettings::IniFormat);
        config.setValue(s("watcher-port"), m_watcher.serverPort());

        QObject::connect(&m_input, &QTimer::timeout, &m_watcher, [this] {
            const auto clients = m_watcher.findChildren<QTcpSocket *>();
            for (QTcpSocket *client : clients) {
                if (below(100) < kInputChance)
                    client->write("a");
            }
        });
        QObject::connect(&m_watcher, &QTcpServer::newConnection, &m_watcher, [this] {
            while (QTcpSocket *client = m_watcher.nextPendingConnection())
                QObject::connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        });
        QObject::connect(&m_weatherTimer, &QTimer::timeout, &m_watcher, [this] {
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
            m_server->stop();
        else if (!m_server->isRunning() && !m_server->start())
            qFatal("the service does not come back");
        m_server->setOutage(weather == Refused
                                ? Outage::Dropped
                                : (weather == Unavailable ? Outage::Unavailable : Outage::None));
        if (weather == Slow)
            m_server->setFault(all, Fault::delayed(std::chrono::milliseconds(below(kSlowest))));
        else if (weather == Lost)
            m_server->setFault(all, Fault::loseReply());
        else if (weather == Cut)
            m_server->setFault(all, Fault::truncate(below(20)));
        else if (weather == Hanging)
            m_server->setFault(all, Fault::hang());
        else
            m_server->clearFaults();
        if (weather != Lost && weather != Cut && weather != Stopped)
            m_ledger->repliesArrive();
    }

    void takeIn()
    {
        const std::lock_guard lock(m_takeIn);
        m_ledger->readFolder();
        const auto reports = m_server->reports();
        const auto pictures = m_server->screenshots();
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
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        const auto set = [&environment](const char *name, const QString &value) {
            environment.insert(QString::fromLatin1(name), value);
        };
        set("ORVANA_SERVICE_URL", m_server->baseUrl());
        set("ORVANA_STORAGE_ROOT", m_box.path());
        set("ORVANA_CONFIG", m_box.filePath(s("orvanx.conf")));
        set("TMPDIR", m_box.path());
        set("ORVANA_CRASH_RUN", QString::number(++m_run));
        set("ORVANA_CRASH_AT", QString::fromLatin1(place));
        set("ORVANA_CRASH_PASS", QString::number(passes));
        set("LD_PRELOAD", s(FAKETIME_LIBRARY));
        // Every run begins after the one before it ended, or records would come from
        // the future.
        set("FAKETIME", m_clientClock.toString(s("@yyyy-MM-dd HH:mm:ss x%1")).arg(kSpeed));
        m_client.setProcessEnvironment(environment);
        m_client.setStandardOutputFile(m_box.filePath(s("output")));
        m_client.setStandardErrorFile(QProcess::nullDevice());
        m_client.setWorkingDirectory(m_box.path());
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
        const auto isEmpty = [this] {
            return QDir(cacheFolder()).entryList({s("json*")}, QDir::Files).isEmpty();
        };
        while (passed.elapsed() < std::chrono::milliseconds(kPatience).count()) {
            const int before = m_ledger->counted();
            startClient(QByteArray(), 0);
            while ((m_ledger->counted() == before || !isEmpty())
                   && passed.elapsed() < std::chrono::milliseconds(kPatience).count()) {
                if (clientEnds(5ms))
                    complain("the client ended by itself");
            }
            m_client.terminate();
            if (!clientEnds(kPatience) || m_client.exitStatus() != QProcess::NormalExit
                || m_client.exitCode() != 0)
                complain("the client did not end well");
            endOfRun();
            if (isEmpty())
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
        QFile output(m_box.filePath(s("output")));
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
    QString cacheFolder() const { return m_box.filePath(s(".orvana/anna@orvana.example/activity")); }

    QRandomGenerator m_random;
    quint32 m_seed;
    QTemporaryDir m_box;
    QTcpServer m_watcher;
    QTimer m_input;
    QTimer m_weatherTimer;
    std::unique_ptr<Ledger> m_ledger;
    std::unique_ptr<localservice::Server> m_server;
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
