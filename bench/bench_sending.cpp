#include "data.h"

#include "localservice/server.h"
#include "model/json.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "service/requestbody.h"
#include "storage/recordtime.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPainter>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <memory>

namespace {

constexpr int kMinutes = 10000;
constexpr int kWarmUp = 1000; // minutes, after which memory should stay

localservice::Server &service()
{
    static localservice::Server server([] {
        localservice::Server::Options options;
        options.recordRequests = false;
        return options;
    }());
    if (!server.isRunning())
        server.start();
    return server;
}

QVariantMap minute(int number)
{
    return {{QStringLiteral("active"), QString::number(number % 11)},
            {QStringLiteral("email"), QStringLiteral("anna@orvana.example")},
            {QStringLiteral("past"), QStringLiteral("0")},
            {QStringLiteral("task_id"), QStringLiteral("1702")},
            {QStringLiteral("team_id"), QStringLiteral("17")},
            {QStringLiteral("version"), QStringLiteral("1.1.0")}};
}

// The longest time in which the event loop did not come round.
class StallMeter
{
public:
    StallMeter()
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            m_longest = qMax(m_longest, m_since.nsecsElapsed());
            m_since.restart();
        });
        m_since.start();
        m_timer.start(1);
    }
    double milliseconds() const { return static_cast<double>(m_longest) / 1e6; }

private:
    QTimer m_timer;
    QElapsedTimer m_since;
    qint64 m_longest = 0;
};

// Memory that is this process's own, in bytes.
qint64 ownMemory()
{
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    file.open(QIODevice::ReadOnly);
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("Anonymous:"))
            return line.simplified().split(' ').value(1).toLongLong() * 1024;
    }
    return 0;
}

// Counts the replies of a drain and what memory has grown by since the first ones. The
// service keeps what it received in the same process, in every drain alike.
class Progress
{
public:
    explicit Progress(QNetworkAccessManager *network)
    {
        QObject::connect(network, &QNetworkAccessManager::finished, network, [this] {
            if (++m_finished == kWarmUp)
                m_memoryAtFirst = ownMemory();
        });
    }
    bool isDone() const { return m_finished >= kMinutes; }
    double grownMegabytes() const
    {
        return static_cast<double>(ownMemory() - m_memoryAtFirst) / (1024 * 1024);
    }

private:
    int m_finished = 0;
    qint64 m_memoryAtFirst = 0;
};

// Asleep between events: a loop that polls would compete with the network's thread and the
// service for the processors.
void waitUntil(const std::function<bool()> &done)
{
    while (!done())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

void drainOurs(benchmark::State &state)
{
    service();
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir root;
        qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(root.path()));
        qputenv("ORVANA_SERVICE_URL", service().baseUrl().toLatin1());
        Silence silence;
        auto orvana = std::make_unique<Orvana>(&silence);
        bool loggedIn = false;
        QObject::connect(orvana.get(), &Orvana::loginOk, orvana.get(), [&] { loggedIn = true; });
        orvana->requestCheckLogin(QStringLiteral("anna@orvana.example"), QStringLiteral("orvana"));
        waitUntil([&] { return loggedIn; });
        const QString folder = StorageFolder::ofUser(orvana->storageDirectory(), orvana->session()->login())
            + QStringLiteral("/activity/json");
        const QString url = service().baseUrl() + QStringLiteral("/api_active2");
        for (int i = 0; i < kMinutes; ++i) {
            const QString now = recordTimeText(QDateTime::currentDateTime());
            QFile file(folder + now + QLatin1Char('.') + QString::number(i));
            file.open(QIODevice::WriteOnly);
            file.write(QtJson::serialize(QVariantMap{{QStringLiteral("version"), QStringLiteral("0.1")},
                                                     {QStringLiteral("api-url"), url},
                                                     {QStringLiteral("body"), minute(i)},
                                                     {QStringLiteral("timestamp"), now}}));
        }
        service().clearReceived();
        const Progress progress(orvana->findChild<QNetworkAccessManager *>());
        const StallMeter stalls;
        state.ResumeTiming();
        orvana->sendCachedActivity();
        waitUntil([&] { return progress.isDone(); });
        state.PauseTiming();
        state.counters["stall_ms"] = stalls.milliseconds();
        state.counters["grown_mb"] = progress.grownMegabytes();
        if (service().reports().size() != kMinutes)
            state.SkipWithError("not every minute arrived");
        orvana.reset();
        state.ResumeTiming();
    }
}

