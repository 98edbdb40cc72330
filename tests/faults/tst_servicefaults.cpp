#include "offlineclient.h"
#include "rows.h"
#include "scriptedserver.h"
#include "update/orvanaupdate.h"
#include "urlcatcher.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using Then = ScriptedServer::Then;
Q_DECLARE_METATYPE(Then)

namespace {

constexpr int kLimit = 20000; // ms
const QString kUser = s("user");
const QByteArray kAccepted = R"({"status":"ok"})";
QStringList s_log;

// While one exists, the log lines are kept.
class LogKeeper final
{
    Q_DISABLE_COPY_MOVE(LogKeeper)

public:
    LogKeeper() { s_log.clear(); }
    ~LogKeeper() { qInstallMessageHandler(m_before); }

private:
    QtMessageHandler m_before = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &message) { s_log.append(message); });
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

// The value itself and then each value inside it replaced by another one.
void eachVariant(const QJsonValue &value, const QJsonValue &other,
                 const std::function<void(const QJsonValue &)> &found)
{
    found(other);
    QJsonArray array = value.toArray();
    for (int i = 0; i < array.size(); ++i)
        eachVariant(array.at(i), other, [&, copy = array](const QJsonValue &changed) mutable {
            copy[i] = changed;
            found(copy);
        });
    const QJsonObject object = value.toObject();
    for (const QString &key : object.keys())
        eachVariant(object.value(key), other, [&, copy = object](const QJsonValue &changed) mutable {
            copy[key] = changed;
            found(copy);
        });
}

} // namespace

// Whatever the service answers, the minute stays on the disk, the next one is delivered,
// and the service cannot fill the memory.
class TestServiceFaults final : public QObject
{
    Q_OBJECT

private slots:
    void minutes_data()
    {
        addColumns<QByteArray, Then, bool, QString>("reply", "then", "isOffline", "logged");
        const auto row = [](QByteArray name, const QByteArray &reply, const char *logged,
                            bool isOffline = true, Then then = Then::Close) {
            QTest::newRow(name.replace("\r\n", " ").constData()) << reply << then << isOffline << s(logged);
        };
        const char *broken = "Reply finished:";
        const QByteArray whole = ScriptedServer::ok(kAccepted);
        row("reset", "", broken, true, Then::Reset);
        row("closed at once", "", broken);
        row("no HTTP", "SSH-2.0-OpenSSH\r\n", broken);
        row("closed in the body", whole.chopped(3), broken);
        row("reset in the body", whole.chopped(3), broken, true, Then::Reset);
        row("closed in the head", "HTTP/1.1 200 OK\r\nContent-", broken);
        row("false gzip", ScriptedServer::ok(kAccepted, "Content-Encoding: gzip\r\n"), broken);
        for (const char *status :
             {"301 Moved\r\nLocation: https://127.0.0.1:9/", "301 Moved\r\nLocation: http://127.0.0.1:9/",
              "307 Temporary\r\nLocation: /elsewhere",
              "401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"x\"",
              "407 Proxy\r\nProxy-Authenticate: Basic realm=\"x\"", "404 Not Found",
              "429 Too Many Requests\r\nRetry-After: 3600", "500 Internal", "501 Not Implemented",
              "502 Bad Gateway", "503 Busy"}) {
            for (const QByteArray &body : {QByteArray(), kAccepted})
                row(status + body, QByteArray("HTTP/1.1 ") + status + "\r\n\r\n" + body, broken);
        }
        row("nothing", "HTTP/1.1 204 No Content\r\n\r\n", "not sended", false);
        row("empty", ScriptedServer::ok(QByteArray()), "not sended", false);
        row("a page", ScriptedServer::ok("\t<!DOCTYPE html><p>"), "Error! Invalid URL!", false);
        row("another page", ScriptedServer::ok("<html>{\"status\":\"ok\"}"), "not sended", false);
        row("ok after a NUL", ScriptedServer::ok('\0' + kAccepted), "not sended", false);
        row("ok in bad UTF-8", ScriptedServer::ok("{\"status\":\"ok\xff\"}"), "not sended", false);
        const char *tooLong = "Reply is too long";
        row("50 megabytes", ScriptedServer::ok(kAccepted + QByteArray(50 * 1024 * 1024, ' ')), tooLong);
        row("without end", "HTTP/1.1 200 OK\r\n\r\n", tooLong, true, Then::Pour);
        row("swells up", ScriptedServer::ok(inflatable(), "Content-Encoding: gzip\r\n"), tooLong);
    }

