#include "offlineclient.h"
#include "rows.h"

class TestExchanges final : public QObject
{
    Q_OBJECT

private slots:
    void uploads()
    {
        const std::tuple<const char *, bool, const char *, bool> rows[] = {
            {"https://service.invalid", false, R"({"status":"ok"})", true},
            {"https://service.invalid", true, "ok", true},
            {"https://service.invalid", true, "ok\n", false},
            {"https://service.invalid", true, R"({"status":"ok"})", false},
            {"HTTPS://Service.INVALID:443/Team Work/ж", false, R"({"status":"ok"})", true},
            {"https://задачи.рф", true, "ok", true}};
        for (const auto &[service, isPicture, body, isAccepted] : rows) {
            upload(service, service, isPicture, body, isAccepted);
            upload(service, "https://another.invalid/x", isPicture, body, isAccepted);
        }
    }

    void fetchesDetailsAhead()
    {
        OfflineClient client(s("user"));
        const auto load = [&] {
            client->requestTeamsAndTasks();
            client.answer(
                client.takeRequests().last(),
                R"([{"id":"2192","tasks":[{"id":"90"}]},{"id":"1","tasks":[{"id":"1"},{"id":"2"}]},)"
                R"({"id":"2","tasks":[{"id":"2"},{"id":"3"},{"id":"4"},{"id":"5"},{"id":"6"}]}])");
        };
        QStringList asked;
        load();
        // Each task once, a few at a time, whatever becomes of each.
        for (auto requests = client.takeRequests(); !requests.isEmpty(); requests = client.takeRequests()) {
            QVERIFY(requests.size() <= 4);
            for (const auto &request : requests) {
                const QByteArray id = request->property("task_id").toByteArray();
                asked.append(s(id.constData()));
                client.answer(request,
                              id == "2" ? QByteArray("garbage")
                                        : R"({"status":"ok","message":{"id":")" + id + R"("}})",
                              id == "1" ? QNetworkReply::TimeoutError : QNetworkReply::NoError);
            }
        }
        QCOMPARE(asked, texts({"1", "2", "3", "4", "5", "6"}));
        // The next list asks again for what is missing.
        load();
        const auto again = client.takeRequests();
        QCOMPARE(again.size(), 2);
        QCOMPARE(again.first()->property("task_id").toString() + again.last()->property("task_id").toString(),
                 s("12"));
        client->requestTaskInfo(s("0"));
        QVERIFY(client.takeRequests().isEmpty());
        // Tasks without details are remembered as such, those of the exempt team too.
        client.session()->save();
        QVERIFY(client.storedKeys(s("user/taskInfo.ini")).contains(s("90")));
    }

private:
    // Answered after a restart with another base URL when that differs.
    static void upload(const char *service, const char *later, bool isPicture, const char *body, bool isAccepted)
    {
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
        if (qstrcmp(service, later) != 0) {
            client.answer(client.takeRequests().last(), QByteArray(), QNetworkReply::TimeoutError);
            client.restart(later);
            client->sendCachedActivity();
        }
        client.answer(client.takeRequests().last(), body);
        QVERIFY2(files() == (isAccepted ? 0 : before), service);
        QCOMPARE(client->pendingActivityRequests(), 0);
    }
};

QTEST_MAIN(TestExchanges)

#include "tst_exchanges.moc"
