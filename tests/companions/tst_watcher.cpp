#include "activityserver.h"
#include "inputmeter.h"
#include "realinput.h"
#include "watcherport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <memory>
#include <vector>

#include <signal.h>

namespace {

constexpr int kStartTimeout = 10000;
// A byte comes with the next tick, at most a second away; the rest is for a busy machine.
constexpr int kByteTimeout = 1900;
constexpr int kMoreThanATick = 1300;

const QString kWatcher = QStringLiteral(ORVANA_WATCHER_EXECUTABLE);

using Client = std::unique_ptr<QTcpSocket>;

// The real program, ended with the test.
class Watcher final
{
public:
    explicit Watcher(const QStringList &arguments = {QStringLiteral("--port"), QStringLiteral("0")},
                     const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        process.setProcessEnvironment(environment);
        process.start(kWatcher, arguments);
        while (process.state() != QProcess::NotRunning && !process.canReadLine()) {
            if (!process.waitForReadyRead(kStartTimeout))
                break;
        }
        const QRegularExpression address(QStringLiteral("127\\.0\\.0\\.1:(\\d+)"));
        port = address.match(QString::fromUtf8(process.readLine())).captured(1).toUShort();
    }

    ~Watcher()
    {
        process.kill();
        process.waitForFinished();
    }

    Client connectClient() const
    {
        auto client = std::make_unique<QTcpSocket>();
        client->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        client->waitForConnected(kStartTimeout);
        return client;
    }

    qint64 residentKilobytes() const
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(process.processId()));
        if (!status.open(QIODevice::ReadOnly))
            return -1;
        const QRegularExpression size(QStringLiteral("VmRSS:\\s*(\\d+)"));
        return size.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong();
    }

    QProcess process;
    quint16 port = 0;
};

void verifyFailure(Watcher *watcher, int code, const QString &message)
{
    QTRY_COMPARE_WITH_TIMEOUT(watcher->process.state(), QProcess::NotRunning, kStartTimeout);
    const QString printed = QString::fromUtf8(watcher->process.readAllStandardError());
    QVERIFY2(printed.contains(message), qPrintable(printed));
    QCOMPARE(watcher->process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(watcher->process.exitCode(), code);
}

class VirtualServer final
{
public:
    explicit VirtualServer(const QStringList &arguments)
    {
        process.start(QStringLiteral("Xvfb"),
                      QStringList{QStringLiteral("-displayfd"), QStringLiteral("1"),
                                  QStringLiteral("-nolisten"), QStringLiteral("tcp")}
                          + arguments);
        while (!process.canReadLine() && process.waitForReadyRead(kStartTimeout)) { }
        environment.insert(QStringLiteral("DISPLAY"),
                           QLatin1Char(':') + QString::fromLatin1(process.readLine()).trimmed());
    }

    ~VirtualServer()
    {
        process.terminate();
        process.waitForFinished();
    }

    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

bool pressKey()
{
    return pressKeys(QStringLiteral("a"));
}

void writeConfig(const QByteArray &content)
{
    QFile file(systemConfigFile());
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
    file.write(content);
}

quint16 freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

} // namespace

class WatcherTest final : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { QFile::remove(systemConfigFile()); }

    void readsThePortAsTheClientDoes_data();
    void readsThePortAsTheClientDoes();
    void tellsNewInputFromOld_data();
    void tellsNewInputFromOld();
    void queuesAtMostOneByte();

    void reportsInputWithinTheSecond_data();
    void reportsInputWithinTheSecond();
    void reportsLastingInputOncePerSecond();
    void servesManyClients();
    void isNotHeldUpByBadClients();
    void listensOnTheConfiguredPort();
    void refusesASecondStart();
    void explainsAFailedStart_data();
    void explainsAFailedStart();
    void needsTheScreenSaverExtension();
    void endsWithTheServer();
    void endsOnSignals();
};

void WatcherTest::readsThePortAsTheClientDoes_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("port");

    QTest::newRow("no file") << QByteArray() << 7682;
    QTest::newRow("key in a section") << QByteArray("[net]\nwatcher-port=9000\n") << 7682;
    QTest::newRow("set") << QByteArray("watcher-port=9000\n") << 9000;
    QTest::newRow("not a number") << QByteArray("watcher-port=abc\n") << 0;
    QTest::newRow("too large wraps") << QByteArray("watcher-port=70000\n") << 4464;
    QTest::newRow("negative wraps") << QByteArray("watcher-port=-1\n") << 65535;
    QTest::newRow("garbage") << QByteArray("\xff\x00[[[=\n=%\n", 10) << 7682;
}

void WatcherTest::readsThePortAsTheClientDoes()
{
    QFETCH(QByteArray, content);
    if (!content.isNull())
        writeConfig(content);
    QTEST(int(configuredPort()), "port");
}

