#include "files.h"
#include "offlineclient.h"
#include "rows.h"

namespace {

const QString kUser = s("user@host");
const QString kTeamsFile = s("user@host/teams.ini");
const QString kSessionFile = s("user@host/session.ini");
const QString kTasksFile = s("user@host/tasks.ini");
const QString kTaskInfoFile = s("user@host/taskInfo.ini");
const QString kDateFormat = s("ddd MMM d yyyy");

QString idsOf(const QList<Task> &tasks)
{
    QStringList ids;
    for (const Task &task : tasks)
        ids.append(task.id);
    return ids.join(QLatin1Char(' '));
}

} // namespace

// What of a user is kept on the disk, and how it comes back.
class TestSession final : public QObject
{
    Q_OBJECT

private slots:
    void comesBackAfterRestart()
    {
        const QString password = s(" p@ss\"=;#%41/\\Пароль, ");
        OfflineClient client(kUser, password);
        client.load(texts({"2:7!@3*2 8", "1:9"}));
        TaskInfo info;
        info.title = s("Жук");
        client.session()->addTaskInfoData(s("7"), info);
        client->changeTask(s("2"), s("7"));
        client.session()->setActive(true);
        client.session()->setOnline(false);
        client.session()->setWorktimeDate(QDate::currentDate());
        client.session()->setWorktime(QTime(3, 17, 42));
        client.session()->setActiveTime(QTime(2, 5));
        client.session()->setActiveTaskTime(s("7"), QTime(1, 30));
        client.stop();
        QCOMPARE(client.stored(s("config.ini")), (QVariantMap{{s("lastLogin"), kUser}}));
        QCOMPARE(client.stored(kTeamsFile), (QVariantMap{{s("1"), s("C1")}, {s("2"), s("C2")}}));
        QVariantMap expected{{s("password"), password},
                             {s("task2activeTimeMap"), QVariantMap{{s("7"), QTime(1, 30)}}}};
        const QString date = QLocale::c().toString(QDate::currentDate(), kDateFormat);
        const QStringList others = s("logged=true active=true teamID=2 taskID=7 isOnline=false "
                                     "todayWorktime=03:17:42 todayActivetime=02:05:00")
                                       .split(QLatin1Char(' '))
            << s("worktimeDate=") + date;
        for (const QString &entry : others)
            expected.insert(entry.section(QLatin1Char('='), 0, 0), entry.section(QLatin1Char('='), 1));
        QCOMPARE(client.stored(kSessionFile), expected);
        for (const QString &folder : texts({"", "user@host", "user@host/activity"}))
            QCOMPARE(QFile::permissions(client.path(folder)) & 0x0fff, QFile::Permissions(0x0700));

        client.restart();
        Orvana::Session *session = client.session();
        QCOMPARE(session->login() + session->password(), kUser + password);
        QCOMPARE(session->currentTeamID() + session->currentTaskID(), s("27"));
        QCOMPARE(session->team(s("2")).name, s("C2"));
        QVERIFY(haveSameContents(session->tasks(s("2")), tasksFrom(s("7!@3*2 8")) << Task::catchAll()));
        QCOMPARE(session->taskInfo(s("7")), info);

        // With nobody logged in, only that is written.
        session->clear();
        session->save();
        QCOMPARE(client.stored(s("config.ini"), s("lastLogin")).toString(), QString());
        QCOMPARE(client.stored(kSessionFile, s("password")).toString(), password);
        QCOMPARE(client.storedKeys(kTasksFile), texts({"1", "2"}));
    }

    void restores_data()
    {
        // One entry of a stored file that otherwise is today's, the date in days from then; what
        // the next start makes of it.
        addRows({{"worktimeDate=0", "3:17:00 2:05:00 2:05:00 1:00:00 offline"},
                 {"worktimeDate=-1", "0:00:00 0:00:00 0:00:00 0:00:00 offline"},
                 {"worktimeDate=1", "0:00:00 0:00:00 0:00:00 0:00:00 offline"},
                 {"worktimeDate=", "0:00:00 0:00:00 0:00:00 0:00:00 offline"},
                 {"todayWorktime=half past", "0:00:00 2:05:00 2:05:00 1:00:00 offline"},
                 {"todayActivetime=24:00:00", "3:17:00 0:00:00 0:00:00 1:00:00 offline"},
                 {"isOnline=", "3:17:00 2:05:00 2:05:00 1:00:00 online"}});
    }

