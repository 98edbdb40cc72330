#include "offlineclient.h"
#include "scriptedserver.h"
#include "texts.h"
#include "urlcatcher.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using Then = ScriptedServer::Then;
Q_DECLARE_METATYPE(Then)

namespace {

constexpr int kLimit = 20000; // ms
const QString kUser = s("user");
QStringList s_log;

void keepLog(QtMsgType, const QMessageLogContext &, const QString &message)
{
    s_log.append(message);
}

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

// Whatever the service answers, the minute stays on the disk, the next one goes
// through, and the memory is not its to fill.
class TestServiceFaults final : public QObject
{
    Q_OBJECT

private slots:
    void init() { s_log.clear(); }

    void minutes_data();
    void minutes();
    void silence_data();
    void silence();
    void moreThanTheNetworkTakes();
    void nothingIsKeptBetweenRequests();
    void failedDetailsLeaveNothingToWrite();
    void credentialsStayHere_data();
    void credentialsStayHere();
    void noSuchHost();
    void opened_data();
    void opened();
    void damagedFields_data();
    void damagedFields();
};

void TestServiceFaults::minutes_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<Then>("then");
    QTest::addColumn<QString>("seen"); // of the state by the user
    QTest::addColumn<QString>("logged");
    const QByteArray accepted = R"({"status":"ok"})";
    const auto status = [](const QByteArray &line) { return QByteArray("HTTP/1.1 " + line + "\r\n\r\n"); };
    const auto row = [](const char *name, const QByteArray &reply, Then then, const char *seen,
                        const char *logged) { QTest::newRow(name) << reply << then << s(seen) << s(logged); };
    const char *offline = "offline<>";
    const char *broken = "Reply finished:";
    row("reset", "", Then::Reset, offline, broken);
    row("closed at once", "", Then::Close, offline, broken);
    row("no HTTP", "SSH-2.0-OpenSSH\r\n", Then::Close, offline, broken);
    row("closed in the body", ScriptedServer::ok(accepted).chopped(3), Then::Close, offline, broken);
    row("reset in the body", ScriptedServer::ok(accepted).chopped(3), Then::Reset, offline, broken);
    row("closed in the head", "HTTP/1.1 200 OK\r\nContent-", Then::Close, offline, broken);
    row("false gzip", ScriptedServer::ok(accepted, "Content-Encoding: gzip\r\n"), Then::Close, offline,
        broken);
    row("redirect for good", status("301 Moved\r\nLocation: https://127.0.0.1:9/"), Then::Close, offline,
        "Redirect refused");
    row("redirect to no encryption", status("301 Moved\r\nLocation: http://127.0.0.1:9/"), Then::Close,
        offline, broken);
    row("redirect", status("307 Temporary\r\nLocation: /elsewhere"), Then::Close, offline, broken);
    row("nothing", status("204 No Content"), Then::Close, "", "not sended");
    row("who is it", status("401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"x\""), Then::Close, offline,
        "AuthenticationRequiredError");
    row("proxy", status("407 Proxy\r\nProxy-Authenticate: Basic realm=\"x\""), Then::Close, offline, broken);
    row("501", status("501 Not Implemented"), Then::Close, offline, "OperationNotImplementedError");
    row("401 and a body", status("401 Unauthorized") + accepted, Then::Close, offline, broken);
    row("404", status("404 Not Found"), Then::Close, offline, "ContentNotFoundError");
    row("404 and a body", status("404 Not Found") + accepted, Then::Close, offline, "ContentNotFoundError");
    row("429", status("429 Too Many Requests\r\nRetry-After: 3600"), Then::Close, offline, broken);
    row("429 and a body", status("429 Too Many Requests") + accepted, Then::Close, offline, broken);
    row("500", status("500 Internal"), Then::Close, offline, "InternalServerError");
    row("500 and a body", status("500 Internal") + accepted, Then::Close, offline, "InternalServerError");
    row("503", status("503 Busy"), Then::Close, offline, "ServiceUnavailableError");
    row("503 and a body", status("503 Busy") + accepted, Then::Close, offline, "ServiceUnavailableError");
    row("empty", ScriptedServer::ok(QByteArray()), Then::Close, "", "not sended");
    row("a page", ScriptedServer::ok("\t<!DOCTYPE html><p>"), Then::Close, "", "Error! Invalid URL!");
    row("another page", ScriptedServer::ok("<html>{\"status\":\"ok\"}"), Then::Close, "", "not sended");
    row("502", status("502 Bad Gateway"), Then::Close, offline, broken);
    row("502 and a page", status("502 Bad Gateway") + "<html>", Then::Close, offline, broken);
    row("ok behind a NUL", ScriptedServer::ok(QByteArray("\0{\"status\":\"ok\"}", 16)), Then::Close, "",
        "not sended");
    row("ok in bad UTF-8", ScriptedServer::ok("{\"status\":\"ok\xff\"}"), Then::Close, "", "not sended");
    row("50 megabytes", ScriptedServer::ok(accepted + QByteArray(50 * 1024 * 1024, ' ')), Then::Close,
        offline, "Reply is too long");
    row("without end", status("200 OK"), Then::Pour, offline, "Reply is too long");
    row("swells up", ScriptedServer::ok(inflatable(), "Content-Encoding: gzip\r\n"), Then::Close, offline,
        "Reply is too long");
}

