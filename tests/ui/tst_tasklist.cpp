#include "realinput.h"
#include "tasknotes.h"
#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "ui/tasklistmodel.h"
#include "ui/tasklistview.h"
#include "ui/taskrowdelegate.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "windowbench.h"

#include <functional>

namespace {

const QString kTeam = s("17");
const QString kCatchAll = s("0");
QVector<localservice::Task> plainTasks()
{
    QVector<localservice::Task> tasks(3);
    const QStringList titles = texts({"Первая", "Вторая", "Третья"});
    for (int i = 0; i < tasks.size(); ++i) {
        tasks[i].id = QString(QLatin1Char(char('a' + i)));
        tasks[i].title = titles.at(i);
    }
    return tasks;
}

QVector<localservice::Task> withBlockingTask()
{
    QVector<localservice::Task> tasks = plainTasks();
    tasks[1].block = s("1");
    return tasks;
}

// The list, opened from the main window.
class Desktop final
{
public:
    explicit Desktop(const QVector<localservice::Task> &tasks = plainTasks(),
                     const QString &current = QString())
    {
        bench.server().edit([&tasks](localservice::World &world) { world.team(kTeam)->tasks = tasks; });
        if (!bench.openFor(current))
            return;
        list = bench.form->findChild<TaskListForm *>();
        view = list->findChild<TaskListView *>();
        QTest::mouseClick(bench.child<QPushButton>("pbTaskList"), Qt::LeftButton);
        ready = QTest::qWaitFor([this] { return view->hasFocus(); }, TestClient::waitLimit);
    }

    QStringList rows(int role = TaskListModel::IdRole) const
    {
        QStringList texts;
        for (int i = 0; i < view->model()->rowCount(); ++i)
            texts.append(view->model()->index(i, 0).data(role).toString());
        return texts;
    }
    QModelIndex row(const QString &id) const { return view->model()->index(rows().indexOf(id), 0); }
    QPoint place(const QString &id) const { return view->visualRect(row(id)).center(); }

    void click(const QString &id) const
    {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::NoModifier, place(id));
    }
    void doubleClick(const QString &id) const
    {
        // The second press is the double click itself.
        click(id);
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, Qt::NoModifier, place(id));
        QTest::mouseRelease(view->viewport(), Qt::LeftButton, Qt::NoModifier, place(id));
    }
    void clickButton(const QString &id) const
    {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::NoModifier,
                          TaskRowDelegate::buttonRect(view->visualRect(row(id))).center());
    }
    void press(const QString &id, Qt::Key key, Qt::KeyboardModifier modifier = Qt::NoModifier) const
    {
        view->setCurrentIndex(row(id));
        QTest::keyClick(view, key, modifier);
    }
    bool isOpen(const QString &id) const
    {
        const TaskDescriptionForm *form = list->description(id);
        return form && form->isVisible();
    }
    QString current() const { return bench.session()->currentTaskID(); }

    WindowBench bench;
    TaskListForm *list = nullptr;
    TaskListView *view = nullptr;
    bool ready = false;
};

} // namespace

