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
        // The other team's list takes over the deadline, so it is told once.
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
                const QList<Task> known = client.session()->tasks(list.section(QLatin1Char(':'), 0, 0));
                const QList<Task> expected = tasksFrom(list.section(QLatin1Char(':'), 1)) << Task::catchAll();
                QVERIFY(std::equal(known.cbegin(), known.cend(), expected.cbegin(), expected.cend(),
                                   [](const Task &a, const Task &b) { return a.hasSameContents(b); }));
            }
            client.restart();
        }
    }

    void manyChangesDoNotHoldUpTheWindow()
    {
        OfflineClient client(s("user"));
        QString notes;
        for (int i = 1; i <= 10000; ++i)
            notes += QString::number(i) + QLatin1Char(' ');
        const QStringList many{s("1:") + notes, s("2:") + notes};
        client.load(many);
        client.session()->save();
        QElapsedTimer timer;
        timer.start();
        client.load(texts({"1:", "2:"}));
        QCOMPARE(client.session()->tasks().size(), 1);
        client.load(many);
        QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
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

    void countsSecondsAndMinutes()
    {
        OfflineClient client(s("user"));
        Orvana::Session *session = client.session();
        session->setWorktimeDate(today());
        QSignalSpy updated(session, &Orvana::Session::timeUpdated);
        for (int i = 0; i < 61; ++i)
            session->incrementTodayTime();
        QCOMPARE(updated.size(), 61);
        QCOMPARE(session->todayTime(), QTime(0, 1, 1));
        QCOMPARE(session->todayActiveTimeDisplayed(), QTime(0, 1, 1));
        QCOMPARE(session->todayActiveTime(), QTime(0, 0));
        session->addMinuteToWorktime();
        session->updateSecondsToDisplayedWorktime();
        session->updateSecondsToDisplayedActiveTime();
        QCOMPARE(updated.size(), 63);
        QCOMPARE(session->todayTime(), QTime(0, 1));
        QCOMPARE(session->todayActiveTimeDisplayed(), QTime(0, 0));
        // A counted minute is on the disk at once.
        QCOMPARE(client.stored(s("user/session.ini"), s("todayWorktime")).toString(), s("00:01:00"));

        session->setWorktime(QTime(23, 59, 30));
        session->setActiveTime(QTime(23, 59, 59));
        QCOMPARE(session->todayTime(), QTime(23, 59, 30));
        session->incrementTodayTime();
        QCOMPARE(session->todayActiveTimeDisplayed(), QTime(0, 0));
        session->addMinuteToWorktime();
        session->addMinuteToActiveTime();
        session->updateSecondsToDisplayedWorktime();
        QCOMPARE(session->todayTime(), QTime(0, 0, 30));
        QCOMPARE(session->todayActiveTime(), QTime(0, 0, 59));

        // A task's entry is the day's total at its latest active minute.
        session->setActiveTime(QTime(1, 0));
        session->setActiveTaskTime(s("A"), QTime(0, 10));
        for (const char *task : {"A", "A", "A", "B", "B"}) {
            session->setCurrentTaskID(s(task));
            session->addMinuteToActiveTime();
        }
        QCOMPARE(session->todayActiveTime(s("A")), QTime(1, 3));
        QCOMPARE(session->todayActiveTime(s("B")), QTime(1, 5));
        QCOMPARE(session->todayActiveTime(s("x")), QTime(0, 0));
        session->save();
        QVERIFY(!client.stored(s("user/session.ini"), s("task2activeTimeMap")).toMap().contains(s("x")));
    }

    void startsNewDay()
    {
        const QTime none(0, 0);
        for (const QDate &date : {today().addDays(-1), QDate(), today(), today().addDays(1)}) {
            const bool isNew = !date.isValid() || date < today();
            const OfflineClient client;
            Orvana::Session *session = client.session();
            session->setWorktime(QTime(5, 0));
            session->setActiveTime(QTime(4, 30));
            session->setActiveTaskTime(s("7"), QTime(1, 0));
            session->setWorktimeDate(date);
            QSignalSpy updated(session, &Orvana::Session::timeUpdated);
            session->incrementTodayTime();
            QCOMPARE(updated.size(), 1);
            QCOMPARE(session->worktimeDate(), isNew ? today() : date);
            QCOMPARE(session->todayTime(), isNew ? none : QTime(5, 0, 1));
            QCOMPARE(session->todayActiveTimeDisplayed(), isNew ? none : QTime(4, 30, 1));
            QCOMPARE(session->todayActiveTime(), isNew ? none : QTime(4, 30));
            QCOMPARE(session->todayActiveTime(s("7")), isNew ? none : QTime(1, 0));
            session->updateSecondsToDisplayedWorktime();
            QCOMPARE(session->todayTime(), isNew ? none : QTime(5, 0));
        }
    }

    void activeTimeJumpsByMinutes()
    {
        const QTime shown(1, 5, 40);
        for (const QTime &time : {QTime(2, 5), QTime(1, 5), QTime(1, 6), QTime(1, 4), QTime(0, 0)}) {
            const OfflineClient client;
            client.session()->setActiveTime(shown);
            QSignalSpy updated(client.session(), &Orvana::Session::timeUpdated);
            client.session()->setActiveTime(time);
            const bool jumps = time.minute() != 5;
            QCOMPARE(updated.size(), jumps ? 1 : 0);
            QCOMPARE(client.session()->todayActiveTime(), time);
            QCOMPARE(client.session()->todayActiveTimeDisplayed(), jumps ? time : shown);
        }
    }
};

QTEST_MAIN(TestSessionNews)

#include "tst_sessionnews.moc"
