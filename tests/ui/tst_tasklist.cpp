#include "realinput.h"
#include "ui/taskdescriptionform.h"
#include "ui/tasklistform.h"
#include "ui/tasklistmodel.h"
#include "ui/tasklistview.h"
#include "ui/taskrowdelegate.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "windowbench.h"

using localservice::World;

namespace {

const QString kTeam = s("17");
const QDateTime kDeadline(QDate(2024, 1, 30), QTime(12, 59));

} // namespace

// The list, opened from the main window, of three tasks: a, b and c.
class TestTaskList final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        m_bench->server().edit([](World &world) {
            QVector<localservice::Task> tasks(3);
            for (int i = 0; i < tasks.size(); ++i) {
                tasks[i].id = texts({"a", "b", "c"}).at(i);
                tasks[i].title = texts({"Первая", "Вторая", "Третья"}).at(i);
            }
            world.team(kTeam)->tasks = tasks;
        });
        QVERIFY(m_bench->openFor(QString()));
        click(m_bench->child("pbTaskList"));
        m_list = m_bench->form->findChild<TaskListForm *>();
        m_view = m_list->findChild<TaskListView *>();
        QTRY_VERIFY(m_view->hasFocus());
    }

    void cleanup() { m_bench.reset(); }

    void rowsFollowTheSession()
    {
        const auto *empty = part<QLabel>(m_list, "lbEmpty");
        const auto *team = part<ScrollText>(m_list, "lbTeam");
        m_bench->orvana()->changeTask(kTeam, s("b"));
        m_view->setCurrentIndex(row("c"));
        QVERIFY(m_bench->change([](World &world) {
            world.team(kTeam)->name = s("<b>Новое</b> имя");
            world.setBlock(s("b"), s("1"));
            world.setDeadline(s("b"), kDeadline);
        }));
        static_cast<TaskListModel *>(m_view->model())->setNow(kDeadline);
        QCOMPARE(rows(TaskListModel::DeadlineRole).at(0), s("Истёк срок: 2024-01-30 12:59:00"));
        QCOMPARE(rows(TaskListModel::OverdueRole), texts({"Просрочено: меньше минуты", "", "", ""}));
        QCOMPARE(team->text(), s("<b>Новое</b> имя"));
        QCOMPARE(rows(), texts({"b", "a", "c", "0"}));
        for (const int role : {TaskListModel::OfferedRole, TaskListModel::CurrentRole})
            QCOMPARE(rows(role), texts({"true", "false", "false", "false"}));
        QVERIFY(rows(Qt::ToolTipRole).at(1).contains(s("блокирующие")));
        QCOMPARE(m_view->currentIndex(), row("c"));
        // Without tasks there is still the work that belongs to none.
        QVERIFY(m_bench->change([](World &world) { world.team(kTeam)->tasks.clear(); }));
        QVERIFY(empty->isVisible());
        QCOMPARE(empty->text(), s("В команде нет задач"));
        QCOMPARE(rows(), texts({"0"}));
    }

    void choosing()
    {
        QVERIFY(m_bench->change([](World &world) { world.setBlock(s("b"), s("1")); }));
        QSignalSpy opened(m_view, &TaskListView::descriptionRequested);
        for (const QString &way : texts({"click click", "button", "Space", "Ctrl+Enter"})) {
            m_bench->orvana()->changeTask(kTeam, QString());
            for (const char *heldBack : {"c", "0"}) {
                use(heldBack, way);
                QVERIFY2(m_bench->session()->currentTaskID().isEmpty(), qPrintable(way));
            }
            use("b", way);
            QVERIFY2(m_bench->session()->currentTaskID() == s("b"), qPrintable(way));
            QCOMPARE(m_bench->child<ScrollText>("lbTask")->text(), s("Вторая"));
            // It opens nothing, also when the time of a double click is over.
            QVERIFY2(!opened.wait(QApplication::doubleClickInterval() + 50), qPrintable(way));
        }
        const QSignalSpy changed(m_view->model(), &QAbstractItemModel::dataChanged);
        m_bench->orvana()->changeTask(kTeam, s("a"));
        QCOMPARE(changed.value(0).value(0).toModelIndex(), row("b")); // its mark goes
    }

    void descriptions()
    {
        use("b", s("click"));
        QTRY_VERIFY(isOpen("b"));
        TaskDescriptionForm *form = m_list->description(s("b"));
        QTRY_COMPARE(part<QLabel>(form, "lbTaskTitle")->text(), s("Вторая"));
        form->hide();
        // Opened again, the window that was kept asks the service again.
        QSignalSpy refreshed(m_bench->orvana(), &Orvana::taskInfoUpdated);
        use("b", s("click"));
        QTRY_VERIFY(isOpen("b") && refreshed.count() > 0);
        QCOMPARE(m_list->description(s("b")), form);
        use("a", s("Enter"));
        QVERIFY(isOpen("a"));
        QTest::keyClick(m_list, Qt::Key_Escape);
        QVERIFY(isOpen("a") && isOpen("b") && !m_list->isVisible());
    }

    // All windows hide and come back together, but for those that were closed.
    void descriptionsFollowTheList()
    {
        for (const char *id : {"a", "b", "c"})
            m_list->openDescription(s(id));
        const auto *timer = m_list->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
        m_list->description(s("b"))->on_pbHide_clicked();
        MainForm *form = m_bench->form.get();
        const QString id = QString::number(form->winId());
        for (const bool byPanel : {false, true}) {
            emit form->hideAll();
            QVERIFY(!m_list->isVisible() && !timer->isActive() && !isOpen("a"));
            QTRY_VERIFY(form->isMinimized() && !form->windowHandle()->isExposed());
            QTRY_VERIFY(propertyOf(id, s("_NET_WM_STATE")).contains(s("HIDDEN")));
            if (byPanel)
                QVERIFY(activateWindow(id));
            else
                emit form->showAll();
            QTRY_VERIFY(m_list->isVisible() && timer->isActive() && isOpen("a") && !isOpen("b"));
            QTRY_VERIFY(!form->isMinimized() && form->windowHandle()->isExposed());
        }
        click(part(m_list, "pbClose"));
        emit form->hideAll();
        emit form->showAll();
        QVERIFY(!m_list->isVisible() && isOpen("a"));
        // A closed task takes its window along, another user all of them.
        const QPointer<TaskDescriptionForm> gone = m_list->description(s("a"));
        const QPointer<TaskDescriptionForm> left = m_list->description(s("c"));
        QVERIFY(m_bench->change([](World &world) { world.removeTask(s("a")); }));
        QTRY_VERIFY(gone.isNull());
        QVERIFY(m_bench->signIn());
        QVERIFY(left && left->isVisible());
        QVERIFY(m_bench->signInOther());
        QTRY_VERIFY(left.isNull());
        QCOMPARE(rows(), QStringList());
    }

    void places_data()
    {
        addColumns<QPoint, QRect, QPoint>("anchor", "area", "place");
        QTest::newRow("left") << QPoint(800, 900) << QRect(0, 24, 1920, 1056) << QPoint(340, 660);
        QTest::newRow("right") << QPoint(1380, 100) << QRect(1280, 0, 1280, 800) << QPoint(1732, 100);
        QTest::newRow("below") << QPoint(128, 0) << QRect(0, 0, 480, 800) << QPoint(20, 148);
        QTest::newRow("no room") << QPoint(128, 0) << QRect(0, 0, 480, 430) << QPoint(0, 0);
    }

    void places()
    {
        QFETCH(QPoint, anchor);
        QFETCH(QRect, area);
        QTEST(Placement::nextTo(QRect(anchor, QSize(352, 148)), QSize(460, 420), area), "place");
    }

