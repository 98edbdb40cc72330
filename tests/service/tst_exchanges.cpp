#include "offlineclient.h"
#include "rows.h"

class TestExchanges final : public QObject
{
    Q_OBJECT

private slots:
    void uploads_data()
    {
        addColumns<QByteArray, bool, QByteArray, bool>("service", "picture", "body", "accepted");
        const QByteArray plain("https://service.invalid");
        const QByteArray status(R"({"status":"ok"})");
        QTest::newRow("minute") << plain << false << status << true;
        QTest::newRow("picture") << plain << true << QByteArray("ok") << true;
        QTest::newRow("picture, ok and more") << plain << true << QByteArray("ok\n") << false;
        QTest::newRow("picture, status") << plain << true << status << false;
        QTest::newRow("capital letters") << QByteArray("HTTPS://Service.INVALID") << false << status << true;
        QTest::newRow("usual port") << QByteArray("https://service.invalid:443/") << false << status << true;
        QTest::newRow("folder") << QByteArray("https://service.invalid/Team Work/ж") << false << status
                                << true;
        QTest::newRow("name in Cyrillic") << QByteArray("https://задачи.рф") << false << status << true;
        QTest::newRow("picture, capital letters")
            << QByteArray("https://SERVICE.invalid") << true << QByteArray("ok") << true;
    }

    void uploads()
    {
        QFETCH(QByteArray, service);
        QFETCH(bool, picture);
        QFETCH(QByteArray, body);
        QFETCH(bool, accepted);
        OfflineClient client;
        client.restart(service);
        client.login(s("user"));
        if (picture)
            client->sendScreenshotActivity(QImage(8, 8, QImage::Format_RGB32));
        else
            client->sendTaskActivity(3);
        const auto requests = client.takeRequests();
        QCOMPARE(requests.size(), 1);
        const QDir cache(client.path(s("user/activity")));
        QCOMPARE(cache.entryList(QDir::Files | QDir::Hidden).size(), picture ? 2 : 1);
        client.answer(requests.first(), body);
        QCOMPARE(cache.entryList(QDir::Files | QDir::Hidden).size(), accepted ? 0 : picture ? 2 : 1);
        QCOMPARE(client->pendingActivityRequests(), 0);
    }

    void fetchesDetailsAhead()
    {
        OfflineClient client;
        client.login(s("user"));
        QStringList asked;
        const auto fetch = [&] {
            QVector<std::shared_ptr<QNetworkReply>> requests;
            for (const auto &request : client.takeRequests()) {
                if (request->property("stage").toInt() != Orvana::TaskDetails)
                    continue;
                asked.append(request->property("task_id").toString());
                requests.append(request);
            }
            return requests;
        };
        QByteArray lists =
            R"([{"id":"2192","tasks":[{"id":"90"},{"id":"91"}]},{"id":"1","tasks":[{"id":"1"},{"id":"2"}]},)"
            R"({"id":"2","tasks":[{"id":"2"},{"id":"3"},{"id":"4"},{"id":"5"},{"id":"6"}]}])";
        const auto load = [&] {
            client->requestTeamsAndTasks();
            client.answer(client.takeRequests().last(), lists);
        };
        load();
        // Each task once, a few at a time, whatever becomes of each.
        for (auto requests = fetch(); !requests.isEmpty(); requests = fetch()) {
            QVERIFY(requests.size() <= 4);
            for (const auto &request : requests) {
                const QByteArray id = request->property("task_id").toByteArray();
                if (id == "1")
                    client.answer(request, QByteArray(), QNetworkReply::TimeoutError);
                else if (id == "2")
                    client.answer(request, "garbage");
                else
                    client.answer(request, R"({"status":"ok","message":{"id":")" + id + R"("}})");
            }
        }
        QCOMPARE(asked, texts({"1", "2", "3", "4", "5", "6"}));
        // The next list asks again for what is missing.
        asked.clear();
        load();
        fetch();
        QCOMPARE(asked, texts({"1", "2"}));
        client->requestTaskInfo(s("0"));
        QVERIFY(client.takeRequests().isEmpty());
        // Tasks without details are remembered as such, those of the exempt team too.
        client.session()->save();
        QVERIFY(client.storedKeys(s("user/taskInfo.ini")).contains(s("90")));
    }
};

QTEST_MAIN(TestExchanges)

#include "tst_exchanges.moc"
