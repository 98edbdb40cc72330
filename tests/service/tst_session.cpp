#include "files.h"
#include "offlineclient.h"
#include "rows.h"

namespace {

const QString kUser = s("user@host");
const QString kTeamsFile = s("user@host/teams.ini");
const QString kSessionFile = s("user@host/session.ini");
const QString kTasksFile = s("user@host/tasks.ini");
const QString kTaskInfoFile = s("user@host/taskInfo.ini");

QString storedDate(const QDate &date)
{
    return figures(date, "ddd MMM d yyyy");
}

QString idsOf(const QList<Task> &tasks)
{
    QStringList ids;
    for (const Task &task : tasks)
        ids.append(task.id);
    return ids.join(QLatin1Char(' '));
}

} // namespace

// What of a user is kept on the disk and how it comes back; what new lists and passing time change.
class TestSession final : public QObject
{
    Q_OBJECT

private slots:
    void comesBackAfterRestart()
    {
        const QString password = s(" p@ss\"=;#%41/\\Пароль, ");
        const QDate today = QDate::currentDate();
        OfflineClient client(kUser, password);
        client.load(texts({"2:7!@3*2 8", "1:9"}));
        TaskInfo info;
        info.title = s("Жук");
        client.session()->addTaskInfoData(s("7"), info);
        client->changeTask(s("2"), s("7"));
        client.session()->setActive(true);
        client.session()->setOnline(false);
        client.session()->setWorktimeDate(today);
        client.session()->setWorktime(QTime(3, 17, 42));
        client.session()->setActiveTime(QTime(2, 5));
        client.session()->setActiveTaskTime(s("7"), QTime(1, 30));
        client.stop();
        QCOMPARE(client.stored(s("config.ini")), (QVariantMap{{s("lastLogin"), kUser}}));
        QCOMPARE(client.stored(kTeamsFile), (QVariantMap{{s("1"), s("C1")}, {s("2"), s("C2")}}));
        QVariantMap stored = client.stored(kSessionFile);
        QCOMPARE(stored.take(s("task2activeTimeMap")), QVariant(QVariantMap{{s("7"), QTime(1, 30)}}));
        QString values;
        for (const QString &key : stored.keys())
            values += key + QLatin1Char('=') + stored.value(key).toString() + QLatin1Char(' ');
        QCOMPARE(values,
                 s("active=true isOnline=false logged=true password=%1 taskID=7 teamID=2 "
                   "todayActivetime=02:05:00 todayWorktime=03:17:42 worktimeDate=%2 ")
                     .arg(password, storedDate(today)));
        for (const QString &folder : texts({"", "user@host", "user@host/activity"}))
            QCOMPARE(QFile::permissions(client.path(folder)) & 0x0fff, QFile::Permissions(0x0700));

        client.restart();
        Orvana::Session *session = client.session();
        QCOMPARE(session->login() + session->password(), kUser + password);
        QCOMPARE(session->currentTeamID() + session->currentTaskID(), s("27"));
        QVERIFY(session->isLogged() && session->isActive() && !session->isOnline());
        QCOMPARE(session->team(s("2")).name, s("C2"));
        QVERIFY(haveSameContents(session->tasks(s("2")), tasksFrom(s("7!@3*2 8")) << Task::catchAll()));
        QCOMPARE(session->taskInfo(s("7")), info);
        // With nobody logged in, only that is written.
        session->clear();
        session->save();
        QCOMPARE(client.stored(s("config.ini"), s("lastLogin")).toString(), QString());
        QCOMPARE(client.stored(kSessionFile, s("password")).toString(), password);
    }

    // However the program ends afterwards, the next one starts with the last decision.
    void keepsEachDecisionAtOnce()
    {
        OfflineClient client(kUser, s("first"));
        client.load(texts({"1:7 8", "2:7"}));
        client.session()->setWorktimeDate(QDate::currentDate());
        client.session()->setWorktime(QTime(1, 0));
        const auto stored = [&client](const char *user) {
            const QVariantMap session = client.stored(s(user) + s("/session.ini"));
            QString values = client.stored(s("config.ini"), s("lastLogin")).toString();
            for (const char *key : {"password", "logged", "active", "teamID", "taskID"})
                values += QLatin1Char(' ') + session.value(s(key)).toString();
            return values;
        };
        const auto known = [session = client.session()]() -> QString {
            return idsOf(session->tasks()) + figures(session->todayTime(), " H ") + session->currentTaskID();
        };
        client->changeTask(s("1"), s("7"));
        QCOMPARE(stored("user@host"), s("user@host first true false 1 7"));
        client.session()->setActive(true);
        QCOMPARE(stored("user@host"), s("user@host first true true 1 7"));
        client->changeTask(s("1"), s("8"));
        QCOMPARE(stored("user@host"), s("user@host first true true 1 8"));
        client->changeTask(s("2"), s("7"));
        QCOMPARE(stored("user@host"), s("user@host first true true 2 7"));
        client.login(s("other"), s("second"));
        QCOMPARE(stored("other"), s("other second true false  "));
        QCOMPARE(known(), s(" 0 "));
        // Back again, with another password.
        client.login(kUser, s("third"));
        QCOMPARE(known(), s("7 8 0 1 7"));
        client.session()->setActive(false);
        QCOMPARE(stored("user@host"), s("user@host third true false 2 7"));
        QCOMPARE(stored("other"), s("user@host second true false  "));
    }