private:
    QStringList rows(int role = TaskListModel::IdRole) const
    {
        QStringList texts;
        for (int i = 0; i < m_view->model()->rowCount(); ++i)
            texts.append(m_view->model()->index(i, 0).data(role).toString());
        return texts;
    }
    QModelIndex row(const char *id) const { return m_view->model()->index(rows().indexOf(s(id)), 0); }
    bool isOpen(const char *id) const
    {
        const TaskDescriptionForm *form = m_list->description(s(id));
        return form && form->isVisible();
    }

    void use(const char *id, const QString &way) const
    {
        m_view->setCurrentIndex(row(id));
        const QRect place = m_view->visualRect(row(id));
        const QPoint at = (way == s("button") ? TaskRowDelegate::buttonRect(place) : place).center();
        if (way.startsWith(s("click")) || way == s("button"))
            QTest::mouseClick(m_view->viewport(), Qt::LeftButton, {}, at);
        else
            QTest::keyClick(m_view, way == s("Space") ? Qt::Key_Space : Qt::Key_Return,
                            way.startsWith(s("Ctrl")) ? Qt::ControlModifier : Qt::NoModifier);
        if (way == s("click click")) {
            QTest::mouseDClick(m_view->viewport(), Qt::LeftButton, {}, at);
            QTest::mouseRelease(m_view->viewport(), Qt::LeftButton, {}, at);
        }
    }

    std::unique_ptr<WindowBench> m_bench;
    TaskListForm *m_list = nullptr;
    TaskListView *m_view = nullptr;
};

QTEST_MAIN(TestTaskList)
#include "tst_tasklist.moc"
