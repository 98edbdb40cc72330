#include "testclient.h"

#include "model/json.h"
#include "service/activitycache.h"

#include <QImage>
#include <QProcess>

#include <sys/stat.h>
#include <unistd.h>

using localservice::Fault;

// Minutes wait on the disk until the service has accepted them.
class TestCache final : public QObject
{
    Q_OBJECT

private slots:
    void recordIsCompleteOrAbsent();
    void takesUpEachRecordOnce();
    void unsentMinutesArriveAfterAnOutage();
    void outageKinds_data();
    void outageKinds();
    void ageGrows_data();
    void ageGrows();
    void absurdAge();
    void badRecords_data();
    void badRecords();
    void refusedRecordDoesNotBlockTheOthers();
    void recordsOutliveTheProgram();
    void diskThatRefuses();
    void recordThatCannotBeDeletedIsSentOnce();
    void everythingIsPrivate();
    void anotherUsersFolderIsNotTouched();
    void drainsWithoutAPause();

private:
    static QByteArray record(const TestClient &client, const QString &timestamp, const QVariantMap &more = {})
    {
        QVariantMap body {{QStringLiteral("active"), QStringLiteral("5")},
                          {QStringLiteral("email"), client.session()->login()},
                          {QStringLiteral("past"), QStringLiteral("0")},
                          {QStringLiteral("task_id"), QStringLiteral("1702")},
                          {QStringLiteral("team_id"), QStringLiteral("17")},
                          {QStringLiteral("version"), QStringLiteral("1.1.0")}};
        for (auto it = more.cbegin(); it != more.cend(); ++it)
            body.insert(it.key(), it.value());
        return QtJson::serialize(
            QVariantMap {{QStringLiteral("version"), QStringLiteral("0.1")},
                         {QStringLiteral("api-url"), QString(client.server.baseUrl() + QStringLiteral("/api_active2"))},
                         {QStringLiteral("body"), body},
                         {QStringLiteral("timestamp"), timestamp}});
    }

    static QString stamp(int secondsAgo)
    {
        return QDateTime::currentDateTime().addSecs(-secondsAgo).toString(QStringLiteral("dd-MM-yyyy-hh-mm-ss"));
    }

    static void plant(const TestClient &client, const QString &name, const QByteArray &bytes)
    {
        QFile file(client.cacheFolder().filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(bytes), bytes.size());
    }
};

void TestCache::recordIsCompleteOrAbsent()
{
    QTemporaryDir folder;
    {
        QFile half(folder.filePath(QStringLiteral(".new-json01-01-2026-00-00-00.AAAAAA")));
        QVERIFY(half.open(QIODevice::WriteOnly));
        half.write("{\"api-");
    }
    ActivityCache cache;
    cache.setDirectory(folder.path());
    QVERIFY(QDir(folder.path()).isEmpty(QDir::Files | QDir::Hidden));

    const QDateTime now(QDate(2026, 2, 3), QTime(4, 5, 6));
    const QString path = cache.create("{}", now);
    QVERIFY(QFileInfo(path).fileName().startsWith(QStringLiteral("json03-02-2026-04-05-06")));
    QVERIFY(path != cache.create("{}", now));
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).size(), 2);

    QVERIFY(QDir(folder.path()).removeRecursively());
    QVERIFY2(!cache.create("{}", now).isEmpty(), "the folder is made again");
    QVERIFY(QDir(folder.path()).removeRecursively());
    {
        QFile obstacle(folder.path());
        QVERIFY(obstacle.open(QIODevice::WriteOnly));
    }
    QString reason;
    QVERIFY(cache.create("{}", now, &reason).isEmpty());
    QVERIFY(!reason.isEmpty());
    QVERIFY(cache.next().isEmpty());
    QFile::remove(folder.path());
}

