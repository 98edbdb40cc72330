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

namespace {

const QString kTeam = s("17");
const QString kCatchAll = s("0");
const QString kLongTitle = s("Очень длинное название задачи, которое не помещается в строку ")
    + s("списка, сколько её ни растягивай & <b>без разметки</b>");

localservice::Task served(const char *id, const QString &title, const char *block = "0")
{
    localservice::Task task;
    task.id = QString::fromLatin1(id);
    task.title = title;
    task.block = QString::fromLatin1(block);
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

QStringList ids(std::initializer_list<const char *> list)
{
    QStringList all;
    for (const char *id : list)
        all.append(QString::fromLatin1(id));
    return all;
}

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
        QCOMPARE(desktop.rows(), ids({"b", "a", "c", "0"}));
        QCOMPARE(desktop.rows(TaskListModel::OfferedRole), ids({"true", "false", "false", "false"}));
        QCOMPARE(desktop.rows(TaskListModel::CurrentRole), ids({"true", "false", "false", "false"}));
        QVERIFY(desktop.row(s("a")).data(Qt::ToolTipRole).toString().contains(s("блокирующие")));
        const auto icon = [&desktop](const char *id) {
            return desktop.row(QString::fromLatin1(id))
                .data(Qt::DecorationRole)
                .value<QIcon>()
                .pixmap(20)
                .toImage();
        };
        const auto picture = [](const char *name) {
            return QIcon(QString::fromLatin1(name)).pixmap(20).toImage();
        };
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

    void choosing_data()
    {
        addColumns<QString, QString, bool>("way", "task", "offered");
        for (const char *way : {"double click", "button", "space", "control and enter"}) {
            QTest::addRow("%s on a blocking task", way) << QString::fromLatin1(way) << s("b") << true;
            QTest::addRow("%s on one held back", way) << QString::fromLatin1(way) << s("c") << false;
            QTest::addRow("%s on unlisted work", way) << QString::fromLatin1(way) << kCatchAll << false;
        }
    }

    void choosing()
    {
        QFETCH(QString, way);
        QFETCH(QString, task);
        QFETCH(bool, offered);
        Desktop desktop(withBlockingTask());
        QVERIFY(desktop.ready);
        if (way == QLatin1String("double click"))
            desktop.doubleClick(task);
        else if (way == QLatin1String("button"))
            desktop.clickButton(task);
        else if (way == QLatin1String("space"))
            desktop.press(task, Qt::Key_Space);
        else
            desktop.press(task, Qt::Key_Return, Qt::ControlModifier);
        QCOMPARE(desktop.current(), offered ? task : QString());
        QCOMPARE(desktop.row(task).data(TaskListModel::CurrentRole).toBool(), offered);
    }

    void keyboard()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        QVERIFY(desktop.view->hasFocus());
        desktop.view->setCurrentIndex(desktop.row(s("a")));
        QTest::keyClick(desktop.view, Qt::Key_Down);
        QTest::keyClick(desktop.view, Qt::Key_Return);
        QVERIFY(desktop.isOpen(s("b")));
        QVERIFY(desktop.list->isVisible());
        QTest::keyClick(desktop.list, Qt::Key_Escape);
        QVERIFY(!desktop.list->isVisible());
        QVERIFY(desktop.isOpen(s("b")));
    }

    void unlistedWork()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.press(kCatchAll, Qt::Key_Return);
        QVERIFY(!desktop.list->description(kCatchAll));
        desktop.doubleClick(kCatchAll);
        QCOMPARE(desktop.current(), kCatchAll);
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
        QCOMPARE(desktop.rows(), ids({"b", "a", "c", "0"}));
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
        QCOMPARE(desktop.rows(), ids({"0"}));

