#include "files.h"
#include "rows.h"
#include "testclient.h"

#include "model/json.h"
#include "storage/activitycache.h"

using localservice::Fault;

// Minutes wait on the disk until the service has accepted them.
class TestCache final : public QObject
{
    Q_OBJECT

private slots:
    void recordIsCompleteOrAbsent()
    {
        QTemporaryDir folder;
        QVERIFY(writeFile(folder.filePath(s(".new-json01-01-2026-00-00-00.AAAAAA")), "{\"api-"));
        ActivityCache cache;
        cache.setDirectory(folder.path());
        QVERIFY(QDir(folder.path()).isEmpty(QDir::Files | QDir::Hidden));

        const QDateTime now(QDate(2026, 2, 3), QTime(4, 5, 6));
        const QString path = cache.create("{}", now);
        QVERIFY(QFileInfo(path).fileName().startsWith(s("json03-02-2026-04-05-06")));
        QVERIFY(path != cache.create("{}", now));
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).size(), 2);

        QVERIFY(QDir(folder.path()).removeRecursively());
        QVERIFY2(!cache.create("{}", now).isEmpty(), "the folder is made again");
    }

    void takesUpEachRecordOnce()
    {
        QTemporaryDir folder;
        ActivityCache cache;
        cache.setDirectory(folder.path());
        QSet<QString> expected;
        for (int i = 0; i < 500; ++i)
            expected.insert(cache.create("{}", QDateTime::currentDateTime()));
        QVERIFY(QDir(folder.path()).mkdir(s("json-folder")));
        QVERIFY(QFile::link(s("/etc/hostname"), folder.filePath(s("json-link"))));
        QSet<QString> seen;
        for (int i = 0; i < 500; ++i)
            seen.insert(cache.next());
        QCOMPARE(seen, expected);
        QVERIFY2(expected.contains(cache.next()), "a record that stayed comes up again");
        for (const QString &path : qAsConst(expected))
            cache.remove(path);
        QVERIFY(cache.next().isEmpty());
        const QString late = cache.create("{}", QDateTime::currentDateTime());
        QCOMPARE(cache.next(), late);
    }

    void readsWhateverItWrote()
    {
        QString everyUnit;
        for (int unit = 0; unit <= 0xFFFF; ++unit)
            everyUnit.append(QChar(unit));
        const QString nul = s("7") + QChar(0) + s("8");
        for (const QString &id : {nul, QString(QChar(0)), everyUnit, QString(1500000, QLatin1Char('7'))}) {
            TestClient client;
            QVERIFY(client.logIn());
            client.session()->setCurrentTeamID(s("17"));
            client.session()->setCurrentTaskID(id);
            client.server.setFault(s("/api_active2"), Fault::answer(500), 1);
            client.orvana->sendTaskActivity(3);
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            QCOMPARE(client.records().size(), 1);
            client.orvana->sendCachedActivity();
            QTRY_COMPARE(client.server.requestsTo(s("/api_active2")).size(), 2);
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            QList<QByteArray> sent;
            for (const auto &request : client.server.requestsTo(s("/api_active2")))
                sent.append(request.body.mid(request.body.indexOf("task_id")));
            QVERIFY(sent.first().size() > id.size() && sent.first() == sent.last());
        }
    }

    void ageGrows()
    {
        const std::tuple<int, const char *, qint64> rows[] = {
            {60, "30", 90}, {60, "x", 60}, {60, "9223372036854775807", -1}}; // the service refuses it
        for (const auto &[secondsAgo, storedPast, expected] : rows) {
            TestClient client;
            QVERIFY(client.logIn());
            plant(client, s("json1"), record(client, stamp(secondsAgo), {{s("past"), s(storedPast)}}));
            client.orvana->sendCachedActivity();
            QTRY_COMPARE(client.server.requestsTo(s("/api_active2")).size(), 1);
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            QCOMPARE(client.server.reports().size(), expected < 0 ? 0 : 1);
            const qint64 past = expected < 0 ? expected : client.server.reports().constFirst().pastSeconds;
            QVERIFY2(past >= expected && past <= expected + 5, qPrintable(QString::number(past)));
        }
    }

    void badRecords()
    {
        for (const QByteArray &bytes : {QByteArray(), QByteArray("{\"version\":\"0.1\",\"body\":{}}"),
                                        QByteArray(200000, '{'), QByteArray(3 * 1024 * 1024, 'x')}) {
            TestClient client;
            QVERIFY(client.logIn());
            for (int i = 0; i < 300; ++i)
                plant(client, s("jsonbad%1").arg(i), i == 0 ? bytes : bytes.left(100));
            plant(client, s("jsongood"), record(client, stamp(5)));
            client.orvana->sendCachedActivity();
            QTRY_COMPARE(client.server.reports().size(), 1);
            QTRY_VERIFY(client.records().isEmpty());
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        }
    }

    void refusedRecordDoesNotBlockTheOthers()
    {
        TestClient client;
        QVERIFY(client.logIn());
        for (int i = 0; i < 5; ++i)
            plant(client, s("json%1").arg(i), record(client, stamp(60)));
        // The service will never take these.
        plant(client, s("jsonA"), record(client, stamp(60), {{s("active"), s("99")}}));
        plant(client, s("jsonB"), record(client, stamp(60), {{s("email"), QString()}}));
        for (int minute = 0; minute < 4; ++minute) {
            client.orvana->sendTaskActivity(1);
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            QCoreApplication::processEvents();
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        }
        QTRY_COMPARE(client.server.reports().size(), 9);
        QCOMPARE(client.records(), QStringList({s("jsonA"), s("jsonB")}));
    }

    void drainsWithoutAPause()
    {
        TestClient client;
        QVERIFY(client.logIn());
        constexpr int count = 2000;
        const QByteArray bytes = record(client, stamp(3600));
        for (int i = 0; i < count; ++i)
            plant(client, s("json%1").arg(i), bytes);
        QElapsedTimer sinceTick;
        qint64 longestStall = 0;
        QTimer tick;
        connect(&tick, &QTimer::timeout, this,
                [&] { longestStall = qMax(longestStall, sinceTick.restart()); });
        sinceTick.start();
        tick.start(0);
        client.orvana->sendTaskActivity(1);
        QTRY_COMPARE_WITH_TIMEOUT(client.server.reports().size(), count + 1, 60000);
        QTRY_VERIFY(client.records().isEmpty());
        QVERIFY2(longestStall < 1000, qPrintable(QString::number(longestStall)));
    }

private:
    static QByteArray record(const TestClient &client, const QString &timestamp, const QVariantMap &more = {})
    {
        QVariantMap body{{s("active"), s("5")},   {s("email"), client.session()->login()},
                         {s("past"), s("0")},     {s("task_id"), s("1702")},
                         {s("team_id"), s("17")}, {s("version"), s("1.1.0")}};
        for (auto it = more.cbegin(); it != more.cend(); ++it)
            body.insert(it.key(), it.value());
        return QtJson::serialize(
            QVariantMap{{s("version"), s("0.1")},
                        {s("api-url"), QString(client.server.baseUrl() + s("/api_active2"))},
                        {s("body"), body},
                        {s("timestamp"), timestamp}});
    }

    static QString stamp(int secondsAgo)
    {
        return figures(QDateTime::currentDateTime().addSecs(-secondsAgo), "dd-MM-yyyy-hh-mm-ss");
    }

    static void plant(const TestClient &client, const QString &name, const QByteArray &bytes)
    {
        QVERIFY(writeFile(client.cacheFolder().filePath(name), bytes));
    }
};

QTEST_MAIN(TestCache)
#include "tst_cache.moc"