void WatcherTest::tellsNewInputFromOld_data()
{
    struct Reading
    {
        int before, after, idle;
        bool isNew;
    };
    const auto row = [](const char *name, const std::vector<Reading> &readings) {
        QVector<int> numbers;
        for (const Reading &reading : readings)
            numbers << reading.before << reading.after << reading.idle << reading.isNew;
        QTest::newRow(name) << numbers;
    };
    QTest::addColumn<QVector<int>>("numbers");

    row("the first reading never counts", {{0, 0, 0, false}});
    row("idle", {{0, 0, 500, false}, {1000, 1000, 1500, false}, {2000, 2000, 2500, false}});
    row("input once", {{0, 0, 500, false}, {1000, 1000, 200, true}, {2000, 2000, 1200, false}});
    row("input at the reading is not counted twice",
        {{0, 0, 500, false}, {1000, 1000, 0, true}, {2000, 2000, 999, false}, {3000, 3000, 1998, false}});
    row("a slow answer does not make old input new",
        {{0, 0, 100, false}, {1000, 1400, 1100, false}, {2000, 2000, 2099, false}});
    row("a late reading counts once",
        {{0, 0, 500, false}, {9000, 9000, 4000, true}, {10000, 10000, 5000, false}});
}

void WatcherTest::tellsNewInputFromOld()
{
    QFETCH(QVector<int>, numbers);
    using Milliseconds = InputMeter::Milliseconds;
    InputMeter meter;
    for (int i = 0; i < numbers.size(); i += 4) {
        const bool isNew = meter.isNewInput(Milliseconds(numbers[i]), Milliseconds(numbers[i + 1]),
                                            Milliseconds(numbers[i + 2]));
        QVERIFY2(isNew == bool(numbers[i + 3]), qPrintable(QStringLiteral("reading %1").arg(i / 4)));
    }
}

void WatcherTest::queuesAtMostOneByte()
{
    ActivityServer server;
    QString error;
    QVERIFY2(server.listen(0, &error), qPrintable(error));
    QTcpSocket client;
    client.connectToHost(QHostAddress(QHostAddress::LocalHost), server.port());
    QTRY_COMPARE(server.clientCount(), 1);

    for (int i = 0; i < 1000; ++i)
        server.announce();
    QTRY_COMPARE(client.bytesAvailable(), 1);
    server.announce();
    QTRY_COMPARE(client.bytesAvailable(), 2);

    client.abort();
    server.announce();
    QTRY_COMPARE(server.clientCount(), 0);
    server.announce();
}

void WatcherTest::reportsInputWithinTheSecond_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("key") << QStringList{QStringLiteral("key"), QStringLiteral("a")};
    QTest::newRow("button") << QStringList{QStringLiteral("click"), QStringLiteral("1")};
    QTest::newRow("wheel") << QStringList{QStringLiteral("click"), QStringLiteral("4")};
    QTest::newRow("pointer") << QStringList{QStringLiteral("mousemove_relative"), QStringLiteral("7"),
                                            QStringLiteral("5")};
}

void WatcherTest::reportsInputWithinTheSecond()
{
    QFETCH(QStringList, arguments);
    QVERIFY(pressKey()); // before the start, so it does not count
    const Watcher watcher;
    const Client client = watcher.connectClient();
    QSignalSpy arrivals(client.get(), &QTcpSocket::readyRead);
    QVERIFY(!arrivals.wait(kMoreThanATick));

    QVERIFY(xdotool(arguments.first(), arguments.mid(1)));
    QVERIFY(arrivals.wait(kByteTimeout));
    QCOMPARE(client->bytesAvailable(), 1);
    QVERIFY(!arrivals.wait(kMoreThanATick));
}

void WatcherTest::reportsLastingInputOncePerSecond()
{
    const Watcher watcher;
    const Client client = watcher.connectClient();
    QElapsedTimer elapsed;
    elapsed.start();
    while (elapsed.elapsed() < 3000) {
        QVERIFY(pressKey());
        QTest::qWait(50);
    }
    QVERIFY2(client->bytesAvailable() == 2 || client->bytesAvailable() == 3,
             qPrintable(QString::number(client->bytesAvailable())));
    QSignalSpy arrivals(client.get(), &QTcpSocket::readyRead);
    arrivals.wait(kByteTimeout);
    QVERIFY(!arrivals.wait(kMoreThanATick));
    QVERIFY2(client->bytesAvailable() == 3 || client->bytesAvailable() == 4,
             qPrintable(QString::number(client->bytesAvailable())));
}

void WatcherTest::servesManyClients()
{
    const Watcher watcher;
    std::vector<Client> clients;
    for (int i = 0; i < ActivityServer::kMaxClients; ++i)
        clients.push_back(watcher.connectClient());
    const Client excess = watcher.connectClient();
    QTRY_COMPARE(excess->state(), QAbstractSocket::UnconnectedState);

    QVERIFY(pressKey());
    for (const Client &client : clients)
        QTRY_COMPARE_WITH_TIMEOUT(client->bytesAvailable(), 1, kByteTimeout);

    // A place left is a place free.
    clients.front()->abort();
    Client next;
    const auto nextIsServed = [&] {
        next = watcher.connectClient();
        return pressKey() && next->waitForReadyRead(kByteTimeout);
    };
    QTRY_VERIFY(nextIsServed());
}