    void keepsOddLoginsAndIds_data()
    {
        QTest::addColumn<QString>("odd");
        for (const char *odd :
             {"..",   ".",       "../x",   "/etc",        "/",       "a//b",   "a\\b",    "%2E%2E",
              "%2F",  "%252F",   " a+ ",   "A",           "Иван 😀",  "cached", "control", "log.log",
              "lock", "General", "a=b;#c", "@Variant(x)", "\"[q]\"", "a\nb\tc"})
            QTest::newRow(odd) << s(odd);
        QTest::newRow("NUL") << s("a") + QChar(0) + s("/../..");
        QTest::newRow("long") << QString(5000, QLatin1Char('x'));
        QTest::newRow("long in bytes") << QString(200, QChar(0x436));
    }

    void keepsOddLoginsAndIds()
    {
        QFETCH(QString, odd);
        const QString other = odd.toUpper() + odd.toLower();
        OfflineClient client(odd);
        TaskInfo info;
        info.id = odd;
        client.session()->addTaskInfoData(odd, info);
        // A settings file has no place for an empty id.
        for (const QString &id : {odd, other, QString()}) {
            Task task;
            task.id = id;
            client.session()->addTasksData({task}, id);
        }
        client.session()->addTeamsData({{odd, odd}, {other, other}});
        client.stop();
        const QDir storage(client.path(QString()));
        QCOMPARE(QFileInfo(StorageFolder::ofUser(storage, odd)).path(), storage.absolutePath());
        QCOMPARE(
            QDir(storage.filePath(s(".."))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            texts({".orvana"}));
        // As each start of the program does.
        StorageFolder::removeDir(storage.filePath(s("cached")));
        client.restart();
        const Orvana::Session *session = client.session();
        QCOMPARE(session->login() + session->password(), odd + s("pw"));
        QVERIFY(!QFile::exists(client.path(s("update"))) && !QFile::exists(client.path(s("log.log"))));
        QCOMPARE(session->teams().size(), 2);
        QCOMPARE(session->team(odd).name + session->task(other, other).id, odd + other);
        QCOMPARE(client.session()->taskInfo(odd).id, odd);
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
            QCOMPARE(client.storedKeys(kTaskInfoFile), texts({"0", "7", "8", "x"}));
            for (const QString &name : {kTasksFile, kTaskInfoFile, kTeamsFile})
                QVERIFY(QFile::remove(client.path(name)));
        }
    }

    void deletesWhatOlderVersionsLeft()
    {
        OfflineClient client(kUser);
        client.load(texts({"1:", "3:", "../../x:"}));
        client.stop();
        const QStringList stale = texts(
            {"json1", ".orvana.db", "comments.data", "session.json", "user@host/session.json",
             "user@host/tasks.json", "user@host/teams.json", "user@host/team_1/a/b", "user@host/team_1/.c"});
        const QStringList kept = texts({"update.json", "user@host/activity/json1", "jsons/json",
                                        "user@host/team_2/a", "elsewhere/a", "user@host/team_"});
        for (const QString &name : stale + kept)
            QVERIFY(writeFile(client.path(name), "x"));
        for (const QString &name : texts({"user@host/team_1/link", "user@host/team_3"}))
            QVERIFY(QFile::link(client.path(s("elsewhere")), client.path(name)));
        client.restart();
        for (const QString &name : stale + kept + texts({"user@host/team_1", "user@host/team_3"}))
            QVERIFY2(QFile::exists(client.path(name)) == kept.contains(name), qPrintable(name));
    }

