#include "files.h"
#include "otheruser.h"
#include "rows.h"
#include "tracking/x11_useractivitywatcher.h"

#include <QtNetwork>

#include <sys/socket.h>

constexpr uid_t kStranger = 12345;

// The test is the watcher.
class TestWatcherConnection final : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        UserActivityWatcher::instance()->stopWatch();
        QCoreApplication::processEvents();
    }

    void port()
    {
        // Beyond a port's range it wraps.
        for (const auto &[text, port] :
             {std::pair{"other=1", 7682}, {"watcher-port=x", 0}, {"watcher-port=74536", 9000}}) {
            configure(s(text));
            QCOMPARE(int(getPort()), port);
        }
    }

    // In small pieces, between which the event loop runs; the end itself is no activity.
    void floodIsActivity()
    {
        QTcpServer watcher;
        QVERIFY(watcher.listen(QHostAddress::LocalHost));
        configurePort(watcher);
        QSignalSpy activity(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity);
        QVERIFY(UserActivityWatcher::instance()->startWatch());
        QTRY_VERIFY(watcher.hasPendingConnections());
        QTcpSocket *connection = watcher.nextPendingConnection();
        connection->write(QByteArray(32 << 20, 'x'));
        QTRY_COMPARE_WITH_TIMEOUT(connection->bytesToWrite(), 0, 30000);
        QTRY_VERIFY(!activity.wait(50));
        const int events = activity.count();
        QVERIFY(events > 100);
        connection->disconnectFromHost();
        QTRY_COMPARE(connection->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(activity.count(), events);
    }

    // Other programs may sit on the watcher's port. Late is a watcher with a full queue: the connection is
    // made only when it has taken the first one from it.
    void listener_data()
    {
        addColumns<int, uid_t, bool, bool>("address", "owner", "isLate", "isTrusted");
        QTest::newRow("own, IPv4") << int(QHostAddress::AnyIPv4) << geteuid() << false << true;
        QTest::newRow("system's") << int(QHostAddress::LocalHost) << uid_t(101) << false << true;
        QTest::newRow("stranger's") << int(QHostAddress::LocalHost) << kStranger << false << false;
        QTest::newRow("stranger's, both families") << int(QHostAddress::Any) << kStranger << false << false;
        QTest::newRow("own, late") << int(QHostAddress::LocalHost) << geteuid() << true << true;
        QTest::newRow("first person's")
            << int(QHostAddress::LocalHost) << uid_t(1000) << false << (geteuid() == 1000);
        QTest::newRow("stranger's, late") << int(QHostAddress::LocalHost) << kStranger << true << false;
    }
    void listener()
    {
        QFETCH(int, address);
        QFETCH(uid_t, owner);
        QFETCH(bool, isLate);
        QFETCH(bool, isTrusted);
        const auto listen = [](QTcpServer &server, uid_t user, int where, quint16 port = 0) {
            const AsUser asUser(user);
            return asUser.changed() && server.listen(QHostAddress::SpecialAddress(where), port);
        };
        QTcpServer watcher;
        if (!listen(watcher, owner, address))
            QSKIP("becoming another user needs root");
        // Whoever has the port for IPv6 alone is not the one who is called.
        QTcpServer neighbour;
        if (address == QHostAddress::AnyIPv4)
            listen(neighbour, kStranger, QHostAddress::AnyIPv6, watcher.serverPort());
        QTcpSocket first;
        if (isLate) {
            watcher.pauseAccepting();
            ::listen(static_cast<int>(watcher.socketDescriptor()), 0);
            first.connectToHost(QHostAddress::LocalHost, watcher.serverPort());
            QVERIFY(first.waitForConnected());
        }
        configurePort(watcher);
        QSignalSpy activity(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity);
        QCOMPARE(UserActivityWatcher::instance()->startWatch(), isTrusted && !isLate);
        watcher.resumeAccepting();
        QTcpSocket *connection = nullptr;
        for (int i = isLate ? 2 : 1; i > 0; --i) {
            QTRY_VERIFY(watcher.hasPendingConnections());
            connection = watcher.nextPendingConnection();
        }
        connection->write("x");
        if (isTrusted)
            QTRY_COMPARE(activity.count(), 1);
        else
            QTRY_COMPARE(connection->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(activity.count(), int(isTrusted));
    }

private:
    void configure(const QString &text)
    {
        // A new name each time: two writes of one moment look the same to a cache.
        const QString path = m_folder.filePath(QString::number(++m_configs));
        QVERIFY(writeFile(path, text.toUtf8()));
        qputenv("ORVANA_CONFIG", QFile::encodeName(path));
    }
    void configurePort(const QTcpServer &watcher)
    {
        configure(s("watcher-port=%1\n").arg(watcher.serverPort()));
    }

    QTemporaryDir m_folder;
    int m_configs = 0;
};

QTEST_GUILESS_MAIN(TestWatcherConnection)
#include "tst_watcher_connection.moc"
