#include "ui/tasklistmodel.h"
#include "ui/tasklistview.h"
#include "windowbench.h"

#include <QtTest>

class TaskListRowsTest final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { WindowBench::applyStyle(); }

    void deadlines_data();
    void deadlines();
    void onlyVisibleRowsAreDrawn();
};

void TaskListRowsTest::deadlines_data()
{
    QTest::addColumn<qint64>("secondsAgo");
    QTest::addColumn<QString>("deadline");
    QTest::addColumn<QString>("overdue");
    const auto row = [](const char *name, qint64 ago, const QString &deadline, const QString &overdue) {
        QTest::newRow(name) << ago << deadline << overdue;
    };
    row("to come", -60, QStringLiteral("Истекает: 2024-01-31 12:01:00"), QString());
    row("just now", 0, QStringLiteral("Истёк срок: 2024-01-31 12:00:00"),
        QStringLiteral("Просрочено: меньше минуты"));
    row("half an hour", 1800, QStringLiteral("Истёк срок: 2024-01-31 11:30:00"),
        QStringLiteral("Просрочено: 30 мин."));
    row("a day", 25 * 3600, QStringLiteral("Истёк срок: 2024-01-30 11:00:00"),
        QStringLiteral("Просрочено: 1д. 1ч."));
}

void TaskListRowsTest::deadlines()
{
    QFETCH(qint64, secondsAgo);
    const QDateTime now(QDate(2024, 1, 31), QTime(12, 0));
    Task task;
    task.id = QStringLiteral("a");
    task.deadline = now.addSecs(-secondsAgo);
    TaskListModel model([](const Task &) { return QIcon(); });
    model.setTasks({task, Task::catchAll()});
    model.setNow(now);
    QTEST(model.index(0).data(TaskListModel::DeadlineRole).toString(), "deadline");
    QTEST(model.index(0).data(TaskListModel::OverdueRole).toString(), "overdue");
    QCOMPARE(model.index(1).data(TaskListModel::DeadlineRole).toString(), QStringLiteral("Без срока"));
    QCOMPARE(model.index(1).data(TaskListModel::OverdueRole).toString(), QString());
}

void TaskListRowsTest::onlyVisibleRowsAreDrawn()
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

QTEST_MAIN(TaskListRowsTest)
#include "tst_tasklistrows.moc"
