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

    void returnsEachRecordOnce()
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

    void readsWhateverItWrote_data()
    {
        QTest::addColumn<QString>("id");
        QString everyUnit;
        for (int unit = 0; unit <= 0xFFFF; ++unit)
            everyUnit.append(QChar(unit));
        QTest::newRow("NUL inside") << QString(s("7") + QChar(0) + s("8"));
        QTest::newRow("NUL") << QString(QChar(0));
        QTest::newRow("every unit") << everyUnit;
        QTest::newRow("long") << QString(1500000, QLatin1Char('7'));
    }

    void readsWhateverItWrote()
    {
        QFETCH(QString, id);
        TestClient client;
        QVERIFY(client.logIn());
        client.session()->setCurrentTaskID(id);
        client.server.setFault(s("/api_active2"), Fault::answer(500), 1);
        client.orvana->sendTaskActivity(3);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        client.orvana->sendCachedActivity();
        QTRY_COMPARE(client.server.requestsTo(s("/api_active2")).size(), 2);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QList<QByteArray> sent;
        for (const auto &request : client.server.requestsTo(s("/api_active2")))
            sent.append(request.body.mid(request.body.indexOf("task_id")));
        QVERIFY(sent.first().size() > id.size() && sent.first() == sent.last());
    }

    void ageGrows_data()
    {
        addColumns<QString, qint64>("past", "expected");
        QTest::newRow("added") << s("30") << qint64(90);
        QTest::newRow("no number") << s("x") << qint64(60);
        QTest::newRow("the service refuses it") << s("9223372036854775807") << qint64(-1);
    }

    void ageGrows()
    {
        QFETCH(QString, past);
        QFETCH(qint64, expected);
        TestClient client;
        QVERIFY(client.logIn());
        plant(client, s("json1"), record(client, stamp(60), {{s("past"), past}}));
        client.orvana->sendCachedActivity();
        QTRY_COMPARE(client.server.requestsTo(s("/api_active2")).size(), 1);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        const auto reports = client.server.reports();
        const qint64 sent = reports.isEmpty() ? -1 : reports.constFirst().pastSeconds;
        QVERIFY2(sent >= expected && sent <= expected + 5, qPrintable(QString::number(sent)));
    }

    void badRecords()
    {
        TestClient client;
        QVERIFY(client.logIn());
        for (int i = 0; i < 300; ++i)
            plant(client, s("jsonbad%1").arg(i), QByteArray(i == 0 ? 3 * 1024 * 1024 : i, i % 2 ? '{' : 'x'));
        plant(client, s("jsongood"), record(client, stamp(5)));
        client.orvana->sendCachedActivity();
        QTRY_COMPARE(client.server.reports().size(), 1);
        QTRY_VERIFY(client.records().isEmpty());
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
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
            QCoreApplication::processEvents(); // the next of those that wait
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        }
        QTRY_COMPARE(client.server.reports().size(), 9);
        QCOMPARE(client.records(), QStringList({s("jsonA"), s("jsonB")}));
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
