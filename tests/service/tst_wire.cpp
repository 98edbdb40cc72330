#include "testclient.h"

#include "service/requestbody.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>

using localservice::Fault;
using localservice::RecordedRequest;

// What the service receives, byte by byte, over real HTTPS.
class TestWire final : public QObject
{
    Q_OBJECT

private slots:
    void credentialsArriveAsTyped_data();
    void credentialsArriveAsTyped();
    void passwordEndsAtNul();
    void queriesInOrder();
    void deadlineRequest_data();
    void deadlineRequest();
    void activityPayloadIsEncodedTwice();
    void screenshotArrivesWhole();
    void acceptedPostIsNotSentAgain();
    void redirectIsNotAnAnswer();
    void certificateRefusedWhenVerified();

private:
    static QString keysOf(const localservice::Pairs &pairs)
    {
        QStringList keys;
        for (const auto &pair : pairs)
            keys.append(pair.first);
        return keys.join(QLatin1Char(','));
    }
};

void TestWire::credentialsArriveAsTyped_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("password");
    QTest::newRow("plain") << "a@b.c" << "secret";
    QTest::newRow("reserved") << "a+b&c=d%e#f;g/h?i" << "+ & = % # ; /";
    QTest::newRow("looks encoded") << "%41%2B" << "%%%00%zz";
    QTest::newRow("blanks") << " lead and trail " << "\ta  b\n";
    QTest::newRow("Cyrillic and quotes") << "пётр+test@почта" << "\"'«ё»\\`";
    QTest::newRow("outside the basic plane") << QString::fromUtf8("😀") << QString::fromUtf8("é\u0301");
}

void TestWire::credentialsArriveAsTyped()
{
    QFETCH(QString, login);
    QFETCH(QString, password);
    TestClient client;
    client.server.edit([&](localservice::World &world) {
        localservice::User user;
        user.login = login;
        user.password = password;
        world.users = {user};
    });
    QVERIFY(client.logIn(login, password));
    client.session()->setCurrentTaskID(QStringLiteral("7"));
    client.orvana->requestDeadlineChange(QDate(2030, 1, 2), password, QTime(10, 0));
    QTRY_COMPARE(client.server.requestsTo(QStringLiteral("/api_task_deadline_request")).size(), 1);

    const RecordedRequest check = client.server.requestsTo(QStringLiteral("/api_teams")).constFirst();
    QCOMPARE(check.queryValue(QStringLiteral("login")), login);
    QCOMPARE(check.queryValue(QStringLiteral("password")), password);
    const RecordedRequest form = client.server.requestsTo(QStringLiteral("/api_task_deadline_request")).constFirst();
    QCOMPARE(form.formValue(QStringLiteral("login")), login);
    QCOMPARE(form.formValue(QStringLiteral("password")), password);
    QCOMPARE(form.formValue(QStringLiteral("message")), password);
}

void TestWire::passwordEndsAtNul()
{
    TestClient client;
    client.session()->setPassword(QStringLiteral("ab") + QChar(0) + QStringLiteral("cd"));
    client.orvana->requestTeamsAndTasks();
    QTRY_COMPARE(client.server.requests().size(), 1);
    QCOMPARE(client.server.requests().constFirst().queryValue(QStringLiteral("password")), QStringLiteral("ab"));
}

