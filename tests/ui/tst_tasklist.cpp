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
#include "windowparts.h"

#include <functional>

namespace {

const QString kTeam = s("17");

// Three tasks, a, b and c; b may be a blocking one.
QVector<localservice::Task> threeTasks(const char *block = "")
{
    QVector<localservice::Task> tasks(3);
    const QStringList titles = texts({"Первая", "Вторая", "Третья"});
    for (int i = 0; i < tasks.size(); ++i) {
        tasks[i].id = QString(QLatin1Char(char('a' + i)));
        tasks[i].title = titles.at(i);
    }
    tasks[1].block = s(block);
    return tasks;
}

// The list, opened from the main window.
class Desktop final
{
public:
    explicit Desktop(const QVector<localservice::Task> &tasks = threeTasks(), const QString &current = {})
    {
        bench.server().edit([&tasks](localservice::World &world) { world.team(kTeam)->tasks = tasks; });
        if (!bench.openFor(current))
            return;
        list = bench.form->findChild<TaskListForm *>();
        view = list->findChild<TaskListView *>();
        click(bench.child<QWidget>("pbTaskList"));
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

    // "click", "click click", or "button", or the names of keys.
    void use(const QString &id, const QString &way) const
    {
        view->setCurrentIndex(row(id));
        const QPoint at = way == s("button") ? TaskRowDelegate::buttonRect(view->visualRect(row(id))).center()
                                             : view->visualRect(row(id)).center();
        if (way.startsWith(s("click")) || way == s("button"))
            QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
        else
            QTest::keyClick(view, way == s("Space") ? Qt::Key_Space : Qt::Key_Return,
                            way.startsWith(s("Ctrl")) ? Qt::ControlModifier : Qt::NoModifier);
        if (way == s("click click")) {
            QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, at);
            QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, at);
        }
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
        Desktop desktop(threeTasks("1"), s("b"));
        QVERIFY(desktop.ready);
        QCOMPARE(desktop.rows(), texts({"b", "a", "c", "0"}));
        for (const int role : {TaskListModel::OfferedRole, TaskListModel::CurrentRole})
            QCOMPARE(desktop.rows(role), texts({"true", "false", "false", "false"}));
        QVERIFY(desktop.rows(Qt::ToolTipRole).at(1).contains(s("блокирующие")));
        const auto icon = desktop.row(s("b")).data(Qt::DecorationRole).value<QIcon>();
        QCOMPARE(icon.pixmap(20).toImage(), QIcon(s(":/images/pbTaskBlocked.png")).pixmap(20).toImage());
    }

    void clicksOpenTheDescription()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.use(s("b"), s("click"));
        QTRY_VERIFY(desktop.isOpen(s("b")));
        TaskDescriptionForm *form = desktop.list->description(s("b"));
        QTRY_COMPARE(part<QLabel>(form, "lbTaskTitle")->text(), s("Вторая"));
        QCOMPARE(desktop.current(), QString());
        form->hide();
        // Opened again, the window that was kept asks the service again.
        QSignalSpy refreshed(desktop.bench.orvana(), &Orvana::taskInfoUpdated);
        desktop.use(s("b"), s("click"));
        QTRY_VERIFY(desktop.isOpen(s("b")) && refreshed.count() > 0);
        QCOMPARE(desktop.list->description(s("b")), form);
    }

    void choosing_data()
    {
        QTest::addColumn<QString>("way");
        for (const char *way : {"click click", "button", "Space", "Ctrl+Enter"})
            QTest::newRow(way) << s(way);
    }

    void choosing()
    {
        QFETCH(QString, way);
        Desktop desktop(threeTasks("1"));
        QVERIFY(desktop.ready);
        for (const char *heldBack : {"c", "0"}) {
            desktop.use(s(heldBack), way);
            QCOMPARE(desktop.current(), QString());
        }
        desktop.use(s("b"), way);
        QCOMPARE(desktop.current(), s("b"));
        QVERIFY(desktop.row(s("b")).data(TaskListModel::CurrentRole).toBool());
        QCOMPARE(desktop.bench.child<ScrollText>("lbTask")->text(), s("Вторая"));
        // It opens nothing, also when the time of a double click is over.
        QSignalSpy opened(desktop.view, &TaskListView::descriptionRequested);
        QVERIFY(!opened.wait(QApplication::doubleClickInterval() + 50));
    }

    void keyboard()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.use(s("0"), s("Enter"));
        QVERIFY(!desktop.list->description(s("0"))); // it has no description
        desktop.view->setCurrentIndex(desktop.row(s("a")));
        QTest::keyClick(desktop.view, Qt::Key_Down);
        QTest::keyClick(desktop.view, Qt::Key_Return);
        QVERIFY(desktop.isOpen(s("b")) && desktop.list->isVisible());
        QTest::keyClick(desktop.list, Qt::Key_Escape);
        QVERIFY(desktop.isOpen(s("b")) && !desktop.list->isVisible());
    }

    void followsTheSession()
    {
        Desktop desktop(threeTasks(), s("a"));
        QVERIFY(desktop.ready);
        const auto *empty = part<QLabel>(desktop.list, "lbEmpty");
        const auto *team = part<ScrollText>(desktop.list, "lbTeam");
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
        desktop.bench.orvana()->changeTask(kTeam, s("0"));
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
        click(part(desktop.list, "pbClose"));
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

    void places_data()
    {
        addColumns<QPoint, QRect, bool>("anchor", "area", "hasRoom");
        QTest::newRow("right below") << QPoint(928, 652) << QRect(0, 24, 1280, 776) << true;
        QTest::newRow("second screen") << QPoint(2848, 0) << QRect(1280, 0, 1920, 1080) << true;
        QTest::newRow("narrow screen") << QPoint(128, 0) << QRect(0, 0, 480, 800) << true;
        QTest::newRow("small screen") << QPoint(128, 0) << QRect(0, 0, 480, 430) << false;
    }

    void places()
    {
        QFETCH(QPoint, anchor);
        QFETCH(QRect, area);
        const QRect mainWindow(anchor, QSize(352, 148));
        const QSize size(460, 420);
        const QRect window(Placement::nextTo(mainWindow, size, area), size);
        QVERIFY(area.contains(window));
        QTEST(!window.intersects(mainWindow), "hasRoom");
    }

    void deadlines_data()
    {
        addColumns<QDateTime, QString>("deadline", "texts");
        const auto row = [](int hour, int second, const char *texts) {
            QTest::newRow(texts) << QDateTime(QDate(2024, 1, 30), QTime(hour, 59, second)) << s(texts);
        };
        QTest::newRow("none") << QDateTime() << s("Без срока ");
        row(12, 1, "Истекает: 2024-01-30 12:59:01 ");
        row(12, 0, "Истёк срок: 2024-01-30 12:59:00 Просрочено: меньше минуты");
        row(11, 0, "Истёк срок: 2024-01-30 11:59:00 Просрочено: 1ч.");
    }

    void deadlines()
    {
        QFETCH(QDateTime, deadline);
        Task task;
        task.deadline = deadline;
        TaskListModel model([](const Task &) { return QIcon(); });
        model.setTasks({task});
        model.setNow(QDateTime(QDate(2024, 1, 30), QTime(12, 59)));
        const auto text = [&model](int role) { return model.index(0).data(role).toString(); };
        QTEST(
            QString(text(TaskListModel::DeadlineRole) + QLatin1Char(' ') + text(TaskListModel::OverdueRole)),
            "texts");
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
        // A later moment, and the same tasks again, lay out nothing again.
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