void WatcherTest::isNotHeldUpByBadClients()
{
    constexpr qint64 kFlood = 16 << 20;
    constexpr qint64 kAllowedGrowth = 6 << 10; // KiB
    const Watcher watcher;
    const qint64 before = watcher.residentKilobytes();
    QVERIFY(before > 0);

    const Client reader = watcher.connectClient();
    const Client deaf = watcher.connectClient();
    deaf->setReadBufferSize(1);
    Client vanishing = watcher.connectClient();
    vanishing->abort();
    const Client flooder = watcher.connectClient();
    flooder->write(QByteArray(kFlood, 'x'));
    QTRY_COMPARE_WITH_TIMEOUT(flooder->bytesToWrite(), 0, kStartTimeout);

    for (qint64 expected = 1; expected <= 3; ++expected) {
        QVERIFY(pressKey());
        QTRY_COMPARE_WITH_TIMEOUT(reader->bytesAvailable(), expected, kByteTimeout);
    }
    const qint64 growth = watcher.residentKilobytes() - before;
    QVERIFY2(growth < kAllowedGrowth, qPrintable(QString::number(growth)));
}

void WatcherTest::listensOnTheConfiguredPort()
{
    const quint16 configured = freePort();
    writeConfig("watcher-port=" + QByteArray::number(configured) + '\n');
    {
        const Watcher watcher((QStringList()));
        QCOMPARE(watcher.port, configured);
        QVERIFY(pressKey());
        QCOMPARE(watcher.connectClient()->state(), QAbstractSocket::ConnectedState);
    }
    const quint16 given = freePort();
    const Watcher watcher({QStringLiteral("--port=") + QString::number(given)});
    QCOMPARE(watcher.port, given);
}

void WatcherTest::refusesASecondStart()
{
    const Watcher first;
    const QString port = QString::number(first.port);
    Watcher second({QStringLiteral("--port"), port});
    verifyFailure(&second, 1, QStringLiteral("порт ") + port + QStringLiteral(" уже занят"));
    QCOMPARE(first.connectClient()->state(), QAbstractSocket::ConnectedState);
}

void WatcherTest::explainsAFailedStart_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("display");
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    const QString display = qEnvironmentVariable("DISPLAY");
    const QStringList anyPort{QStringLiteral("--port=0")};
    const auto usage = [&](const char *name, const QString &argument, const QString &message) {
        QTest::newRow(name) << QStringList{argument} << display << QByteArray() << 2 << message;
    };
    QTest::newRow("no display") << anyPort << QString() << QByteArray() << 1 << QStringLiteral("DISPLAY");
    QTest::newRow("no such display") << anyPort << QStringLiteral(":4711") << QByteArray() << 1
                                     << QStringLiteral(":4711");
    QTest::newRow("configured port is no number")
        << QStringList() << display << QByteArray("watcher-port=x\n") << 1 << QStringLiteral("watcher-port");
    usage("port too large", QStringLiteral("--port=65536"), QStringLiteral("65536"));
    usage("port empty", QStringLiteral("--port="), QStringLiteral("порт"));
    usage("port without a value", QStringLiteral("--port"), QStringLiteral("--help"));
    usage("stray argument", QStringLiteral("7682"), QStringLiteral("--help"));
}

void WatcherTest::explainsAFailedStart()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, display);
    QFETCH(QByteArray, config);
    QFETCH(QString, message);
    writeConfig(config);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("DISPLAY"));
    if (!display.isEmpty())
        environment.insert(QStringLiteral("DISPLAY"), display);

    QFETCH(int, code);
    Watcher watcher(arguments, environment);
    verifyFailure(&watcher, code, message);
}

void WatcherTest::needsTheScreenSaverExtension()
{
    const VirtualServer server({QStringLiteral("-extension"), QStringLiteral("MIT-SCREEN-SAVER")});
    Watcher watcher({QStringLiteral("--port=0")}, server.environment);
    verifyFailure(&watcher, 1, QStringLiteral("MIT-SCREEN-SAVER"));
}

void WatcherTest::endsWithTheServer()
{
    VirtualServer server({});
    Watcher watcher({QStringLiteral("--port=0")}, server.environment);
    QVERIFY(watcher.port != 0);
    server.process.kill();
    verifyFailure(&watcher, 1, QStringLiteral("X-сервер"));
}

void WatcherTest::endsOnSignals()
{
    for (const int number : {SIGTERM, SIGINT}) {
        Watcher watcher;
        const Client client = watcher.connectClient();
        ::kill(static_cast<pid_t>(watcher.process.processId()), number);
        QVERIFY(watcher.process.waitForFinished(kStartTimeout));
        QCOMPARE(watcher.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(watcher.process.exitCode(), 0);
    }
}

QTEST_GUILESS_MAIN(WatcherTest)
#include "tst_watcher.moc"
