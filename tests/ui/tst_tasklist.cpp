#include "rows.h"
#include "ui/artwork.h"
#include "ui/scrolltext.h"
#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "ui/tasklistmodel.h"
#include "ui/tasklistview.h"
#include "ui/taskrowdelegate.h"
#include "windowbench.h"

#include <QLabel>
#include <QPushButton>

#include <functional>

namespace {

const QString kTeam = s("17");
const QString kCatchAll = s("0");
const QString kLongTitle = s("Очень длинное название задачи, которое не помещается в строку ")
    + s("списка, сколько её ни растягивай & <b>без разметки</b>");

localservice::Task served(const char *id, const QString &title, const char *block = "0")
{
    localservice::Task task;
    task.id = s(id);
    task.title = title;
    task.block = s(block);
    return task;
}

QVector<localservice::Task> plainTasks()
{
    return {served("a", s("Первая")), served("b", s("Вторая")), served("c", kLongTitle)};
}

QVector<localservice::Task> withBlockingTask()
{
    return {served("a", s("Первая")), served("b", s("Вторая"), "1"), served("c", s("Третья"))};
}

// The list, opened from the main window.
class Desktop final
{
public:
    explicit Desktop(const QVector<localservice::Task> &tasks = plainTasks(),
                     const QString &current = QString())
    {
        bench.server().edit([&tasks](localservice::World &world) { world.team(kTeam)->tasks = tasks; });
        if (!bench.signIn())
            return;
        bench.orvana()->changeTask(kTeam, current);
        if (!bench.openWindow())
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
        QCOMPARE(desktop.rows(TaskListModel::OfferedRole), texts({"true", "false", "false", "false"}));
        QCOMPARE(desktop.rows(TaskListModel::CurrentRole), texts({"true", "false", "false", "false"}));
        QVERIFY(desktop.row(s("a")).data(Qt::ToolTipRole).toString().contains(s("блокирующие")));
        const auto icon = [&desktop](const char *id) {
            return desktop.row(s(id)).data(Qt::DecorationRole).value<QIcon>().pixmap(20).toImage();
        };
        const auto picture = [](const char *name) { return QIcon(s(name)).pixmap(20).toImage(); };
        QCOMPARE(icon("b"), picture(":/images/pbTaskBlocked.png"));
        QCOMPARE(icon("c"), picture(":/images/pbTaskUrgentGrey.png"));
        QCOMPARE(icon("a"), picture(":/images/pbTask.png"));
    }

    void clickOpensTheDescription()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.click(s("b"));
        QTRY_VERIFY(desktop.isOpen(s("b")));
        TaskDescriptionForm *form = desktop.list->description(s("b"));
        QTRY_COMPARE(form->findChild<QLabel *>(s("lbTaskTitle"))->text(), s("Вторая"));
        QVERIFY(desktop.current().isEmpty());
        form->hide();
        // The second look asks the service again and opens the window that was kept.
        QSignalSpy refreshed(desktop.bench.orvana(), &Orvana::taskInfoUpdated);
        desktop.click(s("b"));
        QTRY_VERIFY(desktop.isOpen(s("b")));
        QCOMPARE(desktop.list->description(s("b")), form);
        QTRY_VERIFY(refreshed.count() > 0);
    }

    void doubleClickOpensNothing()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.doubleClick(s("a"));
        QCOMPARE(desktop.current(), s("a"));
        QCOMPARE(desktop.bench.child<ScrollText>("lbTask")->text(), s("Первая"));
        // A timer started now ends after one that any of the clicks has left running.
        QTimer later;
        QSignalSpy passed(&later, &QTimer::timeout);
        later.start(QApplication::doubleClickInterval() + 1);
        QVERIFY(passed.wait());
        QVERIFY(!desktop.list->description(s("a")));
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
        QCOMPARE(team->text(), s("Редакция сайта"));
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
        QVERIFY(desktop.row(s("4101")).data(TaskListModel::CurrentRole).toBool());