void TestWire::queriesInOrder()
{
    TestClient client;
    QVERIFY(client.logIn());
    client.server.clearRequests();
    client.orvana->requestTeamsAndTasks();
    QTRY_VERIFY(client.server.requestsTo(QStringLiteral("/api_get_task")).size() > 3);
    client.server.clearRequests();
    client.orvana->requestTimeSync(QStringLiteral("0"));
    client.orvana->requestTimeSync(QStringLiteral("a/b=c"));
    client.orvana->requestTimeSync(QString());
    client.orvana->requestTaskInfo(QStringLiteral("0"));
    client.orvana->requestTaskInfo(QStringLiteral("a/b=c"));
    client.orvana->requestCheckUpdate();
    QTRY_VERIFY(client.server.requestsTo(QStringLiteral("/api_get_active")).size() == 3
                && client.server.requestsTo(QStringLiteral("/monitor/ubuntu64/ortm.version")).size() == 1);
    QStringList keys;
    for (const RecordedRequest &request : client.server.requestsTo(QStringLiteral("/api_get_active"))) {
        QCOMPARE(request.method, QByteArray("GET"));
        keys.append(keysOf(request.queryPairs));
    }
    keys.sort();
    QCOMPARE(keys, QStringList({QStringLiteral("login,password"), QStringLiteral("login,password,task_id"),
                                QStringLiteral("login,password,task_id")}));
    QVector<RecordedRequest> details;
    QTRY_VERIFY((details = client.server.requestsTo(QStringLiteral("/api_get_task")),
                 std::any_of(details.cbegin(), details.cend(), [](const RecordedRequest &request) {
                     return request.queryValue(QStringLiteral("task_id")) == QLatin1String("a/b=c");
                 })));
    for (const RecordedRequest &request : qAsConst(details))
        QVERIFY(request.queryValue(QStringLiteral("task_id")) != QLatin1String("0"));
    const RecordedRequest update
        = client.server.requestsTo(QStringLiteral("/monitor/ubuntu64/ortm.version")).constFirst();
    QCOMPARE(update.target, QByteArray("/monitor/ubuntu64/ortm.version"));
}

void TestWire::deadlineRequest_data()
{
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QString>("keys");
    QTest::newRow("end of the day") << QTime(23, 59) << "login,password,task_id,dl_date,message";
    QTest::newRow("a time") << QTime(18, 30) << "login,password,task_id,dl_date,dl_time,message";
    QTest::newRow("a second later") << QTime(23, 59, 1) << "login,password,task_id,dl_date,dl_time,message";
}

void TestWire::deadlineRequest()
{
    QFETCH(QTime, time);
    QFETCH(QString, keys);
    TestClient client;
    QVERIFY(client.logIn());
    client.session()->setCurrentTaskID(QStringLiteral("1702"));
    client.orvana->requestDeadlineChange(QDate(2030, 2, 3), QStringLiteral("  причина "), time);
    QTRY_COMPARE(client.server.deadlineRequests().size(), 1);
    const RecordedRequest request
        = client.server.requestsTo(QStringLiteral("/api_task_deadline_request")).constFirst();
    QCOMPARE(request.contentType, QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(keysOf(request.formPairs), keys);
    const localservice::DeadlineRequest received = client.server.deadlineRequests().constFirst();
    QCOMPARE(received.date, QStringLiteral("2030-02-03"));
    QCOMPARE(received.message, QStringLiteral("  причина "));
    QTRY_COMPARE(TestClient::popups(), QStringList {QStringLiteral("Запрос на продление задачи успешно отправлен")});
}

void TestWire::activityPayloadIsEncodedTwice()
{
    // One JSON list, its UTF-8 bytes widened to characters and encoded again.
    const QByteArray payload = activityPayload({{QStringLiteral("k"), QStringLiteral("я +%")}});
    QCOMPARE(payload, QByteArray("data=%5B%7B%22k%22%3A%22%C3%91%C2%8F%20%2B%25%22%7D%5D"));
    // The library's own encoder is the yardstick.
    const QString text = QString::fromLatin1(QByteArray("[{\"k\":\"") + QStringLiteral("я +%").toUtf8() + "\"}]");
    QCOMPARE(payload, QByteArray("data=") + QUrl::toPercentEncoding(text));

    TestClient client;
    QVERIFY(client.logIn());
    client.session()->setCurrentTeamID(QStringLiteral("17"));
    client.session()->setCurrentTaskID(QStringLiteral("ж/=1"));
    client.orvana->sendTaskActivity(7);
    QTRY_COMPARE(client.server.reports().size(), 1);
    const RecordedRequest request = client.server.requestsTo(QStringLiteral("/api_active2")).constFirst();
    const auto json = localservice::jsonOfFormValue(request.formValue(QStringLiteral("data")));
    QVERIFY(json.has_value());
    const QJsonArray list = QJsonDocument::fromJson(*json).array();
    QCOMPARE(list.size(), 1);
    const QJsonObject expected {{QStringLiteral("active"), QStringLiteral("7")},
                                {QStringLiteral("email"), TestClient::anna()},
                                {QStringLiteral("past"), QStringLiteral("0")},
                                {QStringLiteral("task_id"), QStringLiteral("ж/=1")},
                                {QStringLiteral("team_id"), QStringLiteral("17")},
                                {QStringLiteral("version"), QStringLiteral(ORVANA_VERSION)}};
    QJsonObject body = list.first().toObject();
    QVERIFY(body.value(QStringLiteral("past")).toString().toInt() <= 1);
    body.insert(QStringLiteral("past"), QStringLiteral("0"));
    QCOMPARE(body, expected);
    QTRY_VERIFY(client.records().isEmpty());
}

void TestWire::screenshotArrivesWhole()
{
    TestClient client;
    QVERIFY(client.logIn());
    QImage image(640, 400, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x * 7 % 256, y * 3 % 256, (x * y) % 256));
    }
    client.server.setFault(QStringLiteral("/api_screenshot"), Fault::answer(500), 1);
    client.orvana->sendScreenshotActivity(image);
    QTRY_COMPARE(client.server.requestsTo(QStringLiteral("/api_screenshot")).size(), 1);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    QCOMPARE(client.records().size(), 1);
    QCOMPARE(client.pictures().size(), 1);
    QFile stored(client.cacheFolder().filePath(client.pictures().constFirst()));
    QVERIFY(stored.open(QIODevice::ReadOnly));
    const QByteArray jpeg = stored.readAll();
    QVERIFY(jpeg.startsWith("\xFF\xD8"));

    client.orvana->sendCachedActivity();
    QTRY_COMPARE(client.server.screenshots().size(), 1);
    QCOMPARE(client.server.screenshots().constFirst().jpeg, jpeg);
    QTRY_VERIFY(client.records().isEmpty() && client.pictures().isEmpty());
    QVERIFY(!client.server.requestsTo(QStringLiteral("/api_screenshot")).constLast().formPairs.isEmpty());

    client.orvana->sendScreenshotActivity(QImage());
    QCOMPARE(client.records().size() + client.pictures().size(), 0);
    QVERIFY(TestClient::popups().contains(
        QStringLiteral("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку")));
}

