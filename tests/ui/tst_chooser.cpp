#include "ui/taskform.h"
#include "windowbench.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTextDocument>

using localservice::Fault;
using localservice::World;

namespace {

const QString kListPath = QStringLiteral("/api_teams_tasks");

Task makeTask(const char *id, const char *block)
{
    Task task;
    task.id = QString::fromLatin1(id);
    task.block = QString::fromUtf8(block);
    return task;
}

} // namespace

class TestChooser final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_bench.reset(); }

    void blockingTasks_data();
    void blockingTasks();
    void entries();
    void blockingTeam();
    void teamIsGone();
    void choiceSurvivesRefreshes();
    void cancelled_data();
    void cancelled();
    void acceptedByKeyboard();
    void loadingEnds_data();
    void loadingEnds();
    void offline();
    void openListStaysOpen();
    void nothingToChoose();

private:
    QComboBox *teams() const { return m_form->findChild<QComboBox *>(QStringLiteral("cbTeam")); }
    QComboBox *tasks() const { return m_form->findChild<QComboBox *>(QStringLiteral("cbTask")); }
    QString status() const { return m_form->findChild<QLabel *>(QStringLiteral("lbLoading"))->text(); }
    QPushButton *button(const QString &text) const
    {
        const auto all = m_form->findChildren<QPushButton *>(QStringLiteral("pbOrvana"));
        for (QPushButton *candidate : all) {
            if (candidate->text() == text)
                return candidate;
        }
        return nullptr;
    }
    static QStringList ids(const QComboBox *box)
    {
        QStringList found;
        for (int i = 0; i < box->count(); ++i)
            found.append(box->itemData(i).toString());
        return found;
    }
    void choose(const char *team, const char *task)
    {
        m_bench->orvana()->changeTask(QString::fromLatin1(team), QString::fromLatin1(task));
    }
    void open();

    std::unique_ptr<WindowBench> m_bench;
    TaskForm *m_form = nullptr;
};

void TestChooser::init()
{
    m_bench = std::make_unique<WindowBench>();
    m_bench->server().edit([](World &world) {
        world.task(QStringLiteral("1701"))->deadline = QDateTime(QDate(2024, 1, 31), QTime(18, 0));
        world.task(QStringLiteral("1701"))->title = QStringLiteral("Отчёт");
        world.task(QStringLiteral("1704"))->title = QStringLiteral("A & \"B\"");
    });
    QVERIFY(m_bench->signIn());
    choose("17", "1704");
    QVERIFY(m_bench->openWindow());
    m_form = m_bench->form->findChild<TaskForm *>();
}

// As a person does.
void TestChooser::open()
{
    QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
    QVERIFY(QTest::qWaitForWindowActive(m_form));
    QTRY_VERIFY(teams()->isEnabled());
    QVERIFY(m_bench->settle());
}

void TestChooser::blockingTasks_data()
{
    QTest::addColumn<QList<Task>>("tasks");
    QTest::addColumn<QStringList>("offered");
    const Task plain = makeTask("1", "");
    const Task zero = makeTask("2", "0");
    const Task one = makeTask("3", "1");
    const Task word = makeTask("4", "нет");
    QTest::newRow("none") << QList<Task>() << QStringList();
    QTest::newRow("nothing blocks") << QList<Task>{plain, zero} << QStringList{plain.id, zero.id};
    QTest::newRow("one blocks") << QList<Task>{plain, one, zero} << QStringList{one.id};
    QTest::newRow("order is kept") << QList<Task>{word, plain, one} << QStringList{word.id, one.id};
    QTest::newRow("all block") << QList<Task>{one, word} << QStringList{one.id, word.id};
}

void TestChooser::blockingTasks()
{
    QFETCH(QList<Task>, tasks);
    QStringList offered;
    const QList<Task> filtered = TaskForm::filterBlockTasks(tasks);
    for (const Task &task : filtered)
        offered.append(task.id);
    QTEST(offered, "offered");
}