void drainBare(benchmark::State &state)
{
    service();
    for (auto _ : state) {
        service().clearReceived();
        QNetworkAccessManager network;
        QObject::connect(&network, &QNetworkAccessManager::sslErrors, &network,
                         [](QNetworkReply *reply, const QList<QSslError> &) { reply->ignoreSslErrors(); });
        int sent = 0;
        QNetworkRequest request(QUrl(service().baseUrl() + QStringLiteral("/api_active2")));
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QStringLiteral("application/x-www-form-urlencoded"));
        const auto next = [&] { network.post(request, activityPayload(minute(sent++))); };
        const Progress progress(&network);
        const StallMeter stalls; // its timer costs as much here as in the other drain
        QObject::connect(&network, &QNetworkAccessManager::finished, &network, [&](QNetworkReply *reply) {
            reply->readAll();
            reply->deleteLater();
            if (sent < kMinutes)
                next();
        });
        next();
        waitUntil([&] { return progress.isDone(); });
        state.counters["grown_mb"] = progress.grownMegabytes();
    }
}

QImage desktopPicture()
{
    QImage image(3840, 2160, QImage::Format_RGB32);
    image.fill(QColor(49, 80, 107));
    QPainter painter(&image);
    for (int i = 0; i < 400; ++i) {
        painter.fillRect((i * 97) % 3600, (i * 61) % 2000, 240, 150, QColor::fromHsv(i * 37 % 360, 90, 230));
        painter.drawText((i * 97) % 3600, (i * 61) % 2000 + 40,
                         QStringLiteral("Отчёт № %1 за квартал").arg(i));
    }
    return image;
}

void screenshotOurs(benchmark::State &state)
{
    const QImage image = desktopPicture();
    QTemporaryDir root;
    qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(root.path()));
    // Nobody listens: what is measured is what the window waits for.
    qputenv("ORVANA_SERVICE_URL", "https://127.0.0.1:9");
    Silence silence;
    Orvana orvana(&silence);
    orvana.session()->init(QStringLiteral("anna@orvana.example"), QStringLiteral("orvana"));
    for (auto _ : state) {
        orvana.sendScreenshotActivity(image);
        state.PauseTiming();
        waitUntil([&] { return orvana.pendingActivityRequests() == 0; });
        state.ResumeTiming();
    }
}

void screenshotBare(benchmark::State &state)
{
    const QImage image = desktopPicture();
    for (auto _ : state) {
        QBuffer jpeg;
        jpeg.open(QIODevice::WriteOnly);
        image.save(&jpeg, "JPG");
        benchmark::DoNotOptimize(jpeg.data());
    }
}

// What the window waits for when a minute is over.
void closedMinute(benchmark::State &state, bool isJournaled)
{
    QTemporaryDir root;
    QFile config(root.filePath(QStringLiteral("orvanx.conf")));
    config.open(QIODevice::WriteOnly);
    config.write(isJournaled ? "journal=true\n" : "journal=false\n");
    config.close();
    qputenv("ORVANA_CONFIG", QFile::encodeName(config.fileName()));
    qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(root.path()));
    qputenv("ORVANA_SERVICE_URL", "https://127.0.0.1:9");
    Silence silence;
    Orvana orvana(&silence);
    qunsetenv("ORVANA_CONFIG");
    orvana.session()->init(QStringLiteral("anna@orvana.example"), QStringLiteral("orvana"));
    for (auto _ : state) {
        orvana.journalMinute(5);
        orvana.session()->addMinuteToWorktime();
        orvana.session()->addMinuteToActiveTime();
        orvana.sendTaskActivity(5);
        state.PauseTiming();
        waitUntil([&] { return orvana.pendingActivityRequests() == 0; });
        state.ResumeTiming();
    }
}

BENCHMARK_CAPTURE(closedMinute, journaled, true)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(closedMinute, bare, false)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(drainOurs)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(drainBare)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(screenshotOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(screenshotBare)->Unit(benchmark::kMillisecond);

} // namespace