void TestCache::takesUpEachRecordOnce()
{
    QTemporaryDir folder;
    ActivityCache cache;
    cache.setDirectory(folder.path());
    QSet<QString> expected;
    for (int i = 0; i < 500; ++i)
        expected.insert(cache.create("{}", QDateTime::currentDateTime()));
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("json-folder")));
    QVERIFY(symlink("/etc/hostname", QFile::encodeName(folder.filePath(QStringLiteral("json-link"))).constData()) == 0);
    QFile picture(folder.filePath(QStringLiteral("screenshot.jpg")));
    QVERIFY(picture.open(QIODevice::WriteOnly));

    QSet<QString> seen;
    for (int i = 0; i < 500; ++i)
        seen.insert(cache.next());
    QCOMPARE(seen, expected);
    const QString again = cache.next();
    QVERIFY2(expected.contains(again), "a record that stayed comes up again");
    for (const QString &path : qAsConst(expected))
        QVERIFY(cache.remove(path));
    QVERIFY(cache.next().isEmpty());
    const QString late = cache.create("{}", QDateTime::currentDateTime());
    QCOMPARE(cache.next(), late);
}

void TestCache::unsentMinutesArriveAfterAnOutage()
{
    TestClient client;
    QVERIFY(client.logIn());
    QSignalSpy online(client.orvana.get(), &Orvana::onlineChanged);
    client.server.stop();
    for (int minute = 0; minute < 10; ++minute)
        client.orvana->sendTaskActivity(minute);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    QCOMPARE(online.count(), 1);
    QCOMPARE(client.records().size(), 10);

    QVERIFY(client.server.start());
    client.orvana->sendTaskActivity(10);
    QTRY_COMPARE(client.server.reports().size(), 11);
    QTRY_VERIFY(client.records().isEmpty());
    QSet<int> minutes;
    for (const localservice::ActivityReport &report : client.server.reports())
        minutes.insert(report.active);
    QCOMPARE(minutes.size(), 11);
    QCOMPARE(client.orvana->pendingActivityRequests(), 0);
    QVERIFY(client.session()->isOnline());
}

void TestCache::outageKinds_data()
{
    QTest::addColumn<int>("status"); // 0: no answer
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("staysOnline");
    QTest::newRow("connection closed") << 0 << QByteArray() << false;
    QTest::newRow("500") << 500 << QByteArray("oops") << false;
    QTest::newRow("503 that says ok") << 503 << QByteArray("{\"status\":\"ok\"}") << false;
    QTest::newRow("401") << 401 << QByteArray() << false;
    QTest::newRow("404") << 404 << QByteArray("<html>") << false;
    QTest::newRow("429") << 429 << QByteArray() << false;
    QTest::newRow("empty") << 200 << QByteArray() << true;
    QTest::newRow("bare ok") << 200 << QByteArray("ok") << true;
    QTest::newRow("HTML") << 200 << QByteArray("\t<!DOCTYPE html>") << true;
    QTest::newRow("garbage") << 200 << QByteArray("\x00\xFF{\"status\":\"ok\"", 16) << true;
    QTest::newRow("truncated") << 200 << QByteArray("{\"status\":\"o") << true;
    QTest::newRow("not ok") << 200 << QByteArray("{\"status\":\"fail\"}") << true;
    QTest::newRow("wrong type") << 200 << QByteArray("{\"status\":[\"ok\"]}") << true;
    QTest::newRow("service error") << 200 << QByteArray("{\"status\":-1}") << true;
    QTest::newRow("nested too deep") << 200 << QByteArray(100000, '[') << true;
}

void TestCache::outageKinds()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(bool, staysOnline);
    TestClient client;
    QVERIFY(client.logIn());
    client.server.setFault(QStringLiteral("/api_active2"), status == 0 ? Fault::refuse() : Fault::answer(status, body));
    for (int minute = 0; minute < 3; ++minute)
        client.orvana->sendTaskActivity(minute);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    QCOMPARE(client.session()->isOnline(), staysOnline);
    QCOMPARE(client.records().size(), 3);
    QVERIFY(client.server.reports().isEmpty());

    client.server.clearFaults();
    client.orvana->sendTaskActivity(3);
    QTRY_COMPARE(client.server.reports().size(), 4);
    QTRY_VERIFY(client.records().isEmpty());
}

void TestCache::ageGrows_data()
{
    QTest::addColumn<int>("secondsAgo");
    QTest::addColumn<QString>("storedPast");
    QTest::addColumn<qint64>("expected");
    QTest::newRow("seven and a half minutes") << 450 << "0" << qint64(450);
    QTest::newRow("aged before") << 60 << "30" << qint64(90);
    QTest::newRow("no number") << 60 << "x" << qint64(60);
    QTest::newRow("from the future") << -10 << "0" << (qint64(1) << 32) - 10;
}

