#include "files.h"
#include "rows.h"
#include "testclient.h"

#include "service/requestbody.h"

#include <QImage>

using localservice::Fault;
using localservice::RecordedRequest;

// What the service receives, byte by byte, over real HTTPS.
class TestWire final : public QObject
{
    Q_OBJECT

private slots:
    void credentialsArriveAsTyped_data()
    {
        addColumns<QString, QString, QTime, QString>("login", "password", "time", "sentTime");
        const auto row = [](const char *login, const char *password, const QTime &time, const char *sent) {
            QTest::newRow(login) << s(login) << s(password) << time << s(sent);
        };
        row("a+b&c=d%e#f;g/h?i", "+ & = % # ; /", {10, 0}, "&dl_time=10%3A00");
        row("%41%2B", "%%%00%zz", {23, 59}, ""); // the end of the day
        row(" пётр+test@почта", "\"'«ё»\\`\n ", {0, 0}, "&dl_time=00%3A00");
        row("😀", "é\u0301", {23, 58}, "&dl_time=23%3A58");
    }

    void credentialsArriveAsTyped()
    {
        QFETCH(QString, login);
        QFETCH(QString, password);
        QFETCH(QTime, time);
        QFETCH(QString, sentTime);
        TestClient client;
        client.server.edit([&](localservice::World &world) {
            localservice::User user;
            user.login = login;
            user.password = password;
            world.users = {user};
        });
        QVERIFY(client.logIn(login, password));
        client.session()->setCurrentTaskID(s("7"));
        client.orvana->requestDeadlineChange(QDate(2030, 2, 3), password, time);
        QTRY_COMPARE(client.server.requestsTo(s("/api_task_deadline_request")).size(), 1);
        const auto encoded = [](const QString &text) {
            return QString::fromLatin1(QUrl::toPercentEncoding(text));
        };
        const QString credentials = s("login=%1&password=%2").arg(encoded(login), encoded(password));
        QCOMPARE(QString::fromLatin1(client.server.requestsTo(s("/api_teams")).constFirst().query),
                 credentials);
        const auto request = client.server.requestsTo(s("/api_task_deadline_request")).constFirst();
        QCOMPARE(request.contentType, QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(QString::fromLatin1(request.body),
                 credentials + s("&task_id=7&dl_date=2030-02-03") + sentTime + s("&message=")
                     + encoded(password));
    }

    void queriesInOrder()
    {
        TestClient client;
        QVERIFY(client.logIn());
        client.server.clearRequests();
        client.session()->setPassword(s("orvana") + QChar(0) + s("x")); // ends at its first NUL
        for (const QString &task : {QString(), s("0"), s("a/b=c")})
            client.orvana->requestTimeSync(task);
        client.orvana->requestTaskInfo(s("0")); // has no details
        client.orvana->requestTaskInfo(s("a/b=c"));
        client.orvana->requestCheckUpdate();
        QTRY_COMPARE(client.server.requests().size(), 5);
        QStringList targets;
        for (const RecordedRequest &request : client.server.requests())
            targets.append(QString::fromLatin1(request.method + ' ' + request.target));
        targets.sort();
        const QString user = s("?login=anna%40orvana.example&password=orvana");
        QCOMPARE(
            targets,
            QStringList({s("GET /api_get_active") + user, s("GET /api_get_active") + user + s("&task_id="),
                         s("GET /api_get_active") + user + s("&task_id=a%2Fb%3Dc"),
                         s("GET /api_get_task") + user + s("&task_id=a%2Fb%3Dc"),
                         s("GET /monitor/ubuntu64/ortm.version")}));
    }

    void activityPayloadIsEncodedTwice()
    {
        QCOMPARE(activityPayload({{s("k"), s("я +%")}}),
                 QByteArray("data=%5B%7B%22k%22%3A%22%C3%91%C2%8F%20%2B%25%22%7D%5D"));
        TestClient client;
        QVERIFY(client.logIn());
        client.session()->setCurrentTeamID(s("17"));
        client.session()->setCurrentTaskID(s("ж/=1"));
        client.orvana->sendTaskActivity(7);
        QTRY_COMPARE(client.server.reports().size(), 1);
        const RecordedRequest request = client.server.requestsTo(s("/api_active2")).constFirst();
        const auto json = localservice::jsonOfFormValue(request.formValue(s("data")));
        QVERIFY(json.has_value());
        const QJsonArray list = QJsonDocument::fromJson(*json).array();
        QCOMPARE(list.size(), 1);
        const QJsonObject expected{{s("active"), s("7")},   {s("email"), TestClient::anna()},
                                   {s("past"), s("0")},     {s("task_id"), s("ж/=1")},
                                   {s("team_id"), s("17")}, {s("version"), s(ORVANA_VERSION)}};
        QJsonObject body = list.first().toObject();
        QVERIFY(body.value(s("past")).toString().toInt() <= 1);
        body.insert(s("past"), s("0"));
        QCOMPARE(body, expected);
        QTRY_VERIFY(client.records().isEmpty());
    }

    void screenshotArrivesWhole()
    {
        TestClient client;
        QVERIFY(client.logIn());
        QImage image(640, 400, QImage::Format_RGB32);
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                image.setPixel(x, y, qRgb(x * 7 % 256, y * 3 % 256, (x * y) % 256));
        }
        client.server.setFault(s("/api_screenshot"), Fault::answer(500), 1);
        client.orvana->sendScreenshotActivity(image);
        QTRY_COMPARE(client.server.requestsTo(s("/api_screenshot")).size(), 1);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QCOMPARE(client.records().size() + client.pictures().size(), 2);
        const QByteArray jpeg = contentsOf(client.cacheFolder().filePath(client.pictures().constFirst()));
        QVERIFY(jpeg.startsWith("\xFF\xD8"));

        client.orvana->sendCachedActivity();
        QTRY_COMPARE(client.server.screenshots().size(), 1);
        QCOMPARE(client.server.screenshots().constFirst().jpeg, jpeg);
        QTRY_VERIFY(client.records().isEmpty() && client.pictures().isEmpty());

        client.orvana->sendScreenshotActivity(QImage());
        QCOMPARE(client.records().size() + client.pictures().size(), 0);
        QVERIFY(client.notices.all().contains(
            s("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку")));
    }

