#include "files.h"
#include "otheruser.h"
#include "rows.h"
#include "tracking/x11_useractivitywatcher.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

Q_DECLARE_METATYPE(QHostAddress)

namespace {
constexpr uid_t kStranger = 12345;
}

// The test is the watcher.
class TestWatcherConnection final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_folder.isValid()); }

    void cleanup()
    {
        UserActivityWatcher::instance()->stopWatch();
        QCoreApplication::processEvents();
    }

    void port_data()
    {
        addRows({{"other=1", "7682"},
                 {"watcher-port=9000", "9000"},
                 {"[net]\nwatcher-port=9000", "7682"},
                 {"watcher-port=abc", "0"},
                 {"watcher-port=74536", "9000"},
                 {"watcher-port=-1", "65535"},
                 {"\xff\xfe[=\n\n\x01", "7682"}});
    }
    void port()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        configure(input.toUtf8());
        QCOMPARE(int(getPort()), result.toInt());
        QVERIFY(QFile::remove(qEnvironmentVariable("ORVANA_CONFIG")));
        QCOMPARE(int(getPort()), 7682);
    }

    void bytesAreActivity()
    {
        QTcpServer watcher;
        auto connection = connectClient(watcher);
        QVERIFY(connection);
        QSignalSpy activity(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity);
        int events = 0;
        const auto send = [&](const QByteArray &bytes) {
            connection->write(bytes);
            connection->flush();
            ++events;
        };
        // Whatever the bytes are; a burst that is read at once is one event.
        for (const QByteArray &chunk : {QByteArray("a"), QByteArray(1, '\0'), QByteArray(1000, 'x')}) {
            send(chunk);
            QTRY_COMPARE(activity.count(), events);
        }
        // The last bytes count; the end itself is no activity.
        send("x");
        connection->disconnectFromHost();
        QTRY_COMPARE(connection->state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(activity.count(), events);
        // The next start of the watch finds the socket free.
        UserActivityWatcher::instance()->stopWatch();
        watcher.close();
        connection = connectClient(watcher);
        QVERIFY(connection);
        send("x");
        QTRY_COMPARE(activity.count(), events);
    }

    void floodLeavesTheClientResponsive()
    {
        constexpr int size = 32 * 1024 * 1024;
        QTcpServer watcher;
        const auto connection = connectClient(watcher);
        QVERIFY(connection);
        QSignalSpy activity(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity);
        connection->write(QByteArray(size, 'x'));
        QTRY_COMPARE_WITH_TIMEOUT(connection->bytesToWrite(), 0, 30000);
        // In small pieces, between which the event loop runs.
        QVERIFY(activity.count() > 100);
    }

    // Other programs may sit on the watcher's port.
    void listener_data()
    {
        addColumns<QHostAddress>("address");
        addColumns<uid_t>("owner");
        addColumns<bool>("isTrusted");
        const uid_t own = geteuid();
        const QHostAddress ipv4(QHostAddress::AnyIPv4);
        const QHostAddress both(QHostAddress::Any);
        QTest::newRow("own, IPv4") << ipv4 << own << true;
        QTest::newRow("own, both families") << both << own << true;
        QTest::newRow("system's") << QHostAddress(QHostAddress::LocalHost) << uid_t(101) << true;
        QTest::newRow("stranger's") << QHostAddress(QHostAddress::LocalHost) << kStranger << false;
        QTest::newRow("stranger's, IPv4") << ipv4 << kStranger << false;
        QTest::newRow("stranger's, both families") << both << kStranger << false;
    }
    void listener()
    {
        QFETCH(QHostAddress, address);
        QFETCH(uid_t, owner);
        QFETCH(bool, isTrusted);
        QTcpServer watcher;
        {
            const AsUser user(owner);
            if (!user.changed())
                QSKIP("becoming another user needs root");
            QVERIFY(watcher.listen(address));
        }
        // Whoever has the port for IPv6 alone is not the one who is called.
        QTcpServer neighbour;
        if (address.protocol() == QAbstractSocket::IPv4Protocol && geteuid() == 0) {
            const AsUser user(kStranger);
            QVERIFY(neighbour.listen(QHostAddress::AnyIPv6, watcher.serverPort()));
        }
        configurePort(watcher.serverPort());
        QSignalSpy activity(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity);
        QCOMPARE(UserActivityWatcher::instance()->startWatch(), isTrusted);
        QTRY_VERIFY(watcher.hasPendingConnections());
        const std::unique_ptr<QTcpSocket> connection(watcher.nextPendingConnection());
        connection->write("x");
        if (isTrusted)
            QTRY_COMPARE(activity.count(), 1);
        else
            QTRY_COMPARE(connection->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(activity.count(), int(isTrusted));
    }

    void lateAccept_data()
    {
        addColumns<uid_t>("owner");
        addColumns<bool>("isTrusted");
        QTest::newRow("own") << geteuid() << true;
        QTest::newRow("stranger's") << kStranger << false;
    }
    // The queue of those who wait to be accepted is full: the connection is made
    // only when the watcher has taken the first of them.
    void lateAccept()
    {
        QFETCH(uid_t, owner);
        QFETCH(bool, isTrusted);
        auto user = std::make_unique<AsUser>(owner);
        if (!user->changed())
            QSKIP("becoming another user needs root");
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        QVERIFY(::bind(listener, reinterpret_cast<sockaddr *>(&address), length) == 0
                && ::listen(listener, 0) == 0
                && ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0);
        user.reset();
        const int filler = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        QCOMPARE(::connect(filler, reinterpret_cast<sockaddr *>(&address), length), 0);
        configurePort(ntohs(address.sin_port));

        QElapsedTimer time;
        time.start();
        QVERIFY(!UserActivityWatcher::instance()->startWatch());
        QVERIFY(time.elapsed() >= 90);

        // The attempt is not cancelled, and a connection to the user's own watcher counts.
        QSignalSpy activity(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity);
        ::close(::accept(listener, nullptr, nullptr));
        const int client = ::accept(listener, nullptr, nullptr);
        QVERIFY(client >= 0);
        QCOMPARE(::send(client, "x", 1, MSG_NOSIGNAL), static_cast<ssize_t>(1));
        if (isTrusted)
            QVERIFY(activity.count() > 0 || activity.wait());
        else // The end of the connection comes without any activity.
            QTRY_VERIFY(::recv(client, &address, 1, MSG_DONTWAIT) == 0 || errno == ECONNRESET);
        QCOMPARE(activity.count(), int(isTrusted));
        for (const int descriptor : {client, filler, listener})
            ::close(descriptor);
    }

private:
    void configure(const QByteArray &text)
    {
        // A new name each time: two writes of one moment look the same to a cache.
        const QString path = m_folder.filePath(QString::number(++m_configs));
        QVERIFY(writeFile(path, text));
        qputenv("ORVANA_CONFIG", QFile::encodeName(path));
    }
    void configurePort(int port) { configure("watcher-port=" + QByteArray::number(port) + '\n'); }
    // The watcher's end of a connection that startWatch() made.
    std::unique_ptr<QTcpSocket> connectClient(QTcpServer &watcher)
    {
        if (!watcher.listen(QHostAddress::LocalHost))
            return nullptr;
        configurePort(watcher.serverPort());
        if (!UserActivityWatcher::instance()->startWatch())
            return nullptr;
        if (!watcher.hasPendingConnections() && !watcher.waitForNewConnection(1000))
            return nullptr;
        return std::unique_ptr<QTcpSocket>(watcher.nextPendingConnection());
    }

    QTemporaryDir m_folder;
    int m_configs = 0;
};

QTEST_GUILESS_MAIN(TestWatcherConnection)
#include "tst_watcher_connection.moc"