class TaskListTest final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { WindowBench::applyStyle(); }

    void rowsAndTheirMarks()
    {
        QVector<localservice::Task> tasks = withBlockingTask();
        tasks[2].importance = 2;
        Desktop desktop(tasks, s("b"));
        QVERIFY(desktop.ready);
        QCOMPARE(desktop.rows(), texts({"b", "a", "c", "0"}));
        for (const int role : {TaskListModel::OfferedRole, TaskListModel::CurrentRole})
            QCOMPARE(desktop.rows(role), texts({"true", "false", "false", "false"}));
        QVERIFY(desktop.rows(Qt::ToolTipRole).at(1).contains(s("блокирующие")));
        const std::pair<const char *, const char *> icons[] = {
            {"b", "Blocked"}, {"c", "UrgentGrey"}, {"a", ""}};
        for (const auto &[id, name] : icons) {
            const auto icon = desktop.row(s(id)).data(Qt::DecorationRole).value<QIcon>();
            QCOMPARE(icon.pixmap(20).toImage(),
                     QIcon(s(":/images/pbTask%1.png").arg(s(name))).pixmap(20).toImage());
        }
    }

    void clicksOpenTheDescription()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        // A double click chooses and opens nothing, also when the clicks' timers have ended.
        desktop.doubleClick(s("a"));
        QCOMPARE(desktop.bench.child<ScrollText>("lbTask")->text(), s("Первая"));
        QTimer later;
        QSignalSpy passed(&later, &QTimer::timeout);
        later.start(QApplication::doubleClickInterval() + 1);
        QVERIFY(passed.wait());
        QVERIFY(!desktop.list->description(s("a")));

        desktop.click(s("b"));
        QTRY_VERIFY(desktop.isOpen(s("b")));
        TaskDescriptionForm *form = desktop.list->description(s("b"));
        QTRY_COMPARE(form->findChild<QLabel *>(s("lbTaskTitle"))->text(), s("Вторая"));
        QCOMPARE(desktop.current(), s("a"));
        form->hide();
        // The second look asks the service again and opens the window that was kept.
        QSignalSpy refreshed(desktop.bench.orvana(), &Orvana::taskInfoUpdated);
        desktop.click(s("b"));
        QTRY_VERIFY(desktop.isOpen(s("b")) && refreshed.count() > 0);
        QCOMPARE(desktop.list->description(s("b")), form);
    }

    void choosing()
    {
        using Way = std::function<void(const QString &)>;
        Desktop desktop(withBlockingTask());
        QVERIFY(desktop.ready);
        const Way ways[] = {
            [&](const QString &id) { desktop.doubleClick(id); },
            [&](const QString &id) { desktop.clickButton(id); },
            [&](const QString &id) { desktop.press(id, Qt::Key_Space); },
            [&](const QString &id) { desktop.press(id, Qt::Key_Return, Qt::ControlModifier); }};
        for (const Way &choose : ways) {
            desktop.bench.orvana()->changeTask(kTeam, QString());
            for (const QString &heldBack : {s("c"), kCatchAll}) {
                choose(heldBack);
                QCOMPARE(desktop.current(), QString());
            }
            choose(s("b"));
            QCOMPARE(desktop.current(), s("b"));
            QVERIFY(desktop.row(s("b")).data(TaskListModel::CurrentRole).toBool());
        }
    }

    void keyboard()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.press(kCatchAll, Qt::Key_Return);
        QVERIFY(!desktop.list->description(kCatchAll)); // there is nothing to tell
        desktop.press(s("a"), Qt::Key_Down);
        QTest::keyClick(desktop.view, Qt::Key_Return);
        QVERIFY(desktop.isOpen(s("b")) && desktop.list->isVisible());
        QTest::keyClick(desktop.list, Qt::Key_Escape);
        QVERIFY(desktop.isOpen(s("b")) && !desktop.list->isVisible());
    }

    void followsTheSession()
    {
        Desktop desktop(plainTasks(), s("a"));
        QVERIFY(desktop.ready);
        const auto *empty = desktop.list->findChild<QLabel *>(s("lbEmpty"));
        const auto *team = desktop.list->findChild<ScrollText *>(s("lbTeam"));
        QVERIFY(empty->isHidden());
        desktop.view->setCurrentIndex(desktop.row(s("c")));
        desktop.bench.server().edit([](localservice::World &world) {
            world.team(kTeam)->name = s("<b>Новое</b> имя");
            world.setBlock(s("b"), s("1"));
        });
        QVERIFY(desktop.bench.refresh());
        QCOMPARE(desktop.rows(), texts({"b", "a", "c", "0"}));
        QCOMPARE(team->text(), s("<b>Новое</b> имя"));
        QCOMPARE(desktop.view->currentIndex(), desktop.row(s("c")));
        desktop.bench.orvana()->changeTask(s("41"), s("4101"));
        QCOMPARE(team->text(), s("Поддержка клиентов"));
        // Without tasks there is still the work that belongs to none.
        desktop.bench.server().edit([](localservice::World &world) { world.team(kTeam)->tasks.clear(); });
        QVERIFY(desktop.bench.refresh());
        desktop.bench.orvana()->changeTask(kTeam, kCatchAll);
        QVERIFY(empty->isVisible());
        QCOMPARE(empty->text(), s("В команде нет задач"));
        QCOMPARE(desktop.rows(), texts({"0"}));
        desktop.bench.orvana()->changeTask(QString(), QString());
        QCOMPARE(empty->text(), s("Выберите команду и задачу"));
    }

    void descriptionsFollowTheList()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        for (const char *id : {"a", "b", "c"})
            desktop.list->openDescription(s(id));
        // All windows hide and come back together, but for those that were closed.
        const auto *timer = desktop.list->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
        const auto isVisible = [&] {
            return desktop.list->isVisible() && timer->isActive() && desktop.isOpen(s("a"));
        };
        desktop.list->description(s("b"))->on_pbHide_clicked();
        QVERIFY(isVisible());
        MainForm *form = desktop.bench.form.get();
        const std::function<void()> ways[] = {
            [form] { emit form->showAll(); },
            [form] { QVERIFY(activateWindow(QString::number(form->winId()))); }}; // as a panel does
        for (const auto &comeBack : ways) {
            emit form->hideAll();
            QVERIFY(!desktop.list->isVisible() && !timer->isActive() && !desktop.isOpen(s("a")));
            QTRY_VERIFY(form->isMinimized() && !form->windowHandle()->isExposed());
            QTRY_VERIFY(propertyOf(QString::number(form->winId()), s("_NET_WM_STATE")).contains(s("HIDDEN")));
            comeBack();
            QTRY_VERIFY(isVisible() && !desktop.isOpen(s("b")));
            QTRY_VERIFY(!form->isMinimized() && form->windowHandle()->isExposed());
        }
        QTest::mouseClick(desktop.list->findChild<QPushButton *>(s("pbClose")), Qt::LeftButton);
        emit desktop.bench.form->hideAll();
        emit desktop.bench.form->showAll();
        QVERIFY(!desktop.list->isVisible() && desktop.isOpen(s("a")));
        // A closed task takes its window along, another user all of them.
        const QPointer<TaskDescriptionForm> gone = desktop.list->description(s("a"));
        const QPointer<TaskDescriptionForm> left = desktop.list->description(s("c"));
        desktop.bench.server().edit([](localservice::World &world) { world.removeTask(s("a")); });
        QVERIFY(desktop.bench.refresh());
        QTRY_VERIFY(gone.isNull());
        QVERIFY(desktop.bench.signIn());
        QVERIFY(left && left->isVisible());
        QVERIFY(desktop.bench.signIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я")));
        QTRY_VERIFY(left.isNull());
        QCOMPARE(desktop.rows(), QStringList());
    }

    void places()
    {
        const QSize anchor(352, 148);
        const QRect small(0, 0, 480, 430);
        const std::pair<QRect, QRect> rows[] = {{{QPoint(928, 652), anchor}, {0, 24, 1280, 776}},
                                                {{QPoint(2848, 0), anchor}, {1280, 0, 1920, 1080}},
                                                {{QPoint(128, 0), anchor}, {0, 0, 480, 800}},
                                                {{QPoint(128, 0), anchor}, small}};
        for (const auto &[beside, area] : rows) {
            const QRect window(Placement::nextTo(beside, QSize(460, 420), area), QSize(460, 420));
            QVERIFY(area.contains(window));
            QCOMPARE(window.intersects(beside), area == small); // no room
        }
    }

    void deadlines()
    {
        const QDateTime now(QDate(2024, 1, 31), QTime(12, 0));
        TaskListModel model([](const Task &) { return QIcon(); });
        const auto verify = [&](int secondsAgo, const char *deadline, const char *overdue) {
            Task task;
            task.deadline = secondsAgo == 0 ? QDateTime() : now.addSecs(-secondsAgo);
            model.setTasks({task});
            model.setNow(now);
            QCOMPARE(model.index(0).data(TaskListModel::DeadlineRole).toString(), s(deadline));
            QCOMPARE(model.index(0).data(TaskListModel::OverdueRole).toString(), s(overdue));
        };
        verify(0, "Без срока", "");
        verify(-60, "Истекает: 2024-01-31 12:01:00", "");
        verify(1, "Истёк срок: 2024-01-31 11:59:59", "Просрочено: меньше минуты");
        verify(25 * 3600, "Истёк срок: 2024-01-30 11:00:00", "Просрочено: 1д. 1ч.");
    }

    void onlyVisibleRowsAreDrawn()
    {
        constexpr int visible = 40;
        QList<Task> tasks;
        for (int i = 0; i < 5000; ++i)
            tasks.append(tasksFrom(QString::number(i + 1)));
        int asked = 0;
        TaskListModel model([&asked](const Task &) { return ++asked, QIcon(); });
        TaskListView view;
        view.setModel(&model);
        view.resize(420, 360);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        model.setTasks(tasks);
        view.repaint();
        view.scrollToBottom();
        view.repaint();
        QVERIFY2(asked > 0 && asked < 2 * visible, qPrintable(QString::number(asked)));
        // Another look at the clock, and the same tasks again, lay nothing out anew.
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
        asked = 0;
        model.setTasks(tasks);
        model.setNow(QDateTime::currentDateTime());
        view.repaint();
        QVERIFY2(reset.isEmpty() && asked < visible, qPrintable(QString::number(asked)));
    }
};

QTEST_MAIN(TaskListTest)
#include "tst_tasklist.moc"