    void announcesFromTheSecondLoad()
    {
        OfflineClient client(kUser);
        client.load(texts({"1:7! 8"}));
        QCOMPARE(client.notices().take(), QStringList());
        QVERIFY(!QFile::exists(client.path(kTasksFile)));
        // The second load finds as many lists as teams and creates the files.
        client.load(texts({"1:7! 8", "2:9"}));
        QVERIFY(QFile::exists(client.path(kTasksFile)));
        QCOMPARE(client.notices().take(),
                 texts({"Добавлена новая задача \"T9\" #9", "Добавлена новая команда \"C2\""}));
        // Every task once.
        QCOMPARE(idsOf(client.session()->tasks()), s("7 8 0 9"));
        QCOMPARE(idsOf(client.session()->blockedTasks(s("1"))), s("7"));
        // A restart is no first load.
        client.restart();
        client.load(texts({"1:7! 8"}));
        client.load(texts({"1:7! 8"}));
        QCOMPARE(client.notices().take(), texts({"Вы больше не являетесь членом команды \"C2\""}));
    }

    void announcesChanges_data()
    {
        // Lists before and after; popups, tasks closed, and "!" when the current task 7 has a new deadline.
        // First comes each task of the new list, then those that are gone, then deadlines.
        addRows(
            {{"1:1~0 2 3! 4*1 5 6@1 10*3 11@1 12 13@1 > 1:13@2 1!*2 2~y 3~0 4*2 6@2 8~0 9~y 10*2 11",
              "Задача \"T1\" помечена как блокирующая #1; К задаче \"T1\" добавлен новый комментарий #1; "
              "Задача \"T2\" помечена как блокирующая #2; Задача \"T3\" более не является блокирующей #3; "
              "К задаче \"T4\" добавлен новый комментарий #4; Добавлена новая задача \"T8\" #8; "
              "Добавлена новая блокируюшая задача \"T9\" #9; Задача \"T5\" более недоступна; "
              "Задача \"T12\" более недоступна; Дедлайн задачи \"T6\" был изменён; "
              "Дедлайн задачи \"T11\" был изменён; Дедлайн задачи \"T13\" был изменён; 512"},
             // The other team's list has the deadline already, so it is announced once.
             {"1:7@1, 2:7@1 8 > 1:7@2, 2:7@2 8", "Дедлайн задачи \"T7\" был изменён; !"},
             {"1:7, 2:7 8 > 1:, 2:8", "Задача \"T7\" более недоступна; 7"},
             {"1:7, 2:7 > 1:, 2:7", "Задача \"T7\" более недоступна; Добавлена новая задача \"T7\" #7; 7"},
             // The exempt team's deadlines are not tracked.
             {"2192:7@1 8 9 > 2192:7@2 8!",
              "Задача \"T8\" помечена как блокирующая #8; Задача \"T9\" более недоступна; 9"},
             {"1:7@1, 2192:7@1 > 1:7@2, 2192:7@3", "Дедлайн задачи \"T7\" был изменён; !"}});
    }

    void announcesChanges()
    {
        QFETCH(QString, input);
        const QStringList after = input.section(s(" > "), 1).split(s(", "));
        OfflineClient client(kUser);
        client.load(input.section(s(" > "), 0, 0).split(s(", ")));
        client.session()->setCurrentTaskID(s("7"));
        client.session()->save();
        QString signalled;
        connect(client.session(), &Orvana::Session::taskClosed, this,
                [&](const QString &id) { signalled += id; });
        connect(client.session(), &Orvana::Session::overdueTimeChanged, this,
                [&] { signalled += QLatin1Char('!'); });
        client.load(after);
        QTEST(QString((client.notices().take() << signalled).join(s("; "))), "result");
        // What came is what is known now, also to the next program.
        for (int round = 0; round < 2; ++round) {
            for (const QString &list : qAsConst(after)) {
                const QList<Task> expected = tasksFrom(list.section(QLatin1Char(':'), 1)) << Task::catchAll();
                QVERIFY(haveSameContents(client.session()->tasks(list.section(QLatin1Char(':'), 0, 0)),
                                         expected));
            }
            client.restart();
        }
    }