void TestServiceFaults::minutes()
{
    QFETCH(QByteArray, reply);
    QFETCH(Then, then);
    QFETCH(QString, seen);
    QFETCH(QString, logged);
    OfflineClient client;
    ScriptedServer server;
    client.login(kUser);
    client.restart(server.url());
    client.session()->setOnline(true);
    QStringList states;
    connect(client.get(), &Orvana::onlineChanged, this, [&](const QString &reason) {
        states.append((client.session()->isOnline() ? s("online<%1>") : s("offline<%1>")).arg(reason));
    });

    server.set(reply, then);
    const QtMessageHandler before = qInstallMessageHandler(keepLog);
    client->sendTaskActivity(1);
    const bool ended = QTest::qWaitFor([&] { return client->pendingActivityRequests() == 0; }, kLimit);
    qInstallMessageHandler(before);
    QVERIFY(ended);
    QCOMPARE(client.records(), 1);
    QCOMPARE(states.join(QLatin1Char(' ')), seen);
    QVERIFY2(!s_log.filter(logged).isEmpty(), qPrintable(s_log.join(QLatin1Char('\n'))));

    server.set(ScriptedServer::ok(R"({"status":"ok"})"));
    server.requests.clear();
    client->sendTaskActivity(2);
    QTRY_COMPARE_WITH_TIMEOUT(client.records(), 0, kLimit);
    QCOMPARE(server.requests.size(), 2);
    QVERIFY(client.session()->isOnline());
}

// Requests wait without limit. The minutes after it are sent all the same; what
// waits on the disk is sent after the next start at the latest.
void TestServiceFaults::silence_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("no word") << QByteArray();
    QTest::newRow("half a head") << QByteArray("HTTP/1.1 200 OK\r\nContent-");
    QTest::newRow("half a body") << ScriptedServer::ok(R"({"status":"ok"})").chopped(3);
}

void TestServiceFaults::silence()
{
    QFETCH(QByteArray, reply);
    OfflineClient client;
    ScriptedServer server;
    client.login(kUser);
    client.restart(server.url());
    server.set(reply, Then::Wait);
    client->sendTaskActivity(1);
    QTRY_COMPARE_WITH_TIMEOUT(server.requests.size(), 1, kLimit);
    server.set(ScriptedServer::ok(R"({"status":"ok"})"));
    client->sendTaskActivity(2);
    client->sendTaskActivity(3);
    QTRY_COMPARE_WITH_TIMEOUT(client.records(), 1, kLimit);
    client.restart(server.url());
    client->sendTaskActivity(4);
    QTRY_COMPARE_WITH_TIMEOUT(client.records(), 0, kLimit);
}