    void restores()
    {
        QFETCH(QString, input);
        const QDate today = QDate::currentDate();
        const QString key = input.section(QLatin1Char('='), 0, 0);
        QString value = input.section(QLatin1Char('='), 1);
        if (key == s("worktimeDate") && !value.isEmpty())
            value = QLocale::c().toString(today.addDays(value.toInt()), kDateFormat);
        OfflineClient client(kUser);
        client.session()->setWorktimeDate(today);
        client.session()->setWorktime(QTime(3, 17, 42));
        client.session()->setActiveTime(QTime(2, 5, 9));
        client.session()->setActiveTaskTime(s("7"), QTime(1, 0));
        client.session()->setOnline(false);
        client.stop();
        {
            QSettings file(client.path(kSessionFile), QSettings::IniFormat);
            value.isEmpty() ? file.remove(key) : file.setValue(key, value);
        }
        client.restart();
        Orvana::Session *session = client.session();
        QCOMPARE(session->worktimeDate(), today);
        const QTime shown = session->todayTime();
        session->updateSecondsToDisplayedWorktime();
        QCOMPARE(session->todayTime(), shown);
        QString restored;
        for (const QTime &time : {shown, session->todayActiveTime(), session->todayActiveTimeDisplayed(),
                                  session->todayActiveTime(s("7"))})
            restored += figures(time, "H:mm:ss ");
        restored += session->isOnline() ? s("online") : s("offline");
        QTEST(restored, "result");
    }

    void keepsOddIds()
    {
        QStringList ids = texts({"a/b",    "/a",      "a//b",      "/", "a\\b",    "%2F",      "%252F",
                                 "a=b;#c", " a ",     "A",         "a", "General", "%General", "@Variant(x)",
                                 "\"q\"",  "a\nb\tc", "кириллица", "😀", "..",      "[x]",      "0"})
            << QLatin1String("a") + QChar(0) + QLatin1String("b") << QString(1000, QLatin1Char('x'))
            << QString();
        OfflineClient client(kUser);
        QList<Team> teams;
        Task task;
        TaskInfo info;
        for (const QString &id : qAsConst(ids)) {
            task.id = info.id = id;
            client.session()->addTasksData({task}, id);
            client.session()->addTaskInfoData(id, info);
            teams.append({id, id});
        }
        client.session()->addTeamsData(teams);
        client.restart();
        ids.removeLast(); // A settings file has no place for an empty id.
        QCOMPARE(client.session()->teams().size(), ids.size());
        for (const QString &id : qAsConst(ids)) {
            QCOMPARE(client.session()->team(id).name, id);
            QCOMPARE(client.session()->task(id, id).id, id);
            QCOMPARE(client.session()->taskInfo(id).id, id);
        }
    }

    // However the program ends afterwards, the next one starts with the last decision.
    void keepsEachDecisionAtOnce()
    {
        OfflineClient client(kUser);
        client.load(texts({"1:7 8", "2:7"}));
        const auto stored = [&client](const QString &user) {
            const QVariantMap session = client.stored(user + s("/session.ini"));
            QString values = client.stored(s("config.ini"), s("lastLogin")).toString();
            for (const char *key : {"logged", "active", "teamID", "taskID"})
                values += QLatin1Char(' ') + session.value(s(key)).toString();
            return values;
        };
        client->changeTask(s("1"), s("7"));
        QCOMPARE(stored(kUser), kUser + s(" true false 1 7"));
        client.session()->setActive(true);
        QCOMPARE(stored(kUser), kUser + s(" true true 1 7"));
        client->changeTask(s("2"), s("7"));
        QCOMPARE(stored(kUser), kUser + s(" true true 2 7"));
        client.login(s("other"));
        QCOMPARE(stored(s("other")), s("other true false  "));
        client.login(kUser);
        client.session()->setActive(false);
        QCOMPARE(stored(kUser), kUser + s(" true false 2 7"));
    }

    void keepsUsersApart()
    {
        OfflineClient client(kUser, s("first"));
        client.load(texts({"1:7"}));
        client->changeTask(s("1"), s("7"));
        client.session()->setWorktimeDate(QDate::currentDate());
        client.session()->setWorktime(QTime(1, 0));
        const auto known = [session = client.session()]() -> QString {
            return idsOf(session->tasks()) + QString::number(session->teams().size())
                + session->currentTaskID() + figures(session->todayTime(), " H");
        };
        client.login(s("other"), s("second"));
        QCOMPARE(known(), s("0 0"));
        // Back again, with another password.
        client.login(kUser, s("third"));
        QCOMPARE(known(), s("7 017 1"));
        client.restart();
        QCOMPARE(client.session()->password(), s("third"));
        QCOMPARE(client.stored(s("other/session.ini"), s("password")).toString(), s("second"));
    }