void TestCache::ageGrows()
{
    QFETCH(int, secondsAgo);
    QFETCH(QString, storedPast);
    QFETCH(qint64, expected);
    TestClient client;
    QVERIFY(client.logIn());
    plant(client, QStringLiteral("json1"),
          record(client, stamp(secondsAgo), {{QStringLiteral("past"), storedPast}}));
    client.orvana->sendCachedActivity();
    QTRY_COMPARE(client.server.reports().size(), 1);
    const qint64 past = client.server.reports().constFirst().pastSeconds;
    QVERIFY2(past >= expected && past <= expected + 5, qPrintable(QString::number(past)));
}

// No minute is that old: the service refuses it, and nothing else suffers.
void TestCache::absurdAge()
{
    TestClient client;
    QVERIFY(client.logIn());
    plant(client, QStringLiteral("json1"),
          record(client, stamp(60), {{QStringLiteral("past"), QStringLiteral("9223372036854775807")}}));
    client.orvana->sendCachedActivity();
    QTRY_COMPARE(client.server.requestsTo(QStringLiteral("/api_active2")).size(), 1);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    QVERIFY(client.server.reports().isEmpty());
    client.orvana->sendTaskActivity(1);
    QTRY_COMPARE(client.server.reports().size(), 1);
}

void TestCache::badRecords_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("half") << QByteArray("{\"api-url\":\"https://127.0");
    QTest::newRow("no object") << QByteArray("[1,2]");
    QTest::newRow("no address") << QByteArray("{\"version\":\"0.1\",\"body\":{}}");
    QTest::newRow("bytes") << QByteArray("\x00\x01\xFF\xFE", 4);
    QTest::newRow("deep") << QByteArray(200000, '{');
    QTest::newRow("huge") << QByteArray(3 * 1024 * 1024, 'x');
}

void TestCache::badRecords()
{
    QFETCH(QByteArray, bytes);
    TestClient client;
    QVERIFY(client.logIn());
    for (int i = 0; i < 300; ++i)
        plant(client, QStringLiteral("jsonbad%1").arg(i), i == 0 ? bytes : bytes.left(100));
    plant(client, QStringLiteral("jsongood"), record(client, stamp(5)));
    client.orvana->sendCachedActivity();
    QTRY_COMPARE(client.server.reports().size(), 1);
    QTRY_VERIFY(client.records().isEmpty());
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
}

void TestCache::refusedRecordDoesNotBlockTheOthers()
{
    TestClient client;
    QVERIFY(client.logIn());
    for (int i = 0; i < 5; ++i)
        plant(client, QStringLiteral("json%1").arg(i), record(client, stamp(60)));
    // The service will never take these.
    plant(client, QStringLiteral("jsonA"), record(client, stamp(60), {{QStringLiteral("active"), QStringLiteral("99")}}));
    plant(client, QStringLiteral("jsonB"), record(client, stamp(60), {{QStringLiteral("email"), QString()}}));
    for (int minute = 0; minute < 4; ++minute) {
        client.orvana->sendTaskActivity(1);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QCoreApplication::processEvents();
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    }
    QTRY_COMPARE(client.server.reports().size(), 9);
    QCOMPARE(client.records(), QStringList({QStringLiteral("jsonA"), QStringLiteral("jsonB")}));
}

void TestCache::recordsOutliveTheProgram()
{
    TestClient client;
    QVERIFY(client.logIn());
    client.server.stop();
    client.orvana->sendTaskActivity(4);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    client.restart();
    QCOMPARE(client.session()->login(), TestClient::anna());
    QVERIFY(client.session()->isLogged());
    QCOMPARE(client.records().size(), 1);
    QVERIFY(client.server.start());
    client.orvana->sendTaskActivity(6);
    QTRY_COMPARE(client.server.reports().size(), 2);
    QTRY_VERIFY(client.records().isEmpty());
}