        desktop.bench.orvana()->changeTask(QString(), QString());
        QVERIFY(empty->isVisible());
        QCOMPARE(empty->text(), s("Выберите команду и задачу"));
    }

    void closedTaskClosesItsDescription()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.list->openDescription(s("a"));
        desktop.list->openDescription(s("b"));
        const QPointer<TaskDescriptionForm> gone = desktop.list->description(s("a"));
        desktop.bench.server().edit([](localservice::World &world) { world.removeTask(s("a")); });
        QVERIFY(desktop.bench.refresh());
        QTRY_VERIFY(gone.isNull());
        QVERIFY(desktop.isOpen(s("b")));
        QCOMPARE(desktop.rows(), ids({"b", "c", "0"}));
    }

    void anotherUserSeesNoOldDescriptions()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        desktop.list->openDescription(s("a"));
        const QPointer<TaskDescriptionForm> form = desktop.list->description(s("a"));
        QVERIFY(desktop.bench.signIn());
        QVERIFY(form && form->isVisible());
        QVERIFY(desktop.bench.signIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я")));
        QTRY_VERIFY(form.isNull());
        QCOMPARE(desktop.rows(), QStringList());
    }

    void hidingTogether()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        const auto *timer = desktop.list->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
        QVERIFY(timer && timer->isActive());
        desktop.list->openDescription(s("a"));
        desktop.list->openDescription(s("b"));
        desktop.list->description(s("b"))->on_pbHide_clicked();
        emit desktop.bench.form->hideAll();
        QVERIFY(!desktop.list->isVisible());
        QVERIFY(!timer->isActive());
        QVERIFY(!desktop.isOpen(s("a")));
        emit desktop.bench.form->showAll();
        QVERIFY(desktop.list->isVisible());
        QVERIFY(timer->isActive());
        QVERIFY(desktop.isOpen(s("a")));
        QVERIFY(!desktop.isOpen(s("b")));

        QTest::mouseClick(desktop.list->findChild<QPushButton *>(s("pbClose")), Qt::LeftButton);
        emit desktop.bench.form->hideAll();
        emit desktop.bench.form->showAll();
        QVERIFY(!desktop.list->isVisible());
        QVERIFY(desktop.isOpen(s("a")));
    }

    void onlyOneTitleMoves()
    {
        Desktop desktop;
        QVERIFY(desktop.ready);
        const auto moving = [&desktop] {
            QStringList titles;
            const auto all = desktop.view->viewport()->findChildren<ScrollText *>();
            for (const ScrollText *title : all) {
                if (title->isMoving())
                    titles.append(title->text());
            }
            return titles;
        };
        desktop.view->setCurrentIndex(desktop.row(s("a")));
        QCOMPARE(moving(), QStringList());
        QTest::mouseMove(desktop.view->viewport(), desktop.place(s("c")));
        QTRY_COMPARE(moving(), QStringList{kLongTitle});
        QTest::mouseMove(desktop.view->viewport(), desktop.place(s("b")));
        QTRY_COMPARE(moving(), QStringList());
        QTest::mouseMove(desktop.list, QPoint(desktop.list->width() / 2, 20));
        desktop.view->setCurrentIndex(desktop.row(s("c")));
        QTRY_COMPARE(moving(), QStringList{kLongTitle});
        desktop.list->hide();
        QCOMPARE(moving(), QStringList());
    }

    void places_data()
    {
        addColumns<QRect, QRect, bool>("anchor", "area", "free"); // there is room beside the anchor
        const QSize anchor(352, 148);
        const QRect screen(0, 24, 1280, 776);
        QTest::newRow("upper right corner") << QRect(QPoint(928, 24), anchor) << screen << true;
        QTest::newRow("upper left corner") << QRect(QPoint(0, 24), anchor) << screen << true;
        QTest::newRow("lower right corner") << QRect(QPoint(928, 652), anchor) << screen << true;
        QTest::newRow("middle") << QRect(QPoint(464, 300), anchor) << screen << true;
        QTest::newRow("half outside") << QRect(QPoint(1200, 700), anchor) << screen << true;
        QTest::newRow("second screen")
            << QRect(QPoint(2848, 0), anchor) << QRect(1280, 0, 1920, 1080) << true;
        QTest::newRow("narrow screen") << QRect(QPoint(128, 0), anchor) << QRect(0, 0, 480, 800) << true;
        QTest::newRow("small screen") << QRect(QPoint(128, 0), anchor) << QRect(0, 0, 480, 430) << false;
    }

    void places()
    {
        QFETCH(QRect, anchor);
        QFETCH(QRect, area);
        QFETCH(bool, free);
        const QRect window(Artwork::beside(anchor, QSize(460, 420), area), QSize(460, 420));
        QVERIFY(area.contains(window));
        QCOMPARE(!window.intersects(anchor), free);
    }

    void deadlines_data()
    {
        addColumns<qint64, QString, QString>("secondsAgo", "deadline", "overdue");
        const auto row = [](const char *name, qint64 ago, const QString &deadline, const QString &overdue) {
            QTest::newRow(name) << ago << deadline << overdue;
        };
        row("to come", -60, s("Истекает: 2024-01-31 12:01:00"), QString());
        row("just now", 0, s("Истёк срок: 2024-01-31 12:00:00"), s("Просрочено: меньше минуты"));
        row("half an hour", 1800, s("Истёк срок: 2024-01-31 11:30:00"), s("Просрочено: 30 мин."));
        row("a day", 25 * 3600, s("Истёк срок: 2024-01-30 11:00:00"), s("Просрочено: 1д. 1ч."));
    }

    void deadlines()
    {
        QFETCH(qint64, secondsAgo);
        const QDateTime now(QDate(2024, 1, 31), QTime(12, 0));
        Task task;
        task.id = s("a");
        task.deadline = now.addSecs(-secondsAgo);
        TaskListModel model([](const Task &) { return QIcon(); });
        model.setTasks({task, Task::catchAll()});
        model.setNow(now);
        QTEST(model.index(0).data(TaskListModel::DeadlineRole).toString(), "deadline");
        QTEST(model.index(0).data(TaskListModel::OverdueRole).toString(), "overdue");
        QCOMPARE(model.index(1).data(TaskListModel::DeadlineRole).toString(), s("Без срока"));
        QCOMPARE(model.index(1).data(TaskListModel::OverdueRole).toString(), QString());
    }

    void onlyVisibleRowsAreDrawn()
    {
        constexpr int many = 5000;
        constexpr int visible = 40;
        QList<Task> tasks;
        for (int i = 0; i < many; ++i) {
            Task task;
            task.id = QString::number(i + 1);
            task.title = QStringLiteral(
                "Название задачи, которое не помещается в строку списка, сколько её ни растягивай");
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
