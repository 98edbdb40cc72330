#include "activityserver.h"
#include "files.h"
#include "otheruser.h"
#include "realinput.h"
#include "rows.h"
#include "virtualdisplay.h"
#include "watcherport.h"

#include <QDeadlineTimer>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>
#include <vector>

#include <signal.h>

namespace {

constexpr int kStartTimeout = 10000;
// A byte comes at once, or a second after the last one; the rest is for a busy machine.
constexpr int kByteTimeout = 1900;
constexpr int kMoreThanASecond = 1300;
constexpr uid_t kStranger = 12345;

using Client = std::unique_ptr<QTcpSocket>;

// The real program.
class Watcher final
{
public:
    explicit Watcher(const QStringList &arguments = {s("--port=0")},
                     const QString &display = qEnvironmentVariable("DISPLAY"))
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(s("DISPLAY"), display);
        process.setProcessEnvironment(environment);
        process.start(s(ORVANA_WATCHER_EXECUTABLE), arguments);
        while (!process.canReadLine() && process.waitForReadyRead(kStartTimeout)) { }
        const QRegularExpression address(s("127\\.0\\.0\\.1:(\\d+)"));
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

    void verifyFailure(int code, const QString &message)
    {
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kStartTimeout);
        const QString printed = QString::fromUtf8(process.readAllStandardError());
        QVERIFY2(printed.contains(message), qPrintable(printed));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), code);
    }

    QProcess process;
    quint16 port = 0;
};

