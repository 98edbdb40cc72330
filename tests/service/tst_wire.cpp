#include "files.h"
#include "rows.h"
#include "testclient.h"

#include "service/requestbody.h"
#include "storage/activitycache.h"

#include <QImage>

using localservice::Fault;

// Minutes wait on the disk until the service has them. What it receives, byte by byte, over real HTTPS.
class TestWire final : public QObject
{
    Q_OBJECT

private slots:
    void credentialsArriveAsTyped_data()
    {
        addRows({{"a+b&c=d%e#f;g/h?i", "+ & = % # ; /"},
                 {"%41%2B", "%%%00%zz"},
                 {" пётр+test@почта", "\"'«ё»\\`\n "},
                 {"😀", "é\u0301"}});
    }
    void credentialsArriveAsTyped()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        TestClient client;
        client.server.edit([&](localservice::World &world) {
            world.users = {localservice::User()};
            world.users.first().login = input;
            world.users.first().password = result;
        });
        QVERIFY(client.logIn(input, result));
        client.session()->setCurrentTaskID(s("7"));
        const auto encoded = [](const QString &text) { return QUrl::toPercentEncoding(text); };
        const QByteArray credentials = "login=" + encoded(input) + "&password=" + encoded(result);
        QCOMPARE(client.server.requestsTo(s("/api_teams")).constFirst().query, credentials);
        const QTime endOfDay(23, 59);
        for (const QTime &time : {QTime(0, 0), QTime(10, 59), QTime(23, 58), endOfDay}) {
            client.server.clearRequests();
            client.orvana->requestDeadlineChange(QDate(2030, 2, 3), result, time);
            QTRY_COMPARE(client.server.requests().size(), 1);
            const auto request = client.server.requests().constFirst();
            QCOMPARE(request.path, s("/api_task_deadline_request"));
            QCOMPARE(request.contentType, QByteArray("application/x-www-form-urlencoded"));
            const QString sent = time == endOfDay ? QString() : figures(time, "'&dl_time='HH'%3A'mm");
            QCOMPARE(request.body,
                     credentials + "&task_id=7&dl_date=2030-02-03" + sent.toLatin1()
                         + "&message=" + encoded(result));
        }
    }

    // The network stack repeats a request on its own when the connection breaks before the reply;
    // an accepted minute would be counted twice.
    void minuteIsSentOnce()
    {
        QCOMPARE(activityPayload({{s("k"), s("я +%")}}),
                 QByteArray("data=%5B%7B%22k%22%3A%22%C3%91%C2%8F%20%2B%25%22%7D%5D"));
        TestClient client;
        QVERIFY(client.logIn());
        client.orvana->changeTask(s("17"), s("ж/=1"));
        client.server.setFault(s("/api_active2"), Fault::loseReply(), 1);
        QSignalSpy online(client.orvana.get(), &Orvana::onlineChanged);
        client.orvana->sendTaskActivity(7);
        QVERIFY(online.wait(TestClient::waitLimit));
        QVERIFY(!client.session()->isOnline());
        QCOMPARE(client.server.reports().size(), 1);
        const auto requests = client.server.requestsTo(s("/api_active2"));
        QCOMPARE(requests.size(), 1);
        QByteArray json = *localservice::jsonOfFormValue(requests.first().formValue(s("data")));
        QCOMPARE(QString::fromUtf8(json.replace("\"past\":\"1\"", "\"past\":\"0\"")),
                 s(R"([{"active":"7","email":"anna@orvana.example","past":"0","task_id":"ж/=1",)"
                   R"("team_id":"17","version":"%1"}])")
                     .arg(s(ORVANA_VERSION)));
        // The client cannot know that it was accepted.
        QCOMPARE(client.records().size(), 1);
        QCOMPARE(client.orvana->pendingActivityRequests(), 0);
        client.orvana->sendCachedActivity();
        QTRY_VERIFY(client.records().isEmpty());
    }

    void screenshotArrivesWhole()
    {
        TestClient client;
        QVERIFY(client.logIn());
        QImage image(640, 400, QImage::Format_RGB32);
        for (int i = 0; i < image.width() * image.height(); ++i)
            reinterpret_cast<QRgb *>(image.bits())[i] = static_cast<QRgb>(i) * 2654435761U;
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
    }

    void certificateRefusedWhenVerified()
    {
        const QString config = qEnvironmentVariable("ORVANA_CONFIG");
        QVERIFY(writeFile(config, "verify-certificates=true\n"));
        TestClient client;
        QVERIFY(QFile::remove(config));
        QSignalSpy unanswered(client.orvana.get(), &Orvana::loginUnanswered);
        client.orvana->requestCheckLogin(TestClient::anna(), s("orvana"));
        QVERIFY(unanswered.wait(TestClient::waitLimit));
        QVERIFY(client.server.requests().isEmpty());
        QCOMPARE(client.notices.take(),
                 texts({"Сертификат сервера не прошёл проверку. Обратитесь к системному администратору."}));
    }

    void returnsEachRecordOnce()
    {
        constexpr int count = 500;
        const QTemporaryDir folder;
        QVERIFY(writeFile(folder.filePath(s(".new-json01-01-2026-00-00-00.AAAAAA")), "{\"api-"));
        ActivityCache cache;
        cache.setDirectory(folder.path());
        QVERIFY2(QDir(folder.path()).isEmpty(QDir::Files | QDir::Hidden), "unfinished");
        const QDateTime now(QDate(2026, 2, 3), QTime(4, 5, 6));
        QSet<QString> expected;
        QSet<QString> seen;
        for (int i = 0; i < count; ++i)
            expected.insert(cache.create("{}", now));
        for (int i = 0; i < count; ++i)
            seen.insert(cache.next());
        QCOMPARE(seen, expected);
        QCOMPARE(seen.size(), count);
        QVERIFY2(expected.contains(cache.next()), "a record that stayed comes up again");
        for (const QString &path : qAsConst(expected))
            cache.remove(path);
        QVERIFY(cache.next().isEmpty());
        QVERIFY(QDir(folder.path()).removeRecursively());
        const QString late = cache.create("{}", now);
        QVERIFY(late.startsWith(folder.filePath(s("json03-02-2026-04-05-06"))));
        QCOMPARE(cache.next(), late);
    }

    // Damaged records and those that the service will never take do not block the others,
    // whose age grows by the minute that they waited.
    void recordsThatWait()
    {
        TestClient client;
        QVERIFY(client.logIn());
        const auto plant = [&client](const char *name, const char *active, const char *past) {
            const QString record =
                s(R"({"api-url":"%1/api_active2","body":{"active":"%2","email":"anna@orvana.example","past":"%3",)"
                  R"("task_id":"1702","team_id":"17","version":"1.1.0"},"timestamp":"%4","version":"0.1"})")
                    .arg(client.server.baseUrl(), s(active), s(past),
                         figures(QDateTime::currentDateTime().addSecs(-60), "dd-MM-yyyy-hh-mm-ss"));
            QVERIFY(writeFile(client.cacheFolder().filePath(s(name)), record.toUtf8()));
        };
        for (int i = 0; i < 300; ++i)
            QVERIFY(writeFile(client.cacheFolder().filePath(s("jsonbad%1").arg(i)),
                              QByteArray(i == 0 ? 3 * 1024 * 1024 : i, i % 2 ? '{' : 'x')));
        client.orvana->sendCachedActivity();
        QTRY_VERIFY(client.records().isEmpty());
        plant("json1", "5", "30");
        plant("json2", "5", "x");
        plant("jsonA", "99", "0");
        plant("jsonB", "5", "9223372036854775807");
        for (int minute = 0; minute < 4; ++minute) {
            client.orvana->sendTaskActivity(1);
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            QCoreApplication::processEvents(); // the next of those that wait
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        }
        QTRY_COMPARE(client.records(), texts({"jsonA", "jsonB"}));
        QList<qint64> ages;
        for (const auto &report : client.server.reports())
            ages.append(report.pastSeconds / 15 * 15);
        std::sort(ages.begin(), ages.end());
        QCOMPARE(ages, QList<qint64>({0, 0, 0, 0, 60, 90}));
    }
};

QTEST_MAIN(TestWire)
#include "tst_wire.moc"
