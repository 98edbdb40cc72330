#include "base/buildvalues.h"
#include "base/timetexts.h"
#include "files.h"
#include "offlineclient.h"
#include "rows.h"

#include <sys/resource.h>

namespace {

const QByteArray kAccepted = R"({"status":"ok"})";

} // namespace

class TestExchanges final : public QObject
{
    Q_OBJECT

private slots:
    void uploads_data()
    {
        // Answered after a restart with another base URL when there is one.
        addColumns<QByteArray, QByteArray, bool, QByteArray, bool>("service", "later", "isPicture", "body",
                                                                   "isAccepted");
        const auto rows = [](const char *service, bool isPicture, const QByteArray &body, bool isAccepted) {
            for (const char *later : {"", "https://another.invalid/x"})
                QTest::addRow("%s, %d, %s, %s", service, isPicture, body.constData(), later)
                    << QByteArray(service) << QByteArray(later) << isPicture << body << isAccepted;
        };
        rows("https://service.invalid", false, kAccepted, true);
        rows("https://service.invalid", true, "ok", true);
        rows("https://service.invalid", true, "ok\n", false);
        rows("https://service.invalid", true, kAccepted, false);
        rows("HTTPS://Service.INVALID:443/Team Work/ж", false, kAccepted, true);
        rows("https://задачи.рф", true, "ok", true);
    }

    void uploads()
    {
        QFETCH(QByteArray, service);
        QFETCH(QByteArray, later);
        QFETCH(bool, isPicture);
        QFETCH(QByteArray, body);
        QFETCH(bool, isAccepted);
        OfflineClient client;
        client.restart(service);
        client.login(s("user"));
        if (isPicture)
            client->sendScreenshotActivity(QImage(8, 8, QImage::Format_RGB32));
        else
            client->sendTaskActivity(3);
        const QDir cache(client.path(s("user/activity")));
        const auto files = [&cache] { return cache.entryList(QDir::Files | QDir::Hidden).size(); };
        const int before = isPicture ? 2 : 1;
        QCOMPARE(files(), before);
        if (!later.isEmpty()) {
            client.answer(client.takeRequests().last(), QByteArray(), QNetworkReply::TimeoutError);
            client.restart(later);
            client->sendCachedActivity();
        }
        client.answer(client.takeRequests().last(), body);
        QCOMPARE(files(), isAccepted ? 0 : before);
        QCOMPARE(client->pendingActivityRequests(), 0);
    }

    void addresses_data()
    {
        addColumns<QByteArray, QByteArray, QString>("environment", "configured", "used");
        QTest::newRow("slashes") << QByteArray("https://a.invalid/x//") << QByteArray()
                                 << s("https://a.invalid/x");
        QTest::newRow("configured") << QByteArray() << QByteArray("https://b.invalid/")
                                    << s("https://b.invalid");
        QTest::newRow("both") << QByteArray("http://a.invalid") << QByteArray("http://b.invalid")
                              << s("http://a.invalid");
        QTest::newRow("neither") << QByteArray() << QByteArray() << s(ORVANA_BUILTIN_SERVICE_URL);
    }

    void addresses()
    {
        QFETCH(QByteArray, environment);
        QFETCH(QByteArray, configured);
        const QString config = qEnvironmentVariable("ORVANA_CONFIG");
        QVERIFY(writeFile(config, configured.isEmpty() ? QByteArray() : "service-url=" + configured + '\n'));
        OfflineClient client;
        client.restart(environment);
        QVERIFY(QFile::remove(config));
        client->requestCheckUpdate();
        QTEST(client.takeRequests().last()->url().toString().remove(s("/monitor/ubuntu64/ortm.version")),
              "used");
    }

    void fetchesDetailsAhead()
    {
        OfflineClient client(s("user"));
        load(client,
             R"({"id":"2192","tasks":[{"id":"90"}]},{"id":"1","tasks":[{"id":"1"},{"id":"2"}]},)"
             R"({"id":"2","tasks":[{"id":"2"},{"id":"3"},{"id":"4"},{"id":"5"},{"id":"6"}]})");
        // Each task once, whatever becomes of each.
        QCOMPARE(answerDetails(client, {s("1"), s("2")}), texts({"1", "2", "3", "4", "5", "6"}));
        // The next list asks for what is missing and for what is new.
        const QByteArray next = R"({"id":"1","tasks":[{"id":"1"},{"id":"2"},{"id":"3"},{"id":"7"}]})";
        load(client, next);
        QCOMPARE(answerDetails(client), texts({"1", "2", "7"}));
        load(client, next);
        client->requestTaskInfo(s("0"));
        QVERIFY(client.takeRequests().isEmpty());
        // Tasks without details are remembered as such, those of the exempt team too.
        client.session()->save();
        QVERIFY(client.storedKeys(s("user/taskInfo.ini")).contains(s("90")));
    }

    void queueOfDetails()
    {
        constexpr int tasks = 1200;
        constexpr int queued = 1000;
        QByteArray list;
        QStringList ids;
        for (int i = 1; i <= tasks; ++i) {
            ids.append(QString::number(i));
            list += ids.last().toLatin1().prepend("{\"id\":\"").append("\"},");
        }
        list = "{\"id\":\"1\",\"tasks\":[" + list.chopped(1) + "]}";
        OfflineClient client(s("user"));
        for (const auto &asked : {ids.mid(0, queued), ids.mid(queued), ids.mid(0, queued)}) {
            load(client, list);
            QCOMPARE(answerDetails(client, ids), asked);
        }
        // What is queued for one user is not asked for another.
        load(client, list);
        const auto underWay = client.takeRequests();
        client.login(s("other"));
        for (const auto &request : underWay)
            client.answer(request, "");
        QVERIFY(client.takeRequests().isEmpty());
        load(client, list);
        QCOMPARE(answerDetails(client, ids), ids.mid(0, queued));
    }