bool pressKey()
{
    return pressKeys(s("a"));
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

    void reportsInputWithinTheSecond()
    {
        QVERIFY(pressKey()); // before the start, so it does not count
        const Watcher watcher;
        const Client client = watcher.connectClient();
        QSignalSpy arrivals(client.get(), &QTcpSocket::readyRead);
        QVERIFY(!arrivals.wait(kMoreThanASecond));
        for (const QStringList &input :
             {texts({"key", "a"}), texts({"click", "4"}), texts({"mousemove_relative", "7", "5"})}) {
            QVERIFY(xdotool(input.first(), input.mid(1)));
            QTRY_COMPARE_WITH_TIMEOUT(client->bytesAvailable(), 1, kByteTimeout);
            QVERIFY(!arrivals.wait(kMoreThanASecond));
            client->readAll();
        }
        // A key that is held down counts until it is released.
        QVERIFY(xdotool(s("keydown"), {s("b")}));
        QTRY_COMPARE_WITH_TIMEOUT(client->bytesAvailable(), 3, 3 * kByteTimeout);
        QVERIFY(xdotool(s("keyup"), {s("b")}));
        QTRY_VERIFY(client->readAll().isEmpty() && !arrivals.wait(kMoreThanASecond));
        // Neither is input: video players do the first, other programs the second.
        QCOMPARE(QProcess::execute(s("xset"), texts({"s", "reset"})), 0);
        QVERIFY(xdotool(s("mousemove"), texts({"300", "200"})));
        QVERIFY(!arrivals.wait(kMoreThanASecond));
    }

    void reportsLastingInputOncePerSecond()
    {
        const Watcher watcher;
        const Client client = watcher.connectClient();
        const QDeadlineTimer end(2500);
        while (!end.hasExpired())
            QVERIFY(pressKey());
        QTRY_VERIFY(client->bytesAvailable() >= 2);
        QVERIFY(client->bytesAvailable() <= 3);
    }

    void isNotHeldUpByBadClients()
    {
        constexpr qint64 kFlood = 16 << 20;
        const Watcher watcher;
        const Client reader = watcher.connectClient();
        const Client deaf = watcher.connectClient();
        deaf->setReadBufferSize(1);
        watcher.connectClient()->abort();
        const Client flooder = watcher.connectClient();
        flooder->write(QByteArray(kFlood, 'x'));
        QTRY_COMPARE_WITH_TIMEOUT(flooder->bytesToWrite(), 0, kStartTimeout);
        std::vector<Client> others;
        for (int i = 0; i < ActivityServer::kMaxClients; ++i)
            others.push_back(watcher.connectClient());
        QTRY_COMPARE(others.back()->state(), QAbstractSocket::UnconnectedState);
        QVERIFY(pressKey());
        QTRY_COMPARE_WITH_TIMEOUT(reader->bytesAvailable(), 1, kByteTimeout);
        // A client that leaves makes room.
        others.front()->abort();
        Client next;
        const auto nextIsServed = [&] {
            if (!next || next->state() != QAbstractSocket::ConnectedState)
                next = watcher.connectClient();
            return pressKey() && next->waitForReadyRead(kByteTimeout);
        };
        QTRY_VERIFY(nextIsServed());
    }

    void servesOnlyItsOwnUser()
    {
        const Watcher watcher;
        std::vector<Client> strangers;
        {
            const AsUser user(kStranger);
            if (!user.changed())
                QSKIP("becoming another user needs root");
            for (int i = 0; i <= ActivityServer::kMaxClients; ++i)
                strangers.push_back(watcher.connectClient());
        }
        const Client own = watcher.connectClient();
        QVERIFY(pressKey());
        QTRY_COMPARE_WITH_TIMEOUT(own->bytesAvailable(), 1, kByteTimeout);
        for (const Client &stranger : strangers) {
            QTRY_COMPARE(stranger->state(), QAbstractSocket::UnconnectedState);
            QCOMPARE(stranger->bytesAvailable(), 0);
        }
    }

    void listensOnTheConfiguredPort()
    {
        const quint16 configured = freePort();
        // Values beyond a port's range wrap, as they do in the client.
        QVERIFY(
            writeFile(systemConfigFile(), "watcher-port=" + QByteArray::number(configured + 65536) + '\n'));
        Watcher first((QStringList()));
        QCOMPARE(first.port, configured);
        const QString port = QString::number(configured);
        Watcher({s("--port"), port}).verifyFailure(1, s("порт ") + port + s(" уже занят"));
        QCOMPARE(first.connectClient()->state(), QAbstractSocket::ConnectedState);
        QTcpSocket other; // on another address of this machine
        other.connectToHost(s("127.0.0.2"), configured);
        QVERIFY(!other.waitForConnected());
        ::kill(static_cast<pid_t>(first.process.processId()), SIGINT);
        first.verifyFailure(0, QString());
        Watcher second({s("--port"), port});
        QCOMPARE(second.port, configured);
        ::kill(static_cast<pid_t>(second.process.processId()), SIGTERM);
        second.verifyFailure(0, QString());
    }

    void explainsAFailedStart_data()
    {
        addColumns<QStringList, QString, int, QString>("arguments", "display", "code", "message");
        const QString display = qEnvironmentVariable("DISPLAY");
        QTest::newRow("no display") << texts({"--port=0"}) << "" << 1 << "DISPLAY";
        QTest::newRow("wrong display") << texts({"--port=0"}) << ":4711" << 1 << ":4711";
        QTest::newRow("configured port") << QStringList() << display << 1 << "watcher-port";
        QTest::newRow("given port") << texts({"--port=65536"}) << display << 2 << "65536";
        QTest::newRow("no port") << texts({"--port"}) << display << 2 << "--help";
        QTest::newRow("not an option") << texts({"7682"}) << display << 2 << "--help";
    }

    void explainsAFailedStart()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, display);
        QFETCH(int, code);
        QFETCH(QString, message);
        QVERIFY(writeFile(systemConfigFile(), "watcher-port=x\n"));
        Watcher(arguments, display).verifyFailure(code, message);
    }

    void needsTheServer()
    {
        const VirtualDisplay poor(texts({"-extension", "MIT-SCREEN-SAVER"}));
        Watcher({s("--port=0")}, poor.name()).verifyFailure(1, s("MIT-SCREEN-SAVER"));
        VirtualDisplay server;
        Watcher watcher({s("--port=0")}, server.name());
        QVERIFY(watcher.port != 0);
        server.kill();
        watcher.verifyFailure(1, s("X-сервер"));
    }
};

QTEST_GUILESS_MAIN(WatcherTest)
#include "tst_watcher.moc"