// With nothing answered for hours what is sent must not pile up in memory, nor be
// forgotten when the answers come.
void TestServiceFaults::moreThanTheNetworkTakes()
{
    constexpr int minutes = 150;
    OfflineClient client;
    client.login(kUser);
    const QDir cache(client.path(s("user/activity")));
    const auto records = [&] { return cache.entryList({s("json*")}, QDir::Files).size(); };
    for (int i = 0; i < minutes; ++i)
        client->sendTaskActivity(i);
    QCOMPARE(records(), minutes);
    const auto underWay = client.takeRequests();
    QVERIFY2(underWay.size() <= 100, qPrintable(QString::number(underWay.size())));
    for (const auto &request : underWay)
        client.answer(request, R"({"status":"ok"})");
    for (int i = 0; i < minutes && records() > 0; ++i) {
        // The next one is taken up from the event loop.
        client.runQueued();
        const auto requests = client.takeRequests();
        for (const auto &request : requests)
            client.answer(request, R"({"status":"ok"})");
    }
    QCOMPARE(records(), 0);
    QCOMPARE(client->pendingActivityRequests(), 0);
}

void TestServiceFaults::nothingIsKeptBetweenRequests()
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

void TestServiceFaults::failedDetailsLeaveNothingToWrite()
{
    OfflineClient client(kUser);
    client.load(QStringList(s("1:7")));
    client.session()->save();
    client->requestTaskInfo(s("7"));
    client.answer(client.takeRequests().last(), "", QNetworkReply::TimeoutError);
    s_log.clear();
    const QtMessageHandler before = qInstallMessageHandler(keepLog);
    client.session()->save();
    qInstallMessageHandler(before);
    QVERIFY2(s_log.filter(s("can't be written")).isEmpty(), qPrintable(s_log.join(QLatin1Char('\n'))));
}

// A redirection may lead anywhere; login and password do not go along.
void TestServiceFaults::credentialsStayHere_data()
{
    QTest::addColumn<QByteArray>("status");
    for (const char *status : {"301 M", "302 F", "303 S", "307 T", "308 P"})
        QTest::newRow(status) << QByteArray(status);
}

void TestServiceFaults::credentialsStayHere()
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
    QCOMPARE(server.requests.size(), 3);
    QVERIFY(elsewhere.requests.isEmpty());
}

void TestServiceFaults::noSuchHost()
{
    OfflineClient client(kUser);
    client.restart("https://no-such-host.invalid");
    QStringList reasons;
    connect(client.get(), &Orvana::onlineChanged, this,
            [&](const QString &reason) { reasons.append(reason); });
    client.session()->setOnline(true);
    client->sendTaskActivity(1);
    client->sendTaskActivity(2);
    QTRY_COMPARE_WITH_TIMEOUT(client->pendingActivityRequests(), 0, kLimit);
    QCOMPARE(reasons, texts({"Ошибка соединения. "}));
    QCOMPARE(client.records(), 2);
}

// Ids and addresses come from the service; the desktop opens web pages only.
void TestServiceFaults::opened_data()
{
    QTest::addColumn<QString>("asked"); // "id:" before the id of a task
    QTest::addColumn<QStringList>("address");
    const auto row = [](const char *asked, const QStringList &address) {
        QTest::newRow(asked) << s(asked) << address;
    };
    const auto page = [](const char *id) {
        return QStringList{s("https://service.invalid/task?id=") + s(id)};
    };
    row("id:7", page("7"));
    row("id:7&login=x#y", page("7%26login%3Dx%23y"));
    row("id:../../x?y", page("..%2F..%2Fx%3Fy"));
    row("id:\r\nHost: x", page("%0D%0AHost%3A x"));
    row("id:--help $(x) `x` %s%n", page("--help %24%28x%29 %60x%60 %25s%25n"));
    row("http://page.invalid/a", texts({"http://page.invalid/a"}));
    row("HTTPS://page.invalid/a", texts({"https://page.invalid/a"}));
    for (const char *refused : {"file:///etc/passwd", "FILE:/etc/passwd", "javascript:alert(1)", "mailto:a@b",
                                "data:text/html,x", "/etc/passwd", "--help", "qrc:/images/main.png", ""})
        row(refused, {});
}

