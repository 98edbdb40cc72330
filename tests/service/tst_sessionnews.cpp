#include "offlineclient.h"
#include "rows.h"

namespace {

const QString kTasksFile = s("user/tasks.ini");

QDate today()
{
    return QDate::currentDate();
}

} // namespace

// What a session makes of new lists and of passing time.
class TestSessionNews final : public QObject
{
    Q_OBJECT

private slots:
    void announcesFromTheSecondLoad()
    {
        OfflineClient client(s("user"));
        client.load(texts({"1:7! 8"}));
        QCOMPARE(client.notices().take(), QStringList());
        QVERIFY(!QFile::exists(client.path(kTasksFile)));
        // The second load finds as many lists as teams and creates the files.
        client.load(texts({"1:7! 8", "2:9"}));
        QVERIFY(QFile::exists(client.path(kTasksFile)));
        QCOMPARE(client.notices().take(),
                 texts({"Добавлена новая задача \"T9\" #9", "Добавлена новая команда \"C2\""}));
        // A restart is no first load.
        client.restart();
        client.load(texts({"1:7! 8"}));
        QCOMPARE(client.notices().take(), texts({"Вы больше не являетесь членом команды \"C2\""}));
        client.load(texts({"1:7! 8"}));
        QCOMPARE(client.notices().take(), QStringList());
    }

    void announcesChanges_data()
    {
        addColumns<QStringList, QStringList, QStringList, QString>(
            "before", "after", "popups",
            "signalled"); // tasks closed, and "!" when the current task 7 has a new deadline
        using Texts = std::initializer_list<const char *>;
        const auto row = [](const char *name, Texts before, Texts after, Texts popups,
                            const char *signalled) {
            QTest::newRow(name) << texts(before) << texts(after) << texts(popups) << s(signalled);
        };
        row("same", {"1:7!@3*2 8"}, {"1:8 7!@3*2"}, {}, "");
        row("each kind", {"1:2 3! 4*1 5 6@1"}, {"1:2! 3 4*2 6@2 8 9!"},
            {"Задача \"T2\" помечена как блокирующая #2", "Задача \"T3\" более не является блокирующей #3",
             "К задаче \"T4\" добавлен новый комментарий #4", "Добавлена новая задача \"T8\" #8",
             "Добавлена новая блокируюшая задача \"T9\" #9", "Задача \"T5\" более недоступна",
             "Дедлайн задачи \"T6\" был изменён"},
            "5");
        row("current deadline", {"1:7@1 8@1"}, {"1:7@2 8@2"},
            {"Дедлайн задачи \"T7\" был изменён", "Дедлайн задачи \"T8\" был изменён"}, "!");
        // The other team's list has the deadline already, so it is announced once.
        row("shared task", {"1:7@1", "2:7@1 8"}, {"1:7@2", "2:7@2 8"}, {"Дедлайн задачи \"T7\" был изменён"},
            "!");
        row("shared task gone", {"1:7", "2:7 8"}, {"1:", "2:8"}, {"Задача \"T7\" более недоступна"}, "7");
        row("shared task leaves one team", {"1:7", "2:7"}, {"1:", "2:7"},
            {"Задача \"T7\" более недоступна", "Добавлена новая задача \"T7\" #7"}, "7");
        row("exempt team", {"2192:7@1 8 9"}, {"2192:7@2 8!"},
            {"Задача \"T8\" помечена как блокирующая #8", "Задача \"T9\" более недоступна"}, "9");
        row("shared with the exempt team", {"1:7@1", "2192:7@1"}, {"1:7@2", "2192:7@3"},
            {"Дедлайн задачи \"T7\" был изменён"}, "!");
    }