void TestCache::diskThatRefuses()
{
    TestClient client;
    QVERIFY(client.logIn());
    const QString folder = client.cacheFolder().path();
    const QString aside = folder + QStringLiteral(".aside");
    QVERIFY(QFile::rename(folder, aside));
    {
        QFile obstacle(folder);
        QVERIFY(obstacle.open(QIODevice::WriteOnly));
    }
    client.orvana->sendTaskActivity(1);
    client.orvana->sendTaskActivity(2);
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(Qt::red);
    client.orvana->sendScreenshotActivity(image);
    const QStringList told = TestClient::popups();
    QCOMPARE(told.count(QStringLiteral("Не удалось сохранить отчёт об активности на диск. Проверьте свободное место.")),
             1);
    QVERIFY(client.server.reports().isEmpty());

    QVERIFY(QFile::remove(folder) && QFile::rename(aside, folder));
    client.orvana->sendTaskActivity(3);
    QTRY_COMPARE(client.server.reports().size(), 3);
    QTRY_VERIFY(client.records().isEmpty());
}

void TestCache::recordThatCannotBeDeletedIsSentOnce()
{
    if (geteuid() == 0) {
        // Root deletes whatever the modes say; the immutable flag is what stops it.
        QTemporaryDir probe;
        const QString file = probe.filePath(QStringLiteral("f"));
        QFile(file).open(QIODevice::WriteOnly);
        if (QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), file}) != 0)
            QSKIP("this file system has no immutable files");
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), file});
    }
    TestClient client;
    QVERIFY(client.logIn());
    plant(client, QStringLiteral("json1"), record(client, stamp(60)));
    const QString path = client.cacheFolder().filePath(QStringLiteral("json1"));
    if (geteuid() == 0)
        QCOMPARE(QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), path}), 0);
    else
        QFile::setPermissions(client.cacheFolder().path(), QFile::ReadOwner | QFile::ExeOwner);
    client.orvana->sendCachedActivity();
    QTRY_COMPARE(client.server.reports().size(), 1);
    QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
    for (int i = 0; i < 3; ++i)
        client.orvana->sendCachedActivity();
    QCOMPARE(client.orvana->pendingActivityRequests(), 0);
    QCOMPARE(client.server.requestsTo(QStringLiteral("/api_active2")).size(), 1);
    if (geteuid() == 0)
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), path});
    else
        QFile::setPermissions(client.cacheFolder().path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void TestCache::everythingIsPrivate()
{
    const mode_t before = umask(0022);
    TestClient client;
    QVERIFY(client.logIn());
    client.session()->save();
    for (const QString &path : {client.orvana->storageDirectory().path(), client.cacheFolder().path(),
                                QDir::cleanPath(client.cacheFolder().filePath(QStringLiteral("..")))}) {
        struct stat info = {};
        QCOMPARE(stat(QFile::encodeName(path).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, mode_t(0700));
    }
    umask(before);
}

void TestCache::anotherUsersFolderIsNotTouched()
{
    QTemporaryDir root;
    QTemporaryDir victim;
    const QString link = root.filePath(QStringLiteral(".orvana"));
    QVERIFY(QFile::link(victim.path(), link));
    qputenv("ORVANA_STORAGE_ROOT", QFile::encodeName(root.path()));
    {
        Orvana orvana;
        QVERIFY(!orvana.isStorageUsable());
    }
    QVERIFY(QDir(victim.path()).isEmpty());
    QVERIFY(QFile::remove(link));
    if (geteuid() != 0)
        return;
    QVERIFY(QDir().mkdir(link));
    QCOMPARE(chown(QFile::encodeName(link).constData(), 12345, 12345), 0);
    {
        Orvana orvana;
        QVERIFY(!orvana.isStorageUsable());
    }
    QVERIFY(QDir(link).isEmpty());
}

void TestCache::drainsWithoutAPause()
{
    TestClient client;
    QVERIFY(client.logIn());
    constexpr int count = 2000;
    const QByteArray bytes = record(client, stamp(3600));
    for (int i = 0; i < count; ++i)
        plant(client, QStringLiteral("json%1").arg(i), bytes);
    QElapsedTimer sinceTick;
    qint64 longestStall = 0;
    QTimer tick;
    connect(&tick, &QTimer::timeout, this, [&] { longestStall = qMax(longestStall, sinceTick.restart()); });
    sinceTick.start();
    tick.start(0);
    client.orvana->sendTaskActivity(1);
    QTRY_COMPARE_WITH_TIMEOUT(client.server.reports().size(), count + 1, 60000);
    QTRY_VERIFY(client.records().isEmpty());
    QVERIFY2(longestStall < 1000, qPrintable(QString::number(longestStall)));
}

QTEST_MAIN(TestCache)
#include "tst_cache.moc"
