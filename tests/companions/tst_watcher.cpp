#include "activityserver.h"
#include "files.h"
#include "otheruser.h"
#include "realinput.h"
#include "rows.h"
#include "virtualdisplay.h"
#include "watcherport.h"

#include <QtNetwork>

#include <memory>
#include <vector>

#include <signal.h>

namespace {

constexpr int kStartTimeout = 10000; // ms
// A byte comes at once, or a second after the last one; the rest is for a busy machine.
constexpr int kByteTimeout = 1900;
constexpr int kMoreThanASecond = 1300;
const QStringList kAnyPort{s("--port=0")};
const QStringList kConfiguredPort;

using Client = std::unique_ptr<QTcpSocket>;

// The real program.
class Watcher final
{
public:
    explicit Watcher(const QStringList &arguments = kAnyPort,
                     const QString &display = qEnvironmentVariable("DISPLAY"))
    {
        process.start(s("env"),
                      QStringList{s("DISPLAY=") + display, s(ORVANA_WATCHER_EXECUTABLE)} + arguments);
        while (!process.canReadLine() && process.waitForReadyRead(kStartTimeout)) { }
        port = QString::fromUtf8(process.readLine()).section(s("127.0.0.1:"), 1).trimmed().toUShort();
    }
    Client connectClient() const
    {
        auto client = std::make_unique<QTcpSocket>();
        client->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        client->waitForConnected(kStartTimeout);
        return client;
    }

    void verifyEnd(int code, const QString &message)
    {
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kStartTimeout);
        const QString printed = QString::fromUtf8(process.readAllStandardError());
        QVERIFY2(printed.contains(message), qPrintable(printed));
        QCOMPARE(process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, code);
    }

    QProcess process;
    quint16 port = 0;
};

} // namespace

class WatcherTest final : public QObject
{
    Q_OBJECT

private slots:
    void reportsInputWithinTheSecond()
    {
        QVERIFY(pressKeys(s("a"))); // before the start, so it does not count
        const Watcher watcher;
        const Client client = watcher.connectClient();
        QSignalSpy arrivals(client.get(), &QTcpSocket::readyRead);
        QVERIFY(!arrivals.wait(kMoreThanASecond));
        // Shift held down does not repeat: it is input twice.
        for (const QStringList &input :
             {texts({"key", "a"}), texts({"click", "4"}), texts({"mousemove_relative", "7", "5"}),
              texts({"keydown", "Shift_L"}), texts({"keyup", "Shift_L"})}) {
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

    void isNotHeldUpByOthers()
    {
        const Watcher watcher;
        const auto crowd = [&watcher] {
            std::vector<Client> clients;
            for (int i = 0; i <= ActivityServer::kMaxClients; ++i)
                clients.push_back(watcher.connectClient());
            return clients;
        };
        std::vector<Client> strangers;
        if (const AsUser user(12345); user.changed())
            strangers = crowd();
        const Client flooder = watcher.connectClient();
        flooder->write(QByteArray(16 << 20, 'x'));
        QTRY_COMPARE_WITH_TIMEOUT(flooder->bytesToWrite(), 0, kStartTimeout);
        const Client reader = watcher.connectClient();
        QVERIFY(pressKeys(s("a")));
        QTRY_COMPARE_WITH_TIMEOUT(reader->bytesAvailable(), 1, kByteTimeout);
        for (const Client &stranger : strangers) {
            QTRY_COMPARE(stranger->state(), QAbstractSocket::UnconnectedState);
            QCOMPARE(stranger->bytesAvailable(), 0);
        }
        const std::vector<Client> own = crowd();
        QTRY_COMPARE(own.back()->state(), QAbstractSocket::UnconnectedState);
        own.front()->abort();
        Client next;
        const auto nextIsServed = [&] {
            if (!next || next->state() != QAbstractSocket::ConnectedState)
                next = watcher.connectClient();
            return pressKeys(s("a")) && next->waitForReadyRead(kByteTimeout);
        };
        QTRY_VERIFY(nextIsServed());
    }

    void listensOnTheConfiguredPort()
    {
        const quint16 port = Watcher().port; // free again
        // Values beyond a port's range wrap, as they do in the client.
        QVERIFY(writeFile(systemConfigFile(), "watcher-port=" + QByteArray::number(port + 65536) + '\n'));
        for (const int signal : {SIGINT, SIGTERM}) {
            Watcher watcher(kConfiguredPort);
            QCOMPARE(watcher.port, port);
            Watcher(kConfiguredPort).verifyEnd(1, s("порт %1 уже занят").arg(port));
            QTcpSocket other; // on another address of this machine
            other.connectToHost(s("127.0.0.2"), port);
            QVERIFY(!other.waitForConnected());
            ::kill(static_cast<pid_t>(watcher.process.processId()), signal);
            watcher.verifyEnd(0, QString());
        }
    }

    void explainsItsEnd()
    {
        QVERIFY(writeFile(systemConfigFile(), "watcher-port=x\n"));
        Watcher(kAnyPort, QString()).verifyEnd(1, s("DISPLAY"));
        Watcher(kConfiguredPort).verifyEnd(1, s("watcher-port"));
        Watcher({s("--port=65536")}).verifyEnd(2, s("65536"));
        const VirtualDisplay poor(texts({"-extension", "MIT-SCREEN-SAVER"}));
        Watcher(kAnyPort, poor.name()).verifyEnd(1, s("MIT-SCREEN-SAVER"));
        VirtualDisplay server;
        Watcher watcher(kAnyPort, server.name());
        QVERIFY(watcher.port != 0);
        server.kill();
        watcher.verifyEnd(1, s("X-сервер"));
    }
};

QTEST_GUILESS_MAIN(WatcherTest)
#include "tst_watcher.moc"