void TestChooser::entries()
{
    m_bench->server().edit([](World &world) {
        world.task(QStringLiteral("1702"))->title = QStringLiteral("<img src=\"/etc/passwd\"> & <b>x</b>");
        world.task(QStringLiteral("1702"))->deadline = QDateTime();
    });
    open();
    QCOMPARE(ids(teams()), QStringList({QStringLiteral("17"), QStringLiteral("41"), QStringLiteral("2192")}));
    QCOMPARE(teams()->itemText(0), QStringLiteral("Редакция сайта"));
    QCOMPARE(teams()->toolTip(), QStringLiteral("Редакция сайта"));
    QVERIFY(teams()->itemIcon(0).isNull());
    QCOMPARE(ids(tasks()).first(), QStringLiteral("1701"));
    QCOMPARE(ids(tasks()).last(), QStringLiteral("0"));
    QCOMPARE(m_form->currentTeamId(), QStringLiteral("17"));
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1704"));

    const QString dated = QStringLiteral("Отчёт | Истекает: 2024-01-31 18:00:00");
    QCOMPARE(tasks()->itemText(0), dated);
    QCOMPARE(tasks()->itemData(0, Qt::ToolTipRole).toString(), dated);
    QVERIFY(!tasks()->itemIcon(0).isNull());
    // A tool tip with such characters shows them, not their escapes.
    QCOMPARE(tasks()->toolTip(), QStringLiteral("A & \"B\""));
    QCOMPARE(tasks()->itemText(tasks()->count() - 1), QStringLiteral("Прочие непоставленные задачи"));

    const int hostile = ids(tasks()).indexOf(QStringLiteral("1702"));
    QTextDocument toolTip;
    toolTip.setHtml(tasks()->itemData(hostile, Qt::ToolTipRole).toString());
    QCOMPARE(toolTip.toPlainText(), tasks()->itemText(hostile));
}

void TestChooser::blockingTeam()
{
    open();
    teams()->setCurrentIndex(1);
    QCOMPARE(ids(tasks()), QStringList{QStringLiteral("4101")});
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("4101"));
    // Back: what was chosen before the detour is chosen again.
    teams()->setCurrentIndex(0);
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1704"));

    m_bench->server().edit([](World &world) {
        world.setBlock(QStringLiteral("1702"), QStringLiteral("1"));
        world.setBlock(QStringLiteral("1705"), QStringLiteral("1"));
    });
    QVERIFY(m_bench->refresh());
    QCOMPARE(ids(tasks()), QStringList({QStringLiteral("1702"), QStringLiteral("1705")}));
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1702"));
}

void TestChooser::teamIsGone()
{
    choose("2192", "21922");
    open();
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("21922"));
    m_bench->server().edit([](World &world) { world.removeTeam(QStringLiteral("2192")); });
    QVERIFY(m_bench->refresh());
    QCOMPARE(m_form->currentTeamId(), QStringLiteral("17"));
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1701"));
    QCOMPARE(teams()->toolTip(), QStringLiteral("Редакция сайта"));
}

void TestChooser::choiceSurvivesRefreshes()
{
    open();
    tasks()->setCurrentIndex(ids(tasks()).indexOf(QStringLiteral("1706")));
    m_bench->server().edit([](World &world) { world.removeTask(QStringLiteral("1701")); });
    QVERIFY(m_bench->refresh());
    QVERIFY(!ids(tasks()).contains(QStringLiteral("1701")));
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1706"));
    emit m_bench->session()->taskClosed(QStringLiteral("no such task"));
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1706"));
    // Shown again, it starts from what is being worked on.
    QTest::mouseClick(button(QStringLiteral("Отмена")), Qt::LeftButton);
    open();
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1704"));
}

void TestChooser::cancelled_data()
{
    QTest::addColumn<bool>("byKey");
    QTest::newRow("button") << false;
    QTest::newRow("Esc") << true;
}

void TestChooser::cancelled()
{
    QFETCH(bool, byKey);
    open();
    QSignalSpy changed(m_bench->session(), &Orvana::Session::taskChanged);
    tasks()->setCurrentIndex(0);
    if (byKey)
        QTest::keyClick(tasks(), Qt::Key_Escape);
    else
        QTest::mouseClick(button(QStringLiteral("Отмена")), Qt::LeftButton);
    QVERIFY(!m_form->isVisible());
    QVERIFY(m_bench->form->isVisible());
    QCOMPARE(changed.count(), 0);
    QCOMPARE(m_bench->session()->currentTaskID(), QStringLiteral("1704"));
}