    // The network stack repeats a request on its own when the connection breaks
    // before the reply; an accepted minute would be counted twice.
    void acceptedPostIsNotSentAgain()
    {
        TestClient client;
        QVERIFY(client.logIn());
        client.server.setFault(s("/api_active2"), Fault::loseReply(), 1);
        QSignalSpy online(client.orvana.get(), &Orvana::onlineChanged);
        client.orvana->sendTaskActivity(3);
        QVERIFY(online.wait(TestClient::waitLimit));
        QVERIFY(!client.session()->isOnline());
        QCOMPARE(client.server.requestsTo(s("/api_active2")).size(), 1);
        QCOMPARE(client.server.reports().size(), 1);
        // The client cannot know that it was accepted.
        QCOMPARE(client.records().size(), 1);
        QCOMPARE(client.orvana->pendingActivityRequests(), 0);
    }

    void certificateRefusedWhenVerified()
    {
        const QString config = qEnvironmentVariable("ORVANA_CONFIG");
        QVERIFY(writeFile(config, "verify-certificates=true\n"));
        TestClient client;
        QSignalSpy unanswered(client.orvana.get(), &Orvana::loginUnanswered);
        client.orvana->requestCheckLogin(TestClient::anna(), s("orvana"));
        QVERIFY(unanswered.wait(TestClient::waitLimit));
        QVERIFY(client.server.requests().isEmpty());
        QCOMPARE(client.notices.all(),
                 QStringList{s("Сертификат сервера не прошёл проверку. Обратитесь к системному "
                               "администратору.")});
        QVERIFY(QFile::remove(config));
    }
};

QTEST_MAIN(TestWire)
#include "tst_wire.moc"