// The network stack repeats a request on its own when the connection breaks
// before the reply; an accepted minute would be counted twice.
void TestWire::acceptedPostIsNotSentAgain()
{
    TestClient client;
    QVERIFY(client.logIn());
    client.server.setFault(QStringLiteral("/api_active2"), Fault::loseReply(), 1);
    QSignalSpy online(client.orvana.get(), &Orvana::onlineChanged);
    client.orvana->sendTaskActivity(3);
    QVERIFY(online.wait(TestClient::waitLimit));
    QVERIFY(!client.session()->isOnline());
    QCOMPARE(client.server.requestsTo(QStringLiteral("/api_active2")).size(), 1);
    QCOMPARE(client.server.reports().size(), 1);
    // The client cannot know that it was accepted.
    QCOMPARE(client.records().size(), 1);
    QCOMPARE(client.orvana->pendingActivityRequests(), 0);
}

void TestWire::redirectIsNotAnAnswer()
{
    TestClient client;
    QVERIFY(client.logIn());
    client.server.setFault(QStringLiteral("/api_active2"), Fault::answer(302), 1);
    client.orvana->sendTaskActivity(1);
    QTRY_COMPARE(client.server.requestsTo(QStringLiteral("/api_active2")).size(), 1);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    QCOMPARE(client.records().size(), 1);
}

void TestWire::certificateRefusedWhenVerified()
{
    QFile config(qEnvironmentVariable("ORVANA_CONFIG"));
    QVERIFY(config.open(QIODevice::WriteOnly));
    config.write("verify-certificates=true\n");
    config.close();
    TestClient client;
    QSignalSpy unanswered(client.orvana.get(), &Orvana::loginUnanswered);
    client.orvana->requestCheckLogin(TestClient::anna(), QStringLiteral("orvana"));
    QVERIFY(unanswered.wait(TestClient::waitLimit));
    QVERIFY(client.server.requests().isEmpty());
    QCOMPARE(TestClient::popups(),
             QStringList {QStringLiteral("Сертификат сервера не прошёл проверку. Обратитесь к системному "
                                         "администратору.")});
    QVERIFY(config.remove());
}

QTEST_MAIN(TestWire)
#include "tst_wire.moc"