void TestChooser::acceptedByKeyboard()
{
    open();
    QSignalSpy team(m_bench->form.get(), &MainForm::teamChanged);
    QTRY_VERIFY(teams()->hasFocus());
    QTest::keyClick(teams(), Qt::Key_End);
    QTest::keyClick(teams(), Qt::Key_Tab);
    QVERIFY(tasks()->hasFocus());
    QTest::keyClick(tasks(), Qt::Key_Down);
    QTest::keyClick(tasks(), Qt::Key_Return);
    QVERIFY(!m_form->isVisible());
    QCOMPARE(team.count(), 1);
    QCOMPARE(m_bench->session()->currentTeamID(), QStringLiteral("2192"));
    QCOMPARE(m_bench->session()->currentTaskID(), QStringLiteral("21922"));
    QVERIFY(m_bench->child<QPushButton>("pbPlay")->isCheckable());

    // The catch-all entry has the same id in every team.
    choose("2192", "0");
    open();
    teams()->setCurrentIndex(0);
    tasks()->setCurrentIndex(tasks()->count() - 1);
    QTest::mouseClick(button(QStringLiteral("Ок")), Qt::LeftButton);
    QCOMPARE(m_bench->session()->currentTeamID(), QStringLiteral("17"));
    QCOMPARE(m_bench->session()->currentTaskID(), QStringLiteral("0"));
}

void TestChooser::loadingEnds_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("lists") << QByteArray();
    QTest::newRow("refused") << QByteArray("{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}");
    QTest::newRow("page") << QByteArray("\t<!DOCTYPE html>");
    QTest::newRow("no lists") << QByteArray("[]");
}

void TestChooser::loadingEnds()
{
    QFETCH(QByteArray, answer);
    Fault fault = answer.isEmpty() ? Fault::delayed({}) : Fault::answer(200, answer);
    fault.delay = std::chrono::milliseconds(200);
    m_bench->server().setFault(kListPath, fault);
    QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
    QCOMPARE(status(), QStringLiteral("Загрузка..."));
    QVERIFY(!teams()->isEnabled() && !tasks()->isEnabled());
    QTRY_VERIFY(teams()->isEnabled() && tasks()->isEnabled());
    QCOMPARE(status(), QString());
    QCOMPARE(teams()->count(), answer == "[]" ? 0 : 3);
}

void TestChooser::offline()
{
    m_bench->session()->setOnline(false);
    QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
    QVERIFY(teams()->isEnabled() && tasks()->isEnabled());
    QCOMPARE(m_form->currentTaskId(), QStringLiteral("1704"));
    QVERIFY(m_bench->settle());
    QCOMPARE(m_bench->server().requestsTo(kListPath).size(), 0);
}

void TestChooser::openListStaysOpen()
{
    open();
    for (QComboBox *box : {teams(), tasks()}) {
        box->showPopup();
        QTRY_VERIFY(box->view()->isVisible());
        box->view()->setCurrentIndex(box->model()->index(2, 0));
        QVERIFY(m_bench->refresh());
        QVERIFY(box->view()->isVisible());
        QCOMPARE(box->view()->currentIndex().row(), 2);
        box->hidePopup();
    }
    // One that has changed may close, but shows the truth.
    tasks()->showPopup();
    m_bench->server().edit([](World &world) { world.removeTask(QStringLiteral("1701")); });
    QVERIFY(m_bench->refresh());
    QVERIFY(!ids(tasks()).contains(QStringLiteral("1701")));
    tasks()->hidePopup();
}

void TestChooser::nothingToChoose()
{
    m_bench->server().setFault(kListPath, Fault::answer(200, "[]"));
    QVERIFY(m_bench->refresh());
    open();
    QCOMPARE(teams()->count(), 0);
    QTest::mouseClick(button(QStringLiteral("Ок")), Qt::LeftButton);
    QVERIFY(!m_form->isVisible());
    QCOMPARE(m_bench->session()->currentTaskID(), QStringLiteral("1704"));
}

QTEST_MAIN(TestChooser)
#include "tst_chooser.moc"
