#include "files.h"
#include "offlineclient.h"
#include "rows.h"

#include "update/orvanaupdate.h"

#include <QProcess>

#include <sys/resource.h>

namespace {

constexpr int kStep = 64; // bytes
constexpr int kNoFile = -2;
const QString kUser = s("user@host");
QStringList s_log;

void keepLog(QtMsgType, const QMessageLogContext &, const QString &message)
{
    s_log.append(message);
}

QByteArray listsOf(const char *title)
{
    return QByteArray(R"([{"id":"1","name":"C1","tasks":[{"id":"7","title":")") + title
        + R"(","deadline":"2024-03-01 18:00:00","block":"1","importance":2}]}])";
}

void fill(OfflineClient &client, const char *title)
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

void verifyUsable(OfflineClient &client)
{
    fill(client, "again");
    client->sendTaskActivity(5);
    QCOMPARE(client->pendingActivityRequests(), 1);
    client.takeRequests();
    client.restart();
    client.notices().take();
    QCOMPARE(client.session()->login(), kUser);
    QCOMPARE(client.session()->password(), s("secret"));
    QCOMPARE(client.session()->task(s("1"), s("7")).title, s("again"));
    QCOMPARE(client.session()->taskInfo(s("7")).title, s("подробно"));
    QVERIFY(client.session()->todayTime() >= QTime(0, 1));
}

} // namespace

// Files of the storage directory, damaged before the next start: the day's work continues
// and the files are whole again afterwards.
class TestStoredFaults final : public QObject
{
    Q_OBJECT

private slots:
    void damagedFile_data()
    {
        QTest::addColumn<QString>("name");
        for (const char *name : {"config.ini", "update.json", "user@host/session.ini", "user@host/teams.ini",
                                 "user@host/tasks.ini", "user@host/taskInfo.ini"})
            QTest::newRow(name) << s(name);
    }