    void unreadableRecord_data()
    {
        addColumns<bool, int>("isDenied", "left");
        QTest::newRow("just now") << false << 0;
        QTest::newRow("too large") << true << 1;
    }

    void unreadableRecord()
    {
        QFETCH(bool, isDenied);
        QFETCH(int, left);
        OfflineClient client(s("user"));
        client->sendTaskActivity(1);
        client.answer(client.takeRequests().last(), "", QNetworkReply::TimeoutError);
        const QDir cache(client.path(s("user/activity")));
        const QString path = cache.filePath(cache.entryList({s("json*")}).constFirst());
        const QByteArray record = contentsOf(path);
        if (isDenied) {
            QVERIFY(QFile::resize(path, 300 * 1024 * 1024));
            client->sendCachedActivity();
            client.runQueued();
        } else {
            client->sendCachedActivity(); // the folder stays open
            client.answer(client.takeRequests().last(), "", QNetworkReply::TimeoutError);
            rlimit limit = {};
            getrlimit(RLIMIT_NOFILE, &limit);
            const rlimit none = {0, limit.rlim_max};
            setrlimit(RLIMIT_NOFILE, &none);
            client->sendCachedActivity();
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        QVERIFY(client.takeRequests().isEmpty());
        QCOMPARE(client->pendingActivityRequests(), 0);
        QCOMPARE(client.records(), 1);
        QCOMPARE(client->backlog().count, 1 - left); // what is set aside no longer waits
        // It stops no other one, and is sent when it can be read.
        client->sendTaskActivity(2);
        for (auto requests = client.takeRequests(); !requests.isEmpty(); requests = client.takeRequests()) {
            client.answer(requests.first(), kAccepted);
            client.runQueued();
        }
        QCOMPARE(client.records(), left);
    }

    void diskRefuses()
    {
        constexpr int day = 24 * 60;
        OfflineClient client(s("user"));
        const QString folder = client.path(s("user/activity"));
        const auto block = [&] {
            return QDir(folder).removeRecursively() && writeFile(folder, "in the way");
        };
        const QStringList notice =
            texts({"Не удалось сохранить отчёт об активности на диск. Проверьте свободное место."});
        QVERIFY(block());
        for (int i = 0; i <= day; ++i)
            client->sendTaskActivity(i);
        QCOMPARE(client.notices().take(), notice);
        QCOMPARE(client->backlog().count, day);
        // The oldest is lost; the others are stored at the end.
        QVERIFY(QFile::remove(folder));
        client.restart();
        QCOMPARE(client.records(), day);
        for (const QFileInfo &record : QDir(folder).entryInfoList({s("json*")}))
            QVERIFY(!contentsOf(record.filePath()).contains("\"active\":\"0\""));
        // A second full disk is reported as well.
        for (int i = 0; i < 2; ++i) {
            QVERIFY(block());
            client->sendTaskActivity(1);
            QCOMPARE(client.notices().take(), notice);
            QVERIFY(QFile::remove(folder));
            client->sendTaskActivity(2);
            QCOMPARE(client.records(), 2);
        }
    }

    void backlogWords_data()
    {
        addColumns<int, QString>("count", "words");
        for (const int count : {1, 21, 101})
            QTest::addRow("%d", count) << count << s("%1 отчёт ждёт отправки с 14:05").arg(count);
        for (const int count : {2, 4, 22, 104})
            QTest::addRow("%d", count) << count << s("%1 отчёта ждут отправки с 14:05").arg(count);
        for (const int count : {5, 10, 11, 12, 14, 20, 25, 111, 112})
            QTest::addRow("%d", count) << count << s("%1 отчётов ждут отправки с 14:05").arg(count);
    }

    void backlogWords()
    {
        QFETCH(int, count);
        const QDateTime oldest(QDate(2026, 2, 3), QTime(14, 5));
        QTEST(backlogText(count, oldest, oldest.addSecs(60)), "words");
    }

private:
    static void load(OfflineClient &client, const QByteArray &teams)
    {
        client->requestTeamsAndTasks();
        client.answer(client.takeRequests().last(), '[' + teams + ']');
    }

    // Answers all requests for details, few of which are under way at a time; returns for
    // which tasks they were.
    static QStringList answerDetails(OfflineClient &client, const QStringList &failing = {})
    {
        QStringList asked;
        for (auto requests = client.takeRequests(); !requests.isEmpty(); requests = client.takeRequests()) {
            if (requests.size() > 4)
                return {s("too many at a time")};
            for (const auto &request : requests) {
                const QString id = request->property("task_id").toString();
                asked.append(id);
                const QByteArray details = "{\"status\":\"ok\",\"message\":{\"id\":" + id.toUtf8() + "}}";
                client.answer(request, failing.contains(id) ? QByteArray("garbage") : details,
                              id == failing.value(0) ? QNetworkReply::TimeoutError : QNetworkReply::NoError);
            }
        }
        return asked;
    }
};

QTEST_MAIN(TestExchanges)

#include "tst_exchanges.moc"
