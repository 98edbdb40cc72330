#include "journallines.h"
#include "testclient.h"

#include <QImage>

namespace {

constexpr qint64 kHour = 3600;
constexpr qint64 kDay = 24 * kHour;
constexpr qint64 kYear = 365 * kDay;
constexpr qint64 kWrap = qint64(1) << 32; // ages have no sign

// It stands still between two calls.
bool setClock(const QString &local)
{
    QFile file(qEnvironmentVariable("OWN_CLOCK"));
    return file.open(QIODevice::WriteOnly) && file.write(local.toLatin1() + '\n') > 0;
}

void setZone(const QByteArray &zone)
{
    qputenv("TZ", zone);
    tzset();
}

} // namespace

// Whoever moves the clock, by hand, by law or by the hour, loses no minute.
class TestClock final : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setZone("UTC"); }

    void moved_data()
    {
        // The age of the waiting minute as it is sent; the minutes of the day, of three worked.
        addColumns<QString, QString, qint64, int, QByteArray>("before", "after", "age", "counted", "zone");
        const auto row = [](const char *name, const char *before, const char *after, qint64 age, int counted,
                            const char *zone = "UTC") {
            QTest::newRow(name) << s(before) << s(after) << age << counted << QByteArray(zone);
        };
        const char *now = "2026-03-02 10:00:00";
        row("an hour ahead", now, "2026-03-02 11:00:00", kHour, 3);
        row("a year ahead", now, "2027-03-02 10:00:00", kYear, 1);
        row("an hour back", now, "2026-03-02 09:00:00", kWrap - kHour, 3);
        row("a day back", now, "2026-03-01 10:00:00", kWrap - kDay, 3);
        row("a year back", now, "2025-03-02 10:00:00", kWrap - kYear, 3);
        row("midnight", "2026-03-02 23:59:50", "2026-03-03 00:00:10", 20, 1);
        row("new year", "2026-12-31 23:59:59", "2027-01-01 00:00:00", 1, 1);
        row("summer ends at night", "2026-10-25 01:59:50", "2026-10-25 04:00:10", 3 * kHour + 20, 3,
            "Europe/Berlin");
    }

    void moved()
    {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QFETCH(qint64, age);
        QFETCH(int, counted);
        QFETCH(QByteArray, zone);
        setZone(zone);
        QVERIFY(setClock(before));
        TestClient client;
        QVERIFY(client.logIn());
        const auto minute = [&](int active) {
            client.session()->incrementTodayTime();
            client.session()->addMinuteToWorktime();
            client.session()->addMinuteToActiveTime();
            client.orvana->sendTaskActivity(active);
            return QTest::qWaitFor([&] { return client.orvana->pendingActivityRequests() == 0; },
                                   TestClient::waitLimit);
        };
        QVERIFY(minute(1));
        client.server.stop();
        QVERIFY(minute(2));
        QVERIFY(client.server.start());
        QCOMPARE(client.records().size(), 1);

        QVERIFY(setClock(after));
        QVERIFY(minute(3));
        QTRY_COMPARE(client.server.reports().size(), 3);
        QTRY_VERIFY(client.records().isEmpty());
        QCOMPARE(client.server.reports().constLast().active, 2);
        QCOMPARE(client.server.reports().constLast().pastSeconds, age);
        client.session()->updateSecondsToDisplayedWorktime();
        QCOMPARE(client.session()->todayTime(), QTime(0, counted));
        QCOMPARE(client.session()->todayActiveTime(), QTime(0, counted));
    }

    // A kill takes a minute that has but its line in the journal.
    void restored_data()
    {
        // The clock at the next start; the age that is sent, without one the minute waits for its time to
        // come.
        addColumns<QString, QString, qint64, QByteArray>("before", "after", "age", "zone");
        const auto row = [](const char *name, const char *before, const char *after, qint64 age,
                            const char *zone = "UTC") {
            QTest::newRow(name) << s(before) << s(after) << age << QByteArray(zone);
        };
        const char *now = "2026-03-02 10:00:00";
        row("at once", now, now, 0);
        row("an hour ahead", now, "2026-03-02 11:00:00", kHour);
        row("a second back", now, "2026-03-02 09:59:59", -1);
        row("a year back", now, "2025-03-02 10:00:00", -1);
        row("next month", "2026-03-31 23:59:50", "2026-04-01 00:00:10", 20);
        row("next year", "2026-12-31 23:59:59", "2027-01-01 00:00:00", 1);
        row("two years ahead", now, "2028-03-01 10:00:00", 2 * kYear);
        row("summer ends at night", "2026-10-25 01:59:50", "2026-10-25 04:00:10", 3 * kHour + 20,
            "Europe/Berlin");
    }

    void restored()
    {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QFETCH(qint64, age);
        QFETCH(QByteArray, zone);
        setZone(zone);
        QVERIFY(setClock(before));
        TestClient client;
        QVERIFY(client.logIn());
        client.orvana->journal().started(s("17"), s("1702"));
        client.session()->incrementTodayTime();
        client.orvana->journalMinute(7);
        // Its record is of the same second, and there.
        client.server.stop();
        client.orvana->sendScreenshotActivity(QImage(64, 64, QImage::Format_RGB32));
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QVERIFY(client.server.start());
        QVERIFY(setClock(after));
        client.orvana->journal().slicePassed();
        const auto moment = [](const QString &text) {
            return QDateTime::fromString(text, s("yyyy-MM-dd HH:mm:ss"));
        };
        QCOMPARE(JournalLines(client.cacheFolder().filePath(s(".."))).count("clock"),
                 qAbs(moment(before).secsTo(moment(after))) > 2 ? 1 : 0);
        client.orvana->setCleanMode(true);
        client.restart();
        QVERIFY(isRecovered(client.orvana.get()));
        QCOMPARE(client.records().size(), age < 0 ? 1 : 2);
        client.orvana->sendCachedActivity();
        QTRY_VERIFY(client.records().isEmpty());
        QCOMPARE(client.server.reports().size(), age < 0 ? 0 : 1);
        if (age >= 0) {
            QCOMPARE(client.server.reports().constLast().active, 7);
            QCOMPARE(client.server.reports().constLast().pastSeconds, age);
        }
        const JournalLines lines(client.cacheFolder().filePath(s("..")));
        QVERIFY(lines.follow);
        QCOMPARE(lines.count("restored"), age < 0 ? 0 : 1);
        QCOMPARE(lines.count("gap"), 0);
    }

    // An hour that comes twice brings the same second again.
    void picturesOfOneMoment()
    {
        TestClient client;
        QVERIFY(client.logIn());
        client.server.stop();
        QImage image(64, 64, QImage::Format_RGB32);
        for (const Qt::GlobalColor colour : {Qt::red, Qt::blue, Qt::green}) {
            image.fill(colour);
            client.orvana->sendScreenshotActivity(image);
        }
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QVERIFY(client.server.start());
        client.orvana->sendCachedActivity();
        QTRY_VERIFY(client.records().isEmpty() && client.pictures().isEmpty());
        QSet<QByteArray> different;
        for (const localservice::Screenshot &shot : client.server.screenshots())
            different.insert(shot.jpeg);
        QCOMPARE(different.size(), 3);
    }
};

QTEST_MAIN(TestClock)

#include "tst_clock.moc"
