#include "offlineclient.h"
#include "rows.h"
#include "urlcatcher.h"

#include <QTcpServer>
#include <QTcpSocket>

namespace {

enum class Then { Close, Reset, Wait, Pour };

constexpr int kLimit = 20000; // ms
const QString kUser = s("user");
const QByteArray kAccepted = R"({"status":"ok"})";
const QByteArray kPacked =
    QByteArray::fromHex("1f8b0800000000000203ab562a2e492c292d56b252cacf56aa0500dded131d0f000000");

// A whole reply with that body.
QByteArray ok(const QByteArray &body, const QByteArray &headers = QByteArray())
{
    return "HTTP/1.1 200 OK\r\nConnection: close\r\n" + headers
        + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// Answers every request over plain HTTP with the bytes it was given, and keeps the requests.
class ScriptedServer final : public QTcpServer
{
    Q_DISABLE_COPY_MOVE(ScriptedServer)

public:
    ScriptedServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *peer = nextPendingConnection();
            connect(peer, &QTcpSocket::disconnected, peer, &QObject::deleteLater);
            connect(peer, &QTcpSocket::readyRead, this, [this, peer] { read(peer); });
        });
        listen(QHostAddress::LocalHost);
    }

    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(serverPort()); }

    QByteArray reply = ok(kAccepted);
    Then then = Then::Close;
    QList<QByteArray> requests;

private:
    void read(QTcpSocket *peer)
    {
        static const QRegularExpression length(s("content-length: (\\d+)"),
                                               QRegularExpression::CaseInsensitiveOption);
        const QByteArray sofar = peer->peek(peer->bytesAvailable());
        const int end = sofar.indexOf("\r\n\r\n");
        if (end < 0 || sofar.size() < end + 4 + length.match(QString::fromLatin1(sofar)).captured(1).toInt())
            return;
        requests.append(peer->readAll());
        peer->write(reply);
        if (then == Then::Reset)
            peer->abort();
        else if (then == Then::Close)
            peer->disconnectFromHost();
        else if (then == Then::Pour)
            connect(peer, &QTcpSocket::bytesWritten, peer, [peer] {
                if (peer->bytesToWrite() == 0)
                    peer->write(QByteArray(1024 * 1024, 'x'));
            });
    }
};

// A gzip stream of nothing but zeros: as many kilobytes as it becomes megabytes.
QByteArray inflatable()
{
    constexpr int size = 64 * 1024 * 1024;
    constexpr int before = 4 + 2; // qCompress() puts the length and a zlib header first
    // Its end is left off, with the wrong checksum.
    return QByteArray("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10)
        + qCompress(QByteArray(size, '\0'), 9).mid(before).chopped(8);
}

} // namespace

Q_DECLARE_METATYPE(Then)

// Whatever becomes of a reply, the minute stays on the disk, the next one is delivered,
// and the service cannot fill the memory.
class TestServiceFaults final : public QObject
{
    Q_OBJECT

private slots:
    void minutes_data()
    {
        addColumns<QByteArray, Then, QString>("reply", "then", "logged");
        const auto row = [](QByteArray name, const QByteArray &reply, Then then = Then::Close,
                            const char *logged = "Reply finished:") {
            QTest::newRow(name.replace("\r\n", " ").constData()) << reply << then << s(logged);
        };
        const QByteArray whole = ok(kAccepted);
        row("reset", "", Then::Reset);
        row("closed at once", "");
        row("no HTTP", "SSH-2.0-OpenSSH\r\n");
        row("closed in the body", whole.chopped(3));
        row("reset in the body", whole.chopped(3), Then::Reset);
        row("closed in the head", "HTTP/1.1 200 OK\r\nContent-");
        const char *gzip = "Content-Encoding: gzip\r\n";
        row("false gzip", ok(kAccepted, gzip));
        row("cut gzip", ok(kPacked.chopped(9), gzip));
        row("other gzip", ok(kPacked, "Content-Encoding: br\r\n"));
        row("gzip and more", ok(kPacked + kPacked, gzip));
        for (const char *status : {"103 Early Hints", "301 Moved\r\nLocation: https://127.0.0.1:9/",
                                   "307 Temporary\r\nLocation: /elsewhere",
                                   "401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"x\"",
                                   "407 Proxy\r\nProxy-Authenticate: Basic realm=\"x\"", "404 Not Found",
                                   "429 Too Many Requests\r\nRetry-After: 3600", "500 Internal", "503 Busy"})
            row(status, QByteArray("HTTP/1.1 ") + status + "\r\n\r\n" + kAccepted);
        row("nothing", "HTTP/1.1 204 No Content\r\n\r\n", Then::Close, "Activity not sended");
        row("no ok", ok("<html>" + kAccepted), Then::Close, "Activity not sended");
        const char *tooLong = "Error! Reply is too long";
        row("50 megabytes", ok(kAccepted + QByteArray(50 * 1024 * 1024, ' ')), Then::Close, tooLong);
        row("without end", "HTTP/1.1 200 OK\r\n\r\n", Then::Pour, tooLong);
        row("swells up", ok(inflatable(), gzip), Then::Close, tooLong);
    }