    void minutes()
    {
        QFETCH(QByteArray, reply);
        QFETCH(Then, then);
        QFETCH(bool, isOffline);
        QFETCH(QString, logged);
        OfflineClient client(kUser);
        ScriptedServer server;
        client.restart(server.url());
        client.session()->setOnline(true);
        QSignalSpy states(client.get(), &Orvana::onlineChanged);
        server.set(reply, then);
        {
            const LogKeeper log;
            client->sendTaskActivity(1);
            QTRY_COMPARE_WITH_TIMEOUT(client->pendingActivityRequests(), 0, kLimit);
        }
        QCOMPARE(client.records(), 1);
        QCOMPARE(states, isOffline ? QList<QVariantList>{{QString()}} : QList<QVariantList>());
        QCOMPARE(client.session()->isOnline(), !isOffline);
        QVERIFY2(!s_log.filter(logged).isEmpty(), qPrintable(s_log.join(QLatin1Char('\n'))));

        server.set(ScriptedServer::ok(kAccepted));
        server.requests.clear();
        client->sendTaskActivity(2);
        QTRY_COMPARE_WITH_TIMEOUT(client.records(), 0, kLimit);
        QCOMPARE(server.requests.size(), 2);
        QVERIFY(client.session()->isOnline());
    }

    // Requests wait without limit. The minutes after it are sent all the same; what
    // waits on the disk is sent after the next start at the latest.
    void silence_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("no word") << QByteArray();
        QTest::newRow("half a head") << QByteArray("HTTP/1.1 200 OK\r\nContent-");
        QTest::newRow("half a body") << ScriptedServer::ok(kAccepted).chopped(3);
    }

    void silence()
    {
        QFETCH(QByteArray, reply);
        OfflineClient client(kUser);
        ScriptedServer server;
        client.restart(server.url());
        server.set(reply, Then::Wait);
        client->sendTaskActivity(1);
        QTRY_COMPARE_WITH_TIMEOUT(server.requests.size(), 1, kLimit);
        server.set(ScriptedServer::ok(kAccepted));
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

    void nothingIsKeptBetweenRequests()
    {
        OfflineClient client(kUser);
        ScriptedServer server;
        client.restart(server.url());
        server.set(ScriptedServer::ok("[]", "Set-Cookie: a=" + QByteArray(2000, 'x') + "\r\n"));
        for (int i = 1; i <= 2; ++i) {
            client->requestTeamsAndTasks();
            QTRY_COMPARE_WITH_TIMEOUT(server.requests.size(), i, kLimit);
        }
        QVERIFY(!server.requests.last().contains("Cookie"));
    }

    void failedDetailsLeaveNothingToWrite()
    {
        OfflineClient client(kUser);
        client.load(QStringList(s("1:7")));
        client.session()->save();
        client->requestTaskInfo(s("7"));
        client.answer(client.takeRequests().last(), "", QNetworkReply::TimeoutError);
        const LogKeeper log;
        client.session()->save();
        QVERIFY2(s_log.filter(s("can't be written")).isEmpty(), qPrintable(s_log.join(QLatin1Char('\n'))));
    }

    // A redirection may lead anywhere; login and password do not go along.
    void credentialsStayHere_data()
    {
        QTest::addColumn<QByteArray>("status");
        for (const char *status : {"301 M", "302 F", "303 S", "307 T", "308 P"})
            QTest::newRow(status) << QByteArray(status);
    }

    void credentialsStayHere()
    {
        QFETCH(QByteArray, status);
        OfflineClient client(kUser);
        ScriptedServer server;
        ScriptedServer elsewhere;
        client.restart(server.url());
        server.set("HTTP/1.1 " + status + "\r\nLocation: " + elsewhere.url()
                   + "/api_teams_tasks\r\nConnection: close\r\n\r\n");
        client->requestTeamsAndTasks();
        client->requestTimeSync(s("1"));
        client->requestDeadlineChange(QDate(2024, 3, 1), s("?"), QTime(18, 0));
        const auto *network = client->findChild<QNetworkAccessManager *>();
        QTRY_VERIFY_WITH_TIMEOUT(network->findChildren<QNetworkReply *>().isEmpty(), kLimit);
        // The network may repeat one whose connection breaks.
        QSet<QByteArray> asked;
        for (const QByteArray &request : qAsConst(server.requests))
            asked.insert(request.left(request.indexOf("HTTP/")));
        QCOMPARE(asked.size(), 3);
        QVERIFY(elsewhere.requests.isEmpty());
    }

    // Ids and addresses come from the service; the desktop opens web pages only.
    void opened_data()
    {
        addColumns<QString, QStringList>("asked", "address"); // "id:" before the id of a task
        const auto row = [](const char *asked, const QStringList &address) {
            QTest::newRow(asked) << s(asked) << address;
        };
        const QString page = s("https://service.invalid/task?id=");
        row("id:7", {page + s("7")});
        row("id:7&login=x#y", {page + s("7%26login%3Dx%23y")});
        row("id:../../x?y", {page + s("..%2F..%2Fx%3Fy")});
        row("id:\r\nHost: x", {page + s("%0D%0AHost%3A x")});
        row("id:--help $(x) `x` %s%n", {page + s("--help %24%28x%29 %60x%60 %25s%25n")});
        row("http://page.invalid/a", texts({"http://page.invalid/a"}));
        row("HTTPS://page.invalid/a", texts({"https://page.invalid/a"}));
        for (const char *refused :
             {"file:///etc/passwd", "FILE:/etc/passwd", "javascript:alert(1)", "mailto:a@b",
              "data:text/html,x", "/etc/passwd", "--help", "qrc:/images/main.png", ""})
            row(refused, {});
    }

    void opened()
    {
        QFETCH(QString, asked);
        OfflineClient client;
        const UrlCatcher desktop;
        if (asked.startsWith(s("id:")))
            client->openTaskUrl(asked.mid(3));
        else
            client->openUrl(asked);
        QTEST(desktop.opened, "address");
    }

    void damagedFields_data()
    {
        addColumns<int, QByteArray>("stage", "body");
        const auto row = [](const char *name, Orvana::Stage stage, const QByteArray &body) {
            QTest::newRow(name) << static_cast<int>(stage) << body;
        };
        row("lists", Orvana::TeamsAndTasks,
            R"([{"id":"1","name":"C1","tasks":[{"id":"7","title":"T7","deadline":"2024-03-01 18:00:00",)"
            R"("block":"0","last_comment":"2024-03-01 18:00:00","importance":1}]}])");
        row("details", Orvana::TaskDetails,
            R"({"status":"ok","message":{"id":"7","title":"T7","deadline":"2024-03-01 18:00:00","text":"x",)"
            R"("executor_name":"e","creator_name":"c","auditor_name":"a",)"
            R"("files":[{"id":"1","filename":"f","filename_orig":"o","size":"5"}],)"
            R"("texts":[{"id":"1","text":"t","title":"t","min_count":"5","page":"http://x","task":"t",)"
            R"("keywords":[{"id":"1","keyword":"k","count":"1","count2":"2"}]}]}})");
        row("totals", Orvana::TimeSync, R"({"today_active":90,"today_total":"125","today_task":5})");
        row("versions", Orvana::CheckUpdate, R"([{"version":"0.1"},{"version":"0.2"}])");
        row("minute", Orvana::SendActivity, kAccepted);
        row("deadline", Orvana::DeadlineChange, R"({"status":"no","message":"m"})");
    }

    // Every field of every answer with every wrong kind of value: nothing fails, and
    // afterwards the right answer is understood.
    void damagedFields()
    {
        QFETCH(int, stage);
        QFETCH(QByteArray, body);
        OfflineClient client(kUser);
        OrvanaUpdate::instance()->init(client.get());
        const QJsonDocument document = QJsonDocument::fromJson(body);
        const QJsonValue whole =
            document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
        CannedReply request{QByteArray()};
        request.setAddress(QUrl(client->serviceUrl() + s("/api_active2")));
        request.setProperty("stage", stage);
        QJsonArray wrong =
            QJsonDocument::fromJson("[null,true,-1,1e300,[],{},\"\\n\",[[1]],\"-2147483649\"]").array();
        wrong.append(QString(100000, QLatin1Char('9')));
        for (const QJsonValue &value : qAsConst(wrong)) {
            eachVariant(whole, value, [&](const QJsonValue &changed) {
                QByteArray bytes = QJsonDocument(QJsonArray{changed}).toJson(QJsonDocument::Compact).mid(1);
                bytes.chop(1);
                QVERIFY(client.answer(request, bytes));
                QVERIFY(client.answer(request, bytes.replace("\\n", "\xff\xc0\x80"))); // no UTF-8
            });
        }
        client->requestTeamsAndTasks();
        client.answer(client.takeRequests().last(),
                      R"([{"id":"1","name":"C1","tasks":[{"id":"8","title":"T8"}]}])");
        QCOMPARE(client.session()->task(s("1"), s("8")).title, s("T8"));
        client.restart();
        QCOMPARE(client.session()->task(s("1"), s("8")).title, s("T8"));
    }
};

QTEST_MAIN(TestServiceFaults)

#include "tst_servicefaults.moc"