    void staysInItsFolder()
    {
        const QStringList logins = texts({"..", ".", "../x", "/etc", "%2E%2E", " ", "a b+c%", "Иван",
                                          "cached", "update", "log.log", "lock"})
            << QLatin1String("a") + QChar(0) + QLatin1String("/../..") << QString(5000, QLatin1Char('x'));
        for (const QString &login : logins) {
            OfflineClient client(login);
            client.stop();
            const QDir storage(client.path(QString()));
            const QDir folder(StorageFolder::ofUser(storage, login));
            QCOMPARE(QFileInfo(folder.path()).path(), storage.absolutePath());
            const QDir above(storage.filePath(s("..")));
            QCOMPARE(above.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                     texts({".orvana"}));
            // As each start of the program does.
            StorageFolder::removeDir(storage.filePath(s("cached")));
            client.restart();
            QCOMPARE(client.session()->login(), login);
            QCOMPARE(client.session()->password(), s("pw"));
            QVERIFY(!QFileInfo(client.path(s("update"))).exists()
                    && !QFileInfo(client.path(s("log.log"))).exists());
        }
    }

    void servesOneClientAtATime()
    {
        const QTemporaryDir root;
        const QString path = root.filePath(s("storage"));
        auto first = std::make_unique<StorageFolder>(path);
        StorageFolder second(path);
        QVERIFY(first->prepare() && !second.prepare() && second.isTaken() && !second.isUsable());
        // Removed, and made again by the other one.
        StorageFolder::removeDir(path);
        QVERIFY(second.prepare() && second.isUsable() && !first->prepare() && first->isTaken());
        StorageFolder::removeDir(path);
        QVERIFY(first->prepare() && !second.prepare());
        first.reset();
        QVERIFY(second.prepare());
    }

    void keepsWhatIsGone()
    {
        OfflineClient client(kUser);
        client.load(texts({"1:7", "2:8"}));
        client.session()->save();
        client.load(texts({"1:7"}));
        QVERIFY(client.session()->taskInfo(s("x")).id.isEmpty());
        // In the second round every file was deleted and is written whole again.
        for (int round = 0; round < 2; ++round) {
            client.session()->save();
            QCOMPARE(client.storedKeys(kTeamsFile), texts({"1"}));
            QCOMPARE(client.storedKeys(kTasksFile), texts({"1", "2"}));
            QCOMPARE(idsOf(client.stored(kTasksFile, s("2")).value<QList<Task>>()), s("8 0"));
            QCOMPARE(client.storedKeys(kTaskInfoFile), texts({"x"}));
            for (const QString &name : {kTasksFile, kTaskInfoFile, kTeamsFile})
                QVERIFY(QFile::remove(client.path(name)));
        }
        // Something else is where a file was, and one list of several changes.
        QVERIFY(QDir().mkdir(client.path(kTasksFile)));
        client.load(texts({"1:7@1"}));
        for (int i = 0; i < 2; ++i)
            client.session()->save();
        QCOMPARE(client.storedKeys(kTasksFile), texts({"1", "2"}));
    }

    void deletesWhatOlderVersionsLeft()
    {
        OfflineClient client(kUser);
        client.load(texts({"1:", "../../x:"}));
        client.stop();
        const QStringList stale = texts(
            {"json1", "json", ".orvana.db", "comments.data", "session.json", "user@host/session.json",
             "user@host/tasks.json", "user@host/teams.json", "user@host/team_1/a/b", "user@host/team_1/.c"});
        const QStringList kept = texts({"update.json", "user@host/activity/json1", "jsons/json",
                                        "user@host/team_2/a", "elsewhere/a", "user@host/team_"});
        for (const QString &name : stale + kept)
            QVERIFY(writeFile(client.path(name), "x"));
        QVERIFY(QFile::link(client.path(s("elsewhere")), client.path(s("user@host/team_1/link"))));
        client.restart();
        for (const QString &name : stale + texts({"user@host/team_1"}))
            QVERIFY2(!QFile::exists(client.path(name)), qPrintable(name));
        for (const QString &name : kept)
            QVERIFY2(QFile::exists(client.path(name)), qPrintable(name));
    }
};

QTEST_MAIN(TestSession)

#include "tst_session.moc"