        desktop.bench.server().edit([](localservice::World &world) { world.team(kTeam)->tasks.clear(); });
        QVERIFY(desktop.bench.refresh());
        desktop.bench.orvana()->changeTask(kTeam, kCatchAll);
        QVERIFY(empty->isVisible());
        QCOMPARE(empty->text(), s("В команде нет задач"));
        // There is still the work that belongs to no task.
        QCOMPARE(desktop.rows(), texts({"0"}));

        desktop.bench.orvana()->changeTask(QString(), QString());
        QVERIFY(empty->isVisible());
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
        emit desktop.bench.form->hideAll();
        QVERIFY(!desktop.list->isVisible() && !timer->isActive() && !desktop.isOpen(s("a")));
        emit desktop.bench.form->showAll();
        QVERIFY(isVisible() && !desktop.isOpen(s("b")));
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
        const QRect screen(0, 24, 1280, 776);
        const QRect small(0, 0, 480, 430);
        const std::pair<QRect, QRect> rows[] = {{{QPoint(928, 24), anchor}, screen},
                                                {{QPoint(0, 24), anchor}, screen},
                                                {{QPoint(928, 652), anchor}, screen},
                                                {{QPoint(1200, 700), anchor}, screen},
                                                {{QPoint(2848, 0), anchor}, {1280, 0, 1920, 1080}},
                                                {{QPoint(128, 0), anchor}, {0, 0, 480, 800}},
                                                {{QPoint(128, 0), anchor}, small}};
        for (const auto &[beside, area] : rows) {
            const QRect window(Artwork::beside(beside, QSize(460, 420), area), QSize(460, 420));
            QVERIFY(area.contains(window));
            QCOMPARE(window.intersects(beside), area == small); // no room
        }
    }

    void deadlines()
    {
        const struct
        {
            int secondsAgo;
            const char *deadline;
            const char *overdue;
        } rows[] = {{-60, "Истекает: 2024-01-31 12:01:00", ""},
                    {0, "Истёк срок: 2024-01-31 12:00:00", "Просрочено: меньше минуты"},
                    {1800, "Истёк срок: 2024-01-31 11:30:00", "Просрочено: 30 мин."},
                    {25 * 3600, "Истёк срок: 2024-01-30 11:00:00", "Просрочено: 1д. 1ч."}};
        const QDateTime now(QDate(2024, 1, 31), QTime(12, 0));
        TaskListModel model([](const Task &) { return QIcon(); });
        const auto text = [&model](int row, int role) { return model.index(row).data(role).toString(); };
        for (const auto &row : rows) {
            Task task;
            task.deadline = now.addSecs(-row.secondsAgo);
            model.setTasks({task, Task::catchAll()});
            model.setNow(now);
            QCOMPARE(text(0, TaskListModel::DeadlineRole), s(row.deadline));
            QCOMPARE(text(0, TaskListModel::OverdueRole), s(row.overdue));
        }
        QCOMPARE(text(1, TaskListModel::DeadlineRole), s("Без срока"));
        QCOMPARE(text(1, TaskListModel::OverdueRole), QString());
    }

    void onlyVisibleRowsAreDrawn()
    {
        constexpr int many = 5000;
        constexpr int visible = 40;
        QList<Task> tasks;
        for (int i = 0; i < many; ++i) {
            Task task;
            task.id = QString::number(i + 1);
            task.title = kLongTitle;
            tasks.append(task);
        }
        int asked = 0;
        TaskListModel model([&asked](const Task &) {
            ++asked;
            return QIcon();
        });
        TaskListView view;
        view.setModel(&model);
        view.resize(420, 360);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        model.setTasks(tasks);
        view.repaint();
        QVERIFY2(asked > 0 && asked < visible, qPrintable(QString::number(asked)));
        view.scrollToBottom();
        view.repaint();
        QVERIFY2(asked < 2 * visible, qPrintable(QString::number(asked)));
        // Another look at the clock, and the same tasks again, lay nothing out anew.
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
        asked = 0;
        model.setTasks(tasks);
        model.setNow(QDateTime::currentDateTime());
        view.repaint();
        QVERIFY(reset.isEmpty());
        QVERIFY2(asked < visible, qPrintable(QString::number(asked)));
    }
};

QTEST_MAIN(TaskListTest)
#include "tst_tasklist.moc"