    // d is the day of the counters from today ("?" for none), w, a and t set working, active and the
    // task's time, m and n count a minute of each, W and A show what is counted, s is a second. After
    // a stored entry is replaced or removed, the program is started again.
    void counts_data()
    {
        // Working time as shown; active time as counted and as shown; task 7's entry; signals.
        addRows({{"d0 w5:00:59 s m", "5:01:00 0:00:00 0:00:01 0:00:00 1"},
                 {"d0 s m n W A", "0:01:00 0:01:00 0:01:00 0:01:00 3"},
                 {"d0 w23:59:30 m W", "0:00:30 0:00:00 0:00:00 0:00:00 1"},
                 {"d0 w23:59:59 a23:59:59 s", "0:00:00 23:59:59 0:00:00 0:00:00 2"},
                 {"d0 a23:59:59 n", "0:00:00 0:00:59 23:59:59 0:00:59 1"},
                 // A task's entry is the day's total at its latest active minute.
                 {"d0 a1:00:00 t1:30:00 n n t7:45:00 n", "0:00:00 1:03:00 0:00:00 1:03:00 0"},
                 // The active time as shown jumps when the minute field differs.
                 {"d0 a1:05:40 a2:05:00", "0:00:00 2:05:00 1:05:40 0:00:00 1"},
                 // The first second of a day does not count.
                 {"w5:00:00 a4:30:00 t1:00:00 d1 s", "5:00:01 4:30:00 4:30:01 1:00:00 2"},
                 {"w5:00:00 a4:30:00 t1:00:00 d-1 s", "0:00:00 0:00:00 0:00:00 0:00:00 2"},
                 {"w5:00:00 a4:30:00 t1:00:00 d? s W A s", "0:00:01 0:00:00 0:00:01 0:00:00 5"},
                 {"d0 w3:17:42 a2:05:09 t1:00:00 worktimeDate=0 W", "3:17:00 2:05:00 2:05:00 1:00:00 1"},
                 {"d0 w3:17:42 a2:05:09 t1:00:00 worktimeDate=-1", "0:00:00 0:00:00 0:00:00 0:00:00 1"},
                 {"d0 w3:17:42 a2:05:09 t1:00:00 worktimeDate=1", "0:00:00 0:00:00 0:00:00 0:00:00 1"},
                 {"d0 w3:17:42 worktimeDate=", "0:00:00 0:00:00 0:00:00 0:00:00 0"},
                 {"d0 w3:17:42 a2:05:09 todayWorktime=half", "0:00:00 2:05:00 2:05:00 0:00:00 1"},
                 {"d0 w3:17:42 a2:05:09 todayActivetime=24:00:00", "3:17:00 0:00:00 0:00:00 0:00:00 1"}});
    }

    void counts()
    {
        QFETCH(QString, input);
        const QDate today = QDate::currentDate();
        OfflineClient client(kUser);
        client.session()->setCurrentTaskID(s("7"));
        int updates = 0;
        connect(client.session(), &Orvana::Session::timeUpdated, this, [&updates] { ++updates; });
        const auto restartWith = [&](const QString &key, const QString &value) {
            client.stop();
            {
                QSettings file(client.path(kSessionFile), QSettings::IniFormat);
                file.setValue(key,
                              key == s("worktimeDate") ? storedDate(today.addDays(value.toInt())) : value);
                if (value.isEmpty())
                    file.remove(key);
            }
            client.restart();
        };
        using Session = Orvana::Session;
        const QMap<char, std::function<void(Session &, const QTime &)>> kinds{
            {'w', [](Session &session, const QTime &time) { session.setWorktime(time); }},
            {'a', [](Session &session, const QTime &time) { session.setActiveTime(time); }},
            {'t', [](Session &session, const QTime &time) { session.setActiveTaskTime(s("7"), time); }},
            {'m', [](Session &session, const QTime &) { session.addMinuteToWorktime(); }},
            {'n', [](Session &session, const QTime &) { session.addMinuteToActiveTime(); }},
            {'W', [](Session &session, const QTime &) { session.updateSecondsToDisplayedWorktime(); }},
            {'A', [](Session &session, const QTime &) { session.updateSecondsToDisplayedActiveTime(); }},
            {'s', [](Session &session, const QTime &) { session.incrementTodayTime(); }}};
        for (const QString &step : input.split(QLatin1Char(' '))) {
            const QString value = step.mid(1);
            if (step.contains(QLatin1Char('=')))
                restartWith(step.section(QLatin1Char('='), 0, 0), step.section(QLatin1Char('='), 1));
            else if (step.startsWith(QLatin1Char('d')))
                client.session()->setWorktimeDate(value == s("?") ? QDate() : today.addDays(value.toInt()));
            else
                kinds[step.at(0).toLatin1()](*client.session(), QTime::fromString(value, s("H:mm:ss")));
        }
        Orvana::Session *session = client.session();
        QString shown;
        for (const QTime &time : {session->todayTime(), session->todayActiveTime(),
                                  session->todayActiveTimeDisplayed(), session->todayActiveTime(s("7"))})
            shown += figures(time, "H:mm:ss ");
        QTEST(QString(shown + QString::number(updates)), "result");
        QCOMPARE(session->worktimeDate(), today.addDays(input.contains(s("d1")) ? 1 : 0));
        QCOMPARE(session->todayActiveTime(s("x")), QTime(0, 0));
        // A counted minute is on the disk at once.
        session->updateSecondsToDisplayedWorktime();
        if (input.contains(s(" m")))
            QCOMPARE(client.stored(kSessionFile, s("todayWorktime")).toString(),
                     figures(session->todayTime(), "HH:mm:ss"));
    }
};

QTEST_MAIN(TestSession)

#include "tst_session.moc"
