#include "activityserver.h"
#include "descriptorstore.h"
#include "fakecompositor.h"
#include "files.h"
#include "idlesource.h"
#include "otheruser.h"
#include "realinput.h"
#include "rows.h"
#include "sourcechoice.h"
#include "virtualdisplay.h"
#include "watcherport.h"

#include <QtNetwork>

#include <memory>
#include <vector>

#include <signal.h>

Q_DECLARE_METATYPE(Session)

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
                     const QString &display = qEnvironmentVariable("DISPLAY"),
                     const QStringList &starter = QStringList())
    {
        process.start(s("env"),
                      QStringList(s("DISPLAY=") + display) + starter
                          + QStringList(s(ORVANA_WATCHER_EXECUTABLE)) + arguments);
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

class FakeSource final : public IdleSource
{
public:
    QString name() const override { return QString(); }
    // "add", "idle" or "use" and a seat.
    void act(const QString &action)
    {
        const quint32 seat = action.rightRef(1).toUInt();
        if (seat == 0)
            return;
        action.startsWith(s("add")) ? addSeat(seat) : setIdle(seat, action.startsWith(s("idle")));
    }
};

constexpr char kCompositor[] = "orvana-test";

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
        Watcher({s("--source=wayland")}).verifyEnd(2, s("wayland"));
        VirtualDisplay server;
        Watcher watcher(kAnyPort, server.name());
        QVERIFY(watcher.port != 0);
        server.kill();
        watcher.verifyEnd(1, s("X-сервер"));
    }

    void choice_data()
    {
        addColumns<Session, int>("session", "source");
        const auto add = [](const char *name, const Session &session, std::optional<SourceKind> source) {
            QTest::newRow(name) << session << (source ? int(*source) : -1);
        };
        using Kind = SourceKind;
        add("nothing", {}, Kind::X11);
        add("X11 with a nested compositor", {{}, s("x11"), true, true, true, true}, Kind::X11);
        add("console with a compositor", {{}, s("tty"), true, false, true, true}, Kind::KWinIdle);
        add("all", {{}, s("wayland"), true, true, true, true}, Kind::ExtIdle);
        add("Mutter", {{}, s("wayland"), false, false, false, true}, Kind::Mutter);
        add("none", {{}, s("wayland"), true}, {});
        add("X11 wanted", {Kind::X11, s("wayland"), true, true}, Kind::X11);
        add("another wanted", {Kind::KWinIdle, s("x11"), true, true, true, true}, Kind::KWinIdle);
        add("what is not there wanted", {Kind::Mutter, s("wayland"), true, true, true}, {});
    }
    void choice()
    {
        QFETCH(Session, session);
        const std::optional<SourceKind> source = chooseSource(session);
        QTEST(source ? int(*source) : -1, "source");
    }

    // What happens every 200 ms, and how many reports there are within 3.3 s. All at once: it takes long.
    void idleTimes()
    {
        const QString add = s("add 1"), idle = s("idle 1"), use = s("use 1"), no;
        struct Case
        {
            const char *name;
            QStringList actions;
            int reports;
            FakeSource source;
        };
        Case cases[] = {
            {"nobody", {add, idle}, 0, {}},
            {"in use from the start", {add}, 3, {}},
            {"at once", {add, idle, use, idle}, 1, {}},
            {"later", {add, idle, no, no, no, no, no, use, idle}, 1, {}},
            {"two bursts", {add, idle, use, no, no, no, no, no, no, no, idle}, 2, {}},
            {"two seats", {add, idle, s("add 2"), s("idle 2"), use, s("use 2"), idle}, 3, {}},
        };
        QTimer clock;
        for (Case &each : cases) {
            clock.callOnTimeout(&each.source,
                                [&each, step = 0]() mutable { each.source.act(each.actions.value(step++)); });
            connect(&each.source, &ActivitySource::active, this, [&each] { --each.reports; });
        }
        clock.setTimerType(Qt::PreciseTimer);
        clock.start(200);
        QTest::qWait(3500);
        for (const Case &each : cases)
            QVERIFY2(each.reports == 0, each.name);
    }

    // The compositor comes after the watcher, goes, and comes again with something else.
    void outlivesCompositors()
    {
        const QStringList session{s("XDG_SESSION_TYPE=wayland"), s("WAYLAND_DISPLAY=") + s(kCompositor)};
        Watcher watcher(kAnyPort, QString(), session);
        const Client client = watcher.connectClient();
        for (const int version : {2, 1}) {
            FakeCompositor compositor(kCompositor, version);
            QTRY_COMPARE_WITH_TIMEOUT(compositor.requests, QByteArray::number(version), kStartTimeout);
            compositor.say(true);
            QVERIFY(client->readAll().isEmpty());
            compositor.say(false);
            QTRY_COMPARE(client->bytesAvailable(), 1);
            compositor.say(true);
            client->readAll();
            // Silence, as when a program keeps the screen on: only version 2 needs no probe.
            if (version == 1) {
                QTRY_VERIFY_WITH_TIMEOUT(client->bytesAvailable() > 0, kStartTimeout);
                QCOMPARE(compositor.requests, QByteArray("11"));
                compositor.hang(); // which is not known before the next second
                QSignalSpy arrivals(client.get(), &QTcpSocket::readyRead);
                arrivals.wait(kMoreThanASecond);
                QVERIFY(!arrivals.wait(kMoreThanASecond));
                client->readAll();
            } else {
                QVERIFY(!QSignalSpy(client.get(), &QTcpSocket::readyRead).wait(5500));
                QCOMPARE(compositor.requests, QByteArray("2"));
            }
        }
        const FakeCompositor poor(kCompositor, 0);
        watcher.process.readAllStandardOutput();
        QTRY_COMPARE_WITH_TIMEOUT(watcher.process.state(), QProcess::NotRunning, 2 * kStartTimeout);
        watcher.verifyEnd(3, s("Wayland"));
    }

    void keepsConnections()
    {
        const QByteArray path = qgetenv("XDG_RUNTIME_DIR") + "/notify";
        DescriptorStore store(path);
        const auto start = [&] {
            return std::make_unique<Watcher>(kAnyPort, qEnvironmentVariable("DISPLAY"),
                                             QStringList{s("NOTIFY_SOCKET=") + s(path.constData()), s("bash"),
                                                         s("-c"), store.start(), s("bash")});
        };
        auto watcher = start();
        const quint16 port = watcher->port;
        const Client client = watcher->connectClient();
        const Client leaver = watcher->connectClient();
        QTRY_COMPARE(store.kept().size(), 3U);
        QTcpServer server; // neither of these may come back
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket closed;
        QTcpSocket stranger;
        closed.connectToHost(QHostAddress::LocalHost, server.serverPort());
        QVERIFY(closed.waitForConnected() && server.waitForNewConnection(kStartTimeout));
        store.add("client-closed", ::dup(int(server.nextPendingConnection()->socketDescriptor())));
        closed.abort();
        if (const AsUser user(12345); user.changed()) {
            stranger.connectToHost(QHostAddress::LocalHost, server.serverPort());
            QVERIFY(server.waitForNewConnection(kStartTimeout));
            store.add("client-stranger", ::dup(int(server.nextPendingConnection()->socketDescriptor())));
        }
        store.add("file", ::open("/dev/null", O_RDONLY));
        for (int i = 0; i < 3; ++i) {
            i == 0 ? watcher->process.terminate() : watcher->process.kill(); // a restart, or its death
            QVERIFY(watcher->process.waitForFinished());
            const Client queued = watcher->connectClient(); // nobody accepts it yet
            watcher = start();
            QCOMPARE(watcher->port, port);
            QTRY_COMPARE(store.kept().size(), 4U);
            QVERIFY(pressKeys(s("a")));
            for (QTcpSocket *each : {client.get(), leaver.get(), queued.get()}) {
                QTRY_VERIFY_WITH_TIMEOUT(each->bytesAvailable() > 0, kByteTimeout);
                each->readAll();
            }
            queued->abort();
            QTRY_COMPARE(store.kept().size(), 3U);
        }
        leaver->disconnectFromHost();
        QTRY_COMPARE(store.kept().size(), 2U);
        QCOMPARE(stranger.bytesAvailable(), 0);
    }
};

QTEST_GUILESS_MAIN(WatcherTest)
#include "tst_watcher.moc"