    void announcesChanges()
    {
        QFETCH(QStringList, before);
        QFETCH(QStringList, after);
        OfflineClient client(s("user"));
        client.load(before);
        client.session()->setCurrentTaskID(s("7"));
        client.session()->save();
        QString signalled;
        connect(client.session(), &Orvana::Session::taskClosed, this,
                [&](const QString &id) { signalled += id; });
        connect(client.session(), &Orvana::Session::overdueTimeChanged, this,
                [&] { signalled += QLatin1Char('!'); });
        client.load(after);
        QTEST(client.notices().take(), "popups");
        QTEST(signalled, "signalled");
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

    void findsTasks()
    {
        OfflineClient client(s("user"));
        client.load(texts({"2:7@2 9!", "1:8~0 7@1 6~y"}));
        Orvana::Session *session = client.session();
        QString ids;
        const QList<Task> all = session->tasks();
        for (const Task &task : all)
            ids += task.id;
        // Every task once, from the team with the smaller id.
        QCOMPARE(ids, s("87609"));
        QCOMPARE(all.at(1).deadline.date().day(), 1);
        QCOMPARE(session->blockedTasks(s("1")), tasksFrom(s("6")));
        QVERIFY(session->tasks(s("3")).isEmpty() && session->team(s("3")).id.isEmpty());
        QVERIFY(session->task(s("1"), s("9")).id.isEmpty() && session->task(QString(), s("7")).id.isEmpty());
    }

    // d is the day of the counters from today ("?" for none), w and a set working and active
    // time, m and n count a minute of each, W and A show what is counted, s is a second.
    void counts_data()
    {
        // Working time as shown; active time as counted and as shown; task 7's entry; signals.
        addRows({{"d0 s s", "0:00:02 0:00:00 0:00:02 0:00:00 2"},
                 {"d0 w5:00:59 s m", "5:01:00 0:00:00 0:00:01 0:00:00 1"},
                 {"d0 s m n W A", "0:01:00 0:01:00 0:01:00 0:01:00 3"},
                 {"d0 s m A", "0:00:01 0:00:00 0:00:00 0:00:00 2"},
                 {"d0 w23:59:30 m W", "0:00:30 0:00:00 0:00:00 0:00:00 1"},
                 {"d0 w23:59:59 a23:59:59 s", "0:00:00 23:59:59 0:00:00 0:00:00 2"},
                 {"d0 a23:59:59 n", "0:00:00 0:00:59 23:59:59 0:00:59 1"},
                 // A task's entry is the day's total at its latest active minute.
                 {"d0 a1:00:00 t1:30:00 n n t7:45:00 n", "0:00:00 1:03:00 0:00:00 1:03:00 0"},
                 {"d0 t7:45:00", "0:00:00 0:00:00 0:00:00 7:45:00 0"},
                 // The active time as shown jumps when the minute field differs.
                 {"d0 a1:05:40 a2:05:00", "0:00:00 2:05:00 1:05:40 0:00:00 1"},
                 {"d0 a1:05:40 a1:05:00", "0:00:00 1:05:00 1:05:40 0:00:00 1"},
                 {"d0 a1:05:40 a1:06:00", "0:00:00 1:06:00 1:06:00 0:00:00 2"},
                 {"d0 a1:05:40 a0:00:00", "0:00:00 0:00:00 0:00:00 0:00:00 2"},
                 // The first second of a day does not count.
                 {"w5:00:00 a4:30:00 t1:00:00 d0 s", "5:00:01 4:30:00 4:30:01 1:00:00 2"},
                 {"w5:00:00 a4:30:00 t1:00:00 d1 s", "5:00:01 4:30:00 4:30:01 1:00:00 2"},
                 {"w5:00:00 a4:30:00 t1:00:00 d-1 s", "0:00:00 0:00:00 0:00:00 0:00:00 2"},
                 {"w5:00:00 a4:30:00 t1:00:00 d? s W A s", "0:00:01 0:00:00 0:00:01 0:00:00 5"}});
    }

    void counts()
    {
        QFETCH(QString, input);
        OfflineClient client(s("user"));
        Orvana::Session *session = client.session();
        session->setCurrentTaskID(s("7"));
        QSignalSpy updated(session, &Orvana::Session::timeUpdated);
        const QStringList steps = input.split(QLatin1Char(' '));
        for (const QString &step : steps) {
            const QTime time = QTime::fromString(step.mid(1), s("H:mm:ss"));
            const char kind = step.at(0).toLatin1();
            if (kind == 'd')
                session->setWorktimeDate(step == s("d?") ? QDate() : today().addDays(step.mid(1).toInt()));
            else if (kind == 'w' || kind == 'a')
                kind == 'w' ? session->setWorktime(time) : session->setActiveTime(time);
            else if (kind == 't')
                session->setActiveTaskTime(s("7"), time);
            else if (kind == 'm' || kind == 'n')
                kind == 'm' ? session->addMinuteToWorktime() : session->addMinuteToActiveTime();
            else if (kind == 'W')
                session->updateSecondsToDisplayedWorktime();
            else if (kind == 'A')
                session->updateSecondsToDisplayedActiveTime();
            else
                session->incrementTodayTime();
        }
        QString shown;
        for (const QTime &time : {session->todayTime(), session->todayActiveTime(),
                                  session->todayActiveTimeDisplayed(), session->todayActiveTime(s("7"))})
            shown += figures(time, "H:mm:ss") + QLatin1Char(' ');
        shown += QString::number(updated.size());
        QTEST(shown, "result");
        QCOMPARE(session->worktimeDate(), today().addDays(input.contains(s("d1")) ? 1 : 0));
        QCOMPARE(session->todayActiveTime(s("x")), QTime(0, 0));
        // A counted minute is on the disk at once.
        session->updateSecondsToDisplayedWorktime();
        if (input.contains(QLatin1Char('m')))
            QCOMPARE(client.stored(s("user/session.ini"), s("todayWorktime")).toString(),
                     figures(session->todayTime(), "HH:mm:ss"));
    }
};

QTEST_MAIN(TestSessionNews)

#include "tst_sessionnews.moc"
