#include "files.h"
#include "offlineclient.h"
#include "texts.h"

#include "update/orvanaupdate.h"

#include <QtTest>

namespace {

constexpr int kStep = 64; // bytes
constexpr int kNoFile = -2;
const QString kUser = s("user@host");

QByteArray listsOf(const char *title)
{
    return QByteArray(R"([{"id":"1","name":"C1","tasks":[{"id":"7","title":")") + title
        + R"(","deadline":"2024-03-01 18:00:00","block":"1","importance":2}]}])";
}

} // namespace

// Every file of the storage directory damaged in every place, as it is read at the
// next start; the day's work goes on and the files are whole again afterwards.
class TestStoredFaults final : public QObject
{
    Q_OBJECT

private slots:
    void damagedFile_data();
    void damagedFile();
    void cutShortWhileReplaced_data();
    void cutShortWhileReplaced();
    void zonelessMoments();

private:
    static void fill(OfflineClient &client, const char *title);
    static void verifyUsable(OfflineClient &client);
};

void TestStoredFaults::fill(OfflineClient &client, const char *title)
{
    client.login(kUser, s("secret"));
    OrvanaUpdate::instance()->init(client.get());
    client->requestTeamsAndTasks();
    client.answer(client.takeRequests().last(), listsOf(title));
    TaskInfo info;
    info.id = s("7");
    info.title = s("подробно");
    info.deadline = QDateTime(QDate(2024, 3, 1), QTime(18, 0));
    info.files.append(Attachment());
    client.session()->addTaskInfoData(info.id, info);
    client->changeTask(s("1"), s("7"));
    client.session()->addMinuteToActiveTime();
    client.session()->addMinuteToWorktime();
    OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"1.1.0\"}]");
}

void TestStoredFaults::verifyUsable(OfflineClient &client)
{
    fill(client, "anew");
    client->sendTaskActivity(5);
    QCOMPARE(client->pendingActivityRequests(), 1);
    client.takeRequests();
    client.restart();
    client.popups().take();
    QCOMPARE(client.session()->login(), kUser);
    QCOMPARE(client.session()->password(), s("secret"));
    QCOMPARE(client.session()->task(s("1"), s("7")).title, s("anew"));
    QCOMPARE(client.session()->taskInfo(s("7")).title, s("подробно"));
    QVERIFY(client.session()->todayTime() >= QTime(0, 1));
}

void TestStoredFaults::damagedFile_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"config.ini", "update.json", "user@host/session.ini", "user@host/teams.ini",
                             "user@host/tasks.ini", "user@host/taskInfo.ini"})
        QTest::newRow(name) << s(name);
}

void TestStoredFaults::damagedFile()
{
    QFETCH(QString, name);
    OfflineClient client;
    fill(client, "before");
    client.stop();
    const QByteArray whole = contentsOf(client.path(name));
    QVERIFY(whole.startsWith("[General]\n"));
    QVector<QByteArray> damaged{
        QByteArray(),
        QByteArray(100000, '\0'),
        "[General]\n" + QByteArray(300000, '['),
        QByteArray(whole).replace("\n", "\r\n"),
        // From another version, and from another program altogether.
        whole + "newKey=@Variant(\\0\\0\\x7f\\xff\\x1)\n[newer]\nkey=1\n",
        QByteArray(whole).replace("=", "=@Invalid() "),
        "<?xml version=\"1.0\"?><settings/>",
    };
    for (int at = 0; at < whole.size(); at += kStep) {
        damaged.append(whole.left(at));
        for (const int bit : {0x01, 0x20, 0x80}) {
            QByteArray flipped = whole;
            const int place = std::min(at + bit % kStep, whole.size() - 1);
            flipped[place] = static_cast<char>(flipped.at(place) ^ bit);
            damaged.append(flipped);
        }
    }
    for (const QByteArray &bytes : qAsConst(damaged)) {
        client.stop();
        QVERIFY(writeFile(client.path(name), bytes));
        client.restart();
        OrvanaUpdate::instance()->init(client.get());
        OrvanaUpdate::instance()->availableUpdateVersion();
        verifyUsable(client);
    }
}

// The program ended between writing a file and seeing that it is whole.
void TestStoredFaults::cutShortWhileReplaced_data()
{
    QTest::addColumn<int>("kept"); // bytes of the new file
    QTest::addColumn<QString>("title");
    QTest::newRow("nothing") << 0 << "before";
    QTest::newRow("half") << 40 << "before";
    QTest::newRow("all") << 1000000 << "after";
    QTest::newRow("no file") << kNoFile << "before";
}

void TestStoredFaults::cutShortWhileReplaced()
{
    QFETCH(int, kept);
    QFETCH(QString, title);
    OfflineClient client;
    fill(client, "before");
    client.stop();
    const QString path = client.path(s("user@host/tasks.ini"));
    const QByteArray before = contentsOf(path);
    client.restart();
    fill(client, "after");
    client.stop();
    const QString previous = client.path(s("user@host/.old-tasks.ini"));
    QVERIFY(!QFile::exists(previous));
    QVERIFY(writeFile(previous, before));
    if (kept == kNoFile)
        QVERIFY(QFile::remove(path));
    else
        QVERIFY(writeFile(path, contentsOf(path).left(kept)));
    client.restart();
    QCOMPARE(client.session()->task(s("1"), s("7")).title, title);
    QVERIFY(!QFile::exists(previous));
}

void TestStoredFaults::zonelessMoments()
{
    const QDateTime moment(QDate(2024, 3, 1), QTime(18, 0), Qt::UTC);
    QByteArray bytes;
    QDataStream raw(&bytes, QIODevice::WriteOnly);
    raw << QString() << QString() << moment.date() << moment.time() << qint8(Qt::OffsetFromUTC) << qint32(0)
        << QString() << QDateTime() << qint32(0);
    QByteArray before;
    for (int i = 0; i < 2; ++i) {
        Task task;
        QDataStream input(bytes);
        input >> task;
        QCOMPARE(input.status(), QDataStream::Ok);
        QCOMPARE(task.deadline, moment);
        before = bytes;
        bytes.clear();
        QDataStream output(&bytes, QIODevice::WriteOnly);
        output << task;
    }
    QCOMPARE(bytes, before);
}

QTEST_MAIN(TestStoredFaults)

#include "tst_storedfaults.moc"