    void minutes()
    {
        QFETCH(QByteArray, reply);
        QFETCH(Then, then);
        QFETCH(QString, logged);
        OfflineClient client(kUser);
        ScriptedServer server;
        client.restart(server.url());
        client.session()->setOnline(true);
        QSignalSpy states(client.get(), &Orvana::onlineChanged);
        server.reply = reply;
        server.then = then;
        QTest::ignoreMessage(logged.startsWith(s("Error")) ? QtWarningMsg : QtDebugMsg,
                             QRegularExpression(logged));
        client->sendTaskActivity(1);
        QTRY_COMPARE_WITH_TIMEOUT(client->pendingActivityRequests(), 0, kLimit);
        QCOMPARE(client.records(), 1);
        const bool isAnswered = logged.contains(s("sended"));
        QCOMPARE(states, isAnswered ? QList<QVariantList>() : QList<QVariantList>{{QString()}});

        server.reply = ok(kPacked, "Content-Encoding: GZIP\r\nSet-Cookie: a=b\r\n");
        server.then = Then::Close;
        server.requests.clear();
        client->sendTaskActivity(2);
        QTRY_COMPARE_WITH_TIMEOUT(client.records(), 0, kLimit);
        QCOMPARE(server.requests.size(), 2);
        QVERIFY(!server.requests.last().contains("Cookie"));
        QVERIFY(client.session()->isOnline());
    }

    // Requests wait without limit. The minutes after it are sent all the same; what
    // waits on the disk is sent after the next start at the latest.
    void silence_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("no word") << QByteArray();
        QTest::newRow("half a body") << ok(kAccepted).chopped(3);
    }

    void silence()
    {
        QFETCH(QByteArray, reply);
        OfflineClient client(kUser);
        ScriptedServer server;
        client.restart(server.url());
        server.reply = reply;
        server.then = Then::Wait;
        client->sendTaskActivity(1);
        QTRY_COMPARE_WITH_TIMEOUT(server.requests.size(), 1, kLimit);
        server.reply = ok(kAccepted);
        server.then = Then::Close;
        client->sendTaskActivity(2);
        client->sendTaskActivity(3);
        QTRY_COMPARE_WITH_TIMEOUT(client.records(), 1, kLimit);
        client.restart(server.url());
        client->sendTaskActivity(4);
        QTRY_COMPARE_WITH_TIMEOUT(client.records(), 0, kLimit);
    }

    // With nothing answered for hours, requests must not pile up in memory, nor records
    // be forgotten when the answers come.
    void moreThanTheNetworkTakes()
    {
        constexpr int minutes = 150;
        OfflineClient client(kUser);
        for (int i = 0; i < minutes; ++i)
            client->sendTaskActivity(i);
        QCOMPARE(client.records(), minutes);
        auto requests = client.takeRequests();
        QCOMPARE(requests.size(), 100);
        for (; !requests.isEmpty(); requests = client.takeRequests()) {
            for (const auto &request : qAsConst(requests))
                client.answer(request, kAccepted);
            client.runQueued();
        }
        QCOMPARE(client.records(), 0);
        QCOMPARE(client->pendingActivityRequests(), 0);
    }

    // A redirection may lead anywhere; login and password do not go along.
    void credentialsStayHere()
    {
        for (const char *status : {"301 M", "302 F", "303 S", "307 T", "308 P"}) {
            OfflineClient client(kUser);
            ScriptedServer server;
            const ScriptedServer elsewhere;
            client.restart(server.url());
            server.reply = QByteArray("HTTP/1.1 ") + status + "\r\nLocation: " + elsewhere.url()
                + "/api_teams_tasks\r\nConnection: close\r\n\r\n";
            client->requestTeamsAndTasks();
            client->requestTimeSync(s("1"));
            client->requestDeadlineChange(QDate(2024, 3, 1), s("?"), QTime(18, 0));
            const auto *network = client->findChild<QNetworkAccessManager *>();
            QTRY_VERIFY_WITH_TIMEOUT(network->findChildren<QNetworkReply *>().isEmpty(), kLimit);
            QVERIFY(server.requests.size() >= 3); // one whose connection breaks may be repeated
            QVERIFY(elsewhere.requests.isEmpty());
        }
    }

    // Ids and addresses come from the service; the desktop opens web pages only.
    void opened_data()
    {
        // "id:" before the id of a task
        addRows({{"id:7", "https://service.invalid/task?id=7"},
                 {"id:7&login=x#y", "https://service.invalid/task?id=7%26login%3Dx%23y"},
                 {"id:../../x?y", "https://service.invalid/task?id=..%2F..%2Fx%3Fy"},
                 {"id:--help $(x) `x` %s%n",
                  "https://service.invalid/task?id=--help %24%28x%29 %60x%60 %25s%25n"},
                 {"HTTPS://page.invalid/a", "https://page.invalid/a"}});
        for (const char *refused : {"file:///etc/passwd", "FILE:/etc/passwd", "javascript:alert(1)",
                                    "mailto:a@b", "data:text/html,x", "/etc/passwd", "--help", ""})
            QTest::newRow(refused) << s(refused) << QString();
    }

    void opened()
    {
        QFETCH(QString, input);
        OfflineClient client;
        const UrlCatcher desktop;
        if (input.startsWith(s("id:")))
            client->openTaskUrl(input.mid(3));
        else
            client->openUrl(input);
        QTEST(desktop.opened.join(QLatin1Char('|')), "result");
    }
};

QTEST_MAIN(TestServiceFaults)

#include "tst_servicefaults.moc"