void TestServiceFaults::opened()
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

namespace {

// Every value of a JSON text in turn replaced by another one.
void collectVariants(const QJsonValue &value, const QJsonValue &other,
                     const std::function<void(const QJsonValue &)> &found)
{
    found(other);
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            collectVariants(array.at(i), other, [&](const QJsonValue &changed) {
                QJsonArray copy = array;
                copy[i] = changed;
                found(copy);
            });
        }
    } else if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            collectVariants(it.value(), other, [&](const QJsonValue &changed) {
                QJsonObject copy = object;
                copy[it.key()] = changed;
                found(copy);
            });
        }
    }
}

} // namespace

void TestServiceFaults::damagedFields_data()
{
    QTest::addColumn<int>("stage");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("lists")
        << int(Orvana::TeamsAndTasks)
        << QByteArray(
               R"([{"id":"1","name":"C1","tasks":[{"id":"7","title":"T7","deadline":"2024-03-01 18:00:00","block":"0","last_comment":"2024-03-01 18:00:00","importance":1}]}])");
    QTest::newRow("details")
        << int(Orvana::TaskDetails)
        << QByteArray(
               R"({"status":"ok","message":{"id":"7","title":"T7","deadline":"2024-03-01 18:00:00","text":"<b>x</b>","executor":"e","creator":"c","auditor":"a","files":[{"id":"1","filename":"f","filename_orig":"o","size":"5"}],"texts":[{"id":"1","text":"t","title":"t","min_count":"5","page":"http://x","task":"t","keywords":[{"id":"1","keyword":"k","count":"1","count2":"2"}]}]}})");
    QTest::newRow("totals") << int(Orvana::TimeSync)
                            << QByteArray(R"({"today_active":90,"today_total":"125","today_task":5})");
    QTest::newRow("versions") << int(Orvana::CheckUpdate)
                              << QByteArray(R"([{"version":"0.1"},{"file":"x"}])");
    QTest::newRow("minute") << int(Orvana::SendActivity) << QByteArray(R"({"status":"ok"})");
    QTest::newRow("deadline") << int(Orvana::DeadlineChange)
                              << QByteArray(R"({"status":"ok","message":"m"})");
}

// Every field of every answer with every wrong kind of value: nothing falls over,
// and afterwards the right answer is understood.
void TestServiceFaults::damagedFields()
{
    QFETCH(int, stage);
    QFETCH(QByteArray, body);
    OfflineClient client(kUser);
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonValue whole =
        document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    const auto hand = [&](const QByteArray &answer) {
        auto *reply = new CannedReply(answer);
        reply->setProperty("stage", stage);
        reply->setProperty("task_id", s("7"));
        QVERIFY(client.hand(reply));
    };
    const QJsonValue wrong[] = {QJsonValue(),
                                true,
                                -1,
                                1e300,
                                QJsonArray(),
                                QJsonObject(),
                                s("\n"),
                                QString(100000, QLatin1Char('9')),
                                QJsonArray{QJsonArray{1}},
                                s("-2147483649")};
    for (const QJsonValue &value : wrong) {
        collectVariants(whole, value, [&](const QJsonValue &changed) {
            QByteArray bytes = QJsonDocument(QJsonArray{changed}).toJson(QJsonDocument::Compact).mid(1);
            bytes.chop(1);
            hand(bytes);
            hand(bytes.replace("\\n", "\xff\xc0\x80")); // no UTF-8
        });
        client.notices().take();
    }
    client->requestTeamsAndTasks();
    client.answer(client.takeRequests().last(),
                  R"([{"id":"1","name":"C1","tasks":[{"id":"8","title":"T8"}]}])");
    QCOMPARE(client.session()->task(s("1"), s("8")).title, s("T8"));
    client.session()->save();
    client.restart();
    QCOMPARE(client.session()->task(s("1"), s("8")).title, s("T8"));
}

QTEST_MAIN(TestServiceFaults)

#include "tst_servicefaults.moc"