    void damagedFile()
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
        for (int at = 0; at < whole.size(); at += kStep)
            damaged.append(whole.left(at));
        for (const QByteArray &bytes : qAsConst(damaged)) {
            client.stop();
            QVERIFY(writeFile(client.path(name), bytes));
            client.restart();
            OrvanaUpdate::instance()->init(client.get());
            OrvanaUpdate::instance()->availableUpdateVersion();
            verifyUsable(client);
        }
    }

    // What lies where the reports wait, whoever put it there.
    void waitingRecord_data()
    {
        // What a shell makes in that folder; the log; what is left once it was accepted.
        addColumns<QByteArray, bool, QString, QString>("made", "isSent", "logged", "kept");
        const auto row = [](const char *name, const QByteArray &made, bool isSent, const char *logged,
                            const char *kept) {
            QTest::newRow(name) << made << isSent << s(logged) << s(kept);
        };
        const char *damaged = "Error!  Invalid activity file!";
        const char *noPicture = "Error! Screenshot can't be opened:";
        row("whole", "cp whole json1", true, "file prepared", "");
        row("empty", ": >json1", false, damaged, "");
        row("zeros", "head -c 300 /dev/zero >json1", false, damaged, "");
        row("no record", "echo '[{\"api-url\":1}]' >json1", false, damaged, "");
        row("from another version", "sed 's/\"0.1\"/\"9\"/' whole >json1", true, "file prepared", "");
        row("of an old version", "sed 's/,\"version\":\"0.1\"//' whole >json1", true, "file prepared", "");
        row("of megabytes", "{ cat whole; head -c 1500000 /dev/zero; } >json1", true, "file prepared", "");
        row("picture of no record", "echo JPEG >screenshot1.jpg", false, "", "");
        row("picture of a record that waits", "cp picture json1; echo JPEG >screenshot1.jpg; mkdir json2",
            true, "", "json2");
        row("a folder", "mkdir json1; cp whole json1", false, "", "json1");
        row("a link", "ln -s \"$PWD/whole\" json1", false, "", "json1");
        row("a link to nothing", "ln -s nothing json1", false, "", "json1");
        row("a pipe", "mkfifo json1", false, "", "json1");
        row("picture", "cp picture json1; echo JPEG >screenshot1.jpg", true, "file prepared", "");
        row("picture missing", "cp picture json1", true, noPicture, "");
        row("picture a folder", "cp picture json1; mkdir screenshot1.jpg", true, noPicture,
            "screenshot1.jpg");
        row("picture a link", "cp picture json1; ln -s \"$PWD/whole\" screenshot1.jpg", true, noPicture,
            "screenshot1.jpg");
        row("picture elsewhere", "sed 's/screenshot1.jpg/whole/' picture >json1", true, noPicture, "");
        row("picture above", "sed 's/screenshot1.jpg/..\\/session.ini/' picture >json1", true, noPicture, "");
        row("picture outside",
            "install -D whole ../../../activity/screenshot1.jpg; sed 's|user@host|..|' picture >json1", true,
            noPicture, "");
    }

    void waitingRecord()
    {
        QFETCH(QByteArray, made);
        QFETCH(bool, isSent);
        QFETCH(QString, logged);
        QFETCH(QString, kept);
        OfflineClient client;
        client.login(kUser);
        client.stop();
        const QDir folder(client.path(kUser + s("/activity")));
        const QByteArray record =
            R"({"api-url":"https://service.invalid/api_active2","body":{"active":"5"%1},)"
            R"("timestamp":"21-11-2026-10-10-54","version":"0.1"})";
        const QByteArray fileName =
            ",\"fileName\":\"" + QFile::encodeName(folder.path()) + "/screenshot1.jpg\"";
        QVERIFY(writeFile(folder.filePath(s("whole")), QByteArray(record).replace("%1", "")));
        QVERIFY(writeFile(folder.filePath(s("picture")), QByteArray(record).replace("%1", fileName)));
        const auto names = [&folder] {
            return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System
                                          | QDir::NoDotAndDotDot);
        };
        QProcess shell;
        shell.setWorkingDirectory(folder.path());
        shell.start(s("sh"), {s("-ec"), QString::fromUtf8(made)});
        QVERIFY(shell.waitForFinished() && shell.exitCode() == 0);
        client.restart();

        s_log.clear();
        const QtMessageHandler before = qInstallMessageHandler(keepLog);
        client->sendCachedActivity();
        client.runQueued();
        qInstallMessageHandler(before);
        const auto requests = client.takeRequests();
        QCOMPARE(requests.size(), isSent ? 1 : 0);
        if (isSent)
            client.answer(requests.first(), R"({"status":"ok"})");
        QVERIFY2(logged.isEmpty() || !s_log.filter(logged).isEmpty(),
                 qPrintable(s_log.join(QLatin1Char('\n'))));
        QStringList expected{s("picture"), s("whole")};
        if (!kept.isEmpty())
            expected.prepend(kept);
        expected.sort();
        QTRY_COMPARE(names(), expected);
        QVERIFY(contentsOf(folder.filePath(s("whole"))).contains("api-url"));
        QVERIFY(QFile::exists(folder.filePath(s("../session.ini"))));

        client->sendTaskActivity(1);
        const auto next = client.takeRequests();
        QCOMPARE(next.size(), 1);
        client.answer(next.first(), R"({"status":"ok"})");
        QCOMPARE(names(), expected);
        QCOMPARE(client->pendingActivityRequests(), 0);
    }

    // Another program of this user's, or the client itself, has taken them all.
    void noDescriptorsLeft()
    {
        OfflineClient client;
        client.login(kUser);
        client.session()->incrementTodayTime();
        client->sendTaskActivity(1);
        client.answer(client.takeRequests().last(), "", QNetworkReply::TimeoutError);
        // The network has its thread; it takes descriptors, too.
        client.restart("http://127.0.0.1:9");
        client.session()->setOnline(true);
        client->requestTeamsAndTasks();
        QTRY_VERIFY(!client.session()->isOnline());
        client.takeRequests();
        client.notices().take();
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none = {0, limit.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
        client->sendTaskActivity(2);
        client->sendCachedActivity();
        client.session()->addMinuteToWorktime();
        setrlimit(RLIMIT_NOFILE, &limit);
        QCOMPARE(client.records(kUser), 1);
        QVERIFY(client.takeRequests().isEmpty());
        QCOMPARE(client.notices().take(),
                 texts({"Не удалось сохранить отчёт об активности на диск. Проверьте свободное место."}));
        client->sendTaskActivity(3);
        QCOMPARE(client.records(kUser), 3);
        client.session()->addMinuteToWorktime();
        client.restart();
        QCOMPARE(client.session()->todayTime(), QTime(0, 2));
    }

    // Minutes that the disk refused are stored with that user's others.
    void somebodyWhoLeft()
    {
        OfflineClient client;
        client.login(s("first"));
        const QString folder = client.path(s("first/activity"));
        QVERIFY(QDir(folder).removeRecursively() && writeFile(folder, "in the way"));
        for (int i = 0; i < 3; ++i)
            client->sendTaskActivity(i);
        QCOMPARE(client.notices().take().size(), 1);
        client.login(s("second"));
        QVERIFY(QFile::remove(folder));
        client->sendTaskActivity(3);
        QCOMPARE(client.records(s("first")), 3);
        QCOMPARE(client.records(s("second")), 1);
        // Or the disk has room again before the user leaves.
        QVERIFY(QDir(folder).removeRecursively() && writeFile(folder, "in the way"));
        client.login(s("first"));
        client->sendTaskActivity(4);
        QVERIFY(QFile::remove(folder));
        client.login(s("second"));
        QCOMPARE(client.records(s("first")), 1);
    }

    // The program ended while a file was being replaced.
    void cutShortWhileReplaced_data()
    {
        addColumns<int, QString>("kept", "title"); // bytes of the new file
        QTest::newRow("nothing") << 0 << "before";
        QTest::newRow("half") << 40 << "before";
        QTest::newRow("all") << 1000000 << "after";
        QTest::newRow("no file") << kNoFile << "before";
    }

    void cutShortWhileReplaced()
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
};

QTEST_MAIN(TestStoredFaults)

#include "tst_storedfaults.moc"
