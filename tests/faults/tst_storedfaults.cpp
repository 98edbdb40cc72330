#include "files.h"
#include "journallines.h"
#include "offlineclient.h"
#include "rows.h"

#include "update/orvanaupdate.h"

#include <QProcess>

namespace {

constexpr int kStep = 64; // bytes
const QString kUser = s("user@host");

// Lists, details, the choice and a counted minute.
void work(OfflineClient &client, const QString &task = s("7"))
{
    client.login(kUser, s("secret"));
    OrvanaUpdate::instance()->init(client.get());
    client.load({s("1:") + task});
    TaskInfo info;
    info.title = s("подробно");
    info.files.append(Attachment());
    client.session()->addTaskInfoData(task, info);
    client->changeTask(s("1"), task);
    client.session()->addMinuteToActiveTime();
    client.session()->addMinuteToWorktime();
    OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"1.1.0\"}]");
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
        work(client);
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
            work(client);
            client->sendTaskActivity(5);
            QCOMPARE(client->pendingActivityRequests(), 1);
            client.takeRequests();
            client.restart();
            QCOMPARE(client.session()->login() + client.session()->password(), kUser + s("secret"));
            QCOMPARE(client.session()->task(s("1"), s("7")).title, s("T7"));
            QCOMPARE(client.session()->taskInfo(s("7")).title, s("подробно"));
            QVERIFY(client.session()->todayTime() >= QTime(0, 1));
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
        row("picture of a folder that was moved",
            "sed 's|\"fileName\":\"|&/old|' picture >json1; echo JPEG >screenshot1.jpg", true,
            "file prepared", "");
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

        if (!logged.isEmpty())
            QTest::ignoreMessage(logged.contains(s("opened")) ? QtWarningMsg : QtDebugMsg,
                                 QRegularExpression(logged));
        client->sendCachedActivity();
        client.runQueued();
        const auto requests = client.takeRequests();
        QCOMPARE(requests.size(), isSent ? 1 : 0);
        if (isSent)
            client.answer(requests.first(), R"({"status":"ok"})");
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

    // A client counts three minutes; the first is accepted, the second waits, and a kill takes the third,
    // which has but its line. Then somebody changes the journal.
    void journal_data()
    {
        // In its folder, $f being the file; the records after the next start, the minutes on the screen.
        addColumns<QByteArray, int, int>("made", "records", "shown");
        const auto row = [](const char *name, const char *made, int records, int shown) {
            QTest::newRow(name) << QByteArray(made) << records << shown;
        };
        row("untouched", "", 2, 3);
        row("last line break gone", "truncate -s -1 $f", 2, 3);
        row("torn", "truncate -s -9 $f", 1, 2);
        row("all but a byte torn", "truncate -s $(($(head -n -1 $f | wc -c) + 1)) $f", 1, 2);
        row("zeros", "head -c 5000 /dev/zero >>$f", 2, 3);
        row("megabytes without a line break", "head -c 9000000 /dev/zero | tr '\\0' x >>$f", 1, 2);
        row("twice", "cat $f $f >g; mv g $f", 2, 3);
        row("the minute changed", "sed -i '$s/\"active\":5/\"active\":9/' $f", 1, 2);
        row("an acceptance changed", "sed -i '/accepted/s/ok/OK/' $f", 2, 3);
        row("an acceptance gone", "sed -i '/accepted/d' $f", 2, 3);
        row("cut before the acceptance", "sed -i '/accepted/,$d' $f; rm ../activity/*", 0, 2);
        row("empty", ": >$f", 1, 2);
        row("gone", "rm $f", 1, 2);
        row("a folder", "rm $f; mkdir $f", 1, 2);
        row("a pipe", "rm $f; mkfifo $f", 1, 2);
        row("a link", "mv $f ../$f; ln -s ../$f $f", 1, 2);
        row("a file for the folder", "rm $f; cd ..; rmdir journal; : >journal", 1, 2);
        row("another user's", "cp ../../other/journal/$f .", 1, 2);
        row("followed by another user's", "cat ../../other/journal/$f >>$f", 1, 2);
        row("switched off for a start", "echo journal=false >$ORVANA_CONFIG; rm ../activity/*", 0, 2);
        row("another day without it",
            "sed -i '/;/d; s/Worktime=.*/Worktime=00:00:00/; s/Date=.*/Date=Tue Dec 31 2999/' ../session.ini",
            1, 0);
        row("of a later month", "mv $f 2999-12.jsonl", 2, 3);
    }

    void journal()
    {
        QFETCH(QByteArray, made);
        QFETCH(int, records);
        QFETCH(int, shown);
        OfflineClient client;
        const auto minute = [&client](bool isReported = true) {
            client->journalMinute(5);
            if (!isReported)
                return;
            client.session()->addMinuteToWorktime();
            client->sendTaskActivity(5);
        };
        client.login(s("other"));
        client.session()->setWorktimeDate(QDate::currentDate());
        minute(false);
        client.login(kUser);
        client.session()->setWorktimeDate(QDate::currentDate());
        minute();
        client.answer(client.takeRequests().first(), R"({"status":"ok"})");
        minute();
        minute(false);
        client->setCleanMode(true); // it is killed
        client.stop();

        QProcess shell;
        shell.setWorkingDirectory(client.path(kUser + s("/journal")));
        shell.start(s("sh"), {s("-ec"), s("f=$(ls); ") + QString::fromUtf8(made)});
        QVERIFY(shell.waitForFinished(5000) && shell.exitCode() == 0);
        // Once, however often it starts.
        for (int start = 0; start < 3; ++start) {
            client.restart();
            QCOMPARE(client.session()->todayTime(), QTime(0, shown));
            QVERIFY(isRecovered(client.get()));
            QCOMPARE(client.records(kUser), records);
            if (QFile::remove(qEnvironmentVariable("ORVANA_CONFIG")))
                client->journal().started(s("1"), s("7"));
            // A second kill, before anything was saved.
            client->setCleanMode(start == 0);
        }
        client->journalMinute(1);
        QCOMPARE(JournalLines(client.path(kUser)).all.constLast().event, s("minute"));
    }

    void signedInAgain()
    {
        OfflineClient client(kUser);
        client->journal().started(s("1"), s("7"));
        client.login(kUser);
        client->journal().slicePassed();
        client->journal().stopped(s("7"));
        QCOMPARE(JournalLines(client.path(kUser)).all.constLast().event, s("stop"));
    }

    // Minutes that the disk refused are stored with that user's others.
    void somebodyWhoLeft()
    {
        OfflineClient client(s("first"));
        const QString folder = client.path(s("first/activity"));
        // The next user's report stores them, or the sign-in.
        for (const bool isLate : {true, false}) {
            QVERIFY(QDir(folder).removeRecursively() && writeFile(folder, "in the way"));
            for (int i = 0; i < 3; ++i)
                client->sendTaskActivity(i);
            QCOMPARE(client.notices().take().size(), 1);
            QVERIFY(isLate || QFile::remove(folder));
            client.login(s("second"));
            if (isLate) {
                QVERIFY(QFile::remove(folder));
                client->sendTaskActivity(3);
            }
            QCOMPARE(client.records(s("first")), 3);
            QCOMPARE(client.records(s("second")), 1);
            client.login(s("first"));
        }
    }
};

QTEST_MAIN(TestStoredFaults)

#include "tst_storedfaults.moc"
