#include "rows.h"
#include "ui/taskform.h"
#include "windowbench.h"
#include "windowparts.h"

using localservice::Fault;
using localservice::World;

namespace {

const QString kListPath = s("/api_teams_tasks");

} // namespace

class TestChooser final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        m_bench->server().edit([](World &world) {
            world.task(s("1701"))->deadline = QDateTime(QDate(2024, 1, 31), QTime(18, 0));
            world.task(s("1701"))->title = s("Отчёт");
            world.task(s("1704"))->title = s("A & \"B\"");
        });
        QVERIFY(m_bench->openFor(s("1704")));
        m_form = m_bench->form->findChild<TaskForm *>();
    }

    void cleanup() { m_bench.reset(); }

    void entries()
    {
        m_bench->server().edit(
            [](World &world) { world.task(s("1702"))->title = s("<img src=\"/etc/passwd\"> & <b>x</b>"); });
        open();
        QCOMPARE(ids(teams()), texts({"17", "41", "2192"}));
        QCOMPARE(teams()->toolTip(), s("Редакция сайта"));
        QCOMPARE(m_form->currentTeamId(), s("17"));
        QCOMPARE(m_form->currentTaskId(), s("1704"));
        QCOMPARE(tasks()->itemText(0), s("Отчёт | Истекает: 2024-01-31 18:00:00"));
        QVERIFY(!tasks()->itemIcon(0).isNull());
        QCOMPARE(tasks()->itemText(tasks()->count() - 1), s("Прочие непоставленные задачи"));
        // A tool tip shows such characters, not their escapes and not what they say.
        QCOMPARE(tasks()->toolTip(), s("A & \"B\""));
        const int hostile = ids(tasks()).indexOf(s("1702"));
        QTextDocument toolTip;
        toolTip.setHtml(tasks()->itemData(hostile, Qt::ToolTipRole).toString());
        QCOMPARE(toolTip.toPlainText(), tasks()->itemText(hostile));
    }

    void refreshesAndDetours()
    {
        open();
        pick("1706");
        m_bench->server().edit([](World &world) { world.removeTask(s("1701")); });
        QVERIFY(m_bench->refresh());
        QVERIFY(!ids(tasks()).contains(s("1701")));
        QCOMPARE(m_form->currentTaskId(), s("1706"));
        for (const bool byKey : {false, true}) {
            pick("1706");
            if (byKey)
                QTest::keyClick(tasks(), Qt::Key_Escape);
            else
                click(button(m_form, s("Отмена")));
            QVERIFY(!m_form->isVisible() && m_bench->form->isVisible());
            QCOMPARE(m_bench->session()->currentTaskID(), s("1704"));
            // Shown again, it starts from what is being worked on.
            open();
            QCOMPARE(m_form->currentTaskId(), s("1704"));
        }
        // Of a team with a blocking task nothing else is offered.
        teams()->setCurrentIndex(1);
        QCOMPARE(ids(tasks()), texts({"4101"}));
        teams()->setCurrentIndex(0);
        QCOMPARE(m_form->currentTaskId(), s("1704"));
        teams()->setCurrentIndex(2);
        m_bench->server().edit([](World &world) {
            world.removeTeam(s("2192"));
            for (const char *id : {"1702", "1705"})
                world.setBlock(s(id), s("1"));
        });
        QVERIFY(m_bench->refresh());
        QCOMPARE(m_form->currentTeamId(), s("17"));
        QCOMPARE(ids(tasks()), texts({"1702", "1705"}));
        QCOMPARE(m_form->currentTaskId(), s("1702"));
    }

    void acceptedByKeyboard()
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
        QCOMPARE(m_bench->session()->currentTeamID(), s("2192"));
        QCOMPARE(m_bench->session()->currentTaskID(), s("21922"));
        QVERIFY(m_bench->child<QPushButton>("pbPlay")->isCheckable());

        // The catch-all entry has the same id in every team.
        m_bench->orvana()->changeTask(s("2192"), s("0"));
        open();
        teams()->setCurrentIndex(0);
        pick("0");
        click(button(m_form, s("Ок")));
        QCOMPARE(m_bench->session()->currentTeamID(), s("17"));
        QCOMPARE(m_bench->session()->currentTaskID(), s("0"));
    }

    void loadingEnds_data()
    {
        addColumns<QByteArray, bool>("answer", "hasTeams");
        QTest::newRow("lists") << QByteArray() << true;
        QTest::newRow("garbage") << QByteArray("\t<!DOCTYPE html>") << true;
        QTest::newRow("no teams") << QByteArray("[]") << false;
    }

    void loadingEnds()
    {
        QFETCH(QByteArray, answer);
        QFETCH(bool, hasTeams);
        Fault fault = answer.isEmpty() ? Fault::delayed({}) : Fault::answer(200, answer);
        fault.delay = std::chrono::milliseconds(200);
        m_bench->server().setFault(kListPath, fault);
        click(m_bench->child<QWidget>("pbTask"));
        QCOMPARE(status(), s("Загрузка..."));
        QVERIFY(!teams()->isEnabled() && !tasks()->isEnabled());
        QTRY_VERIFY(teams()->isEnabled() && tasks()->isEnabled());
        QCOMPARE(status(), QString());
        QCOMPARE(teams()->count(), hasTeams ? 3 : 0);
        // Without anything to choose there is nothing to accept.
        click(button(m_form, s("Ок")));
        QCOMPARE(m_form->isVisible(), !hasTeams);
        QCOMPARE(m_bench->session()->currentTaskID(), s("1704"));
    }

    void onlyWhatTheSessionHolds_data()
    {
        addColumns<QString, QString>("before", "chosen");
        QTest::newRow("choice cancelled") << s("cancel") << s("1704");
        QTest::newRow("task gone since it was shown") << s("gone") << s("1704");
        QTest::newRow("other user, hidden") << s("login cancel") << QString();
        QTest::newRow("other user, shown") << s("login") << QString();
    }

    // The service leaves every request for lists unanswered.
    void onlyWhatTheSessionHolds()
    {
        QFETCH(QString, before);
        QFETCH(QString, chosen);
        open();
        pick("1706");
        m_bench->server().setFault(kListPath, Fault::hang());
        if (before.contains(s("cancel")))
            click(button(m_form, s("Отмена")));
        if (before.contains(s("login"))) {
            QSignalSpy accepted(m_bench->orvana(), &Orvana::loginOk);
            m_bench->orvana()->requestCheckLogin(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"));
            QVERIFY(accepted.wait());
            QCOMPARE(m_form->currentTeamId() + m_form->currentTaskId(), QString());
        }
        if (before == s("gone"))
            m_bench->session()->removeAllSavedTasks(m_bench->session()->task(s("17"), s("1706")));
        if (!m_form->isVisible())
            click(m_bench->child<QWidget>("pbTask"));
        QTRY_COMPARE(status(), before == s("gone") ? QString() : s("Загрузка..."));
        click(button(m_form, s("Ок")));
        QCOMPARE(m_bench->session()->currentTaskID(), chosen);
    }

    void offline()
    {
        m_bench->session()->setOnline(false);
        click(m_bench->child<QWidget>("pbTask"));
        QVERIFY(teams()->isEnabled() && tasks()->isEnabled());
        QCOMPARE(m_form->currentTaskId(), s("1704"));
        QVERIFY(m_bench->settle());
        QCOMPARE(m_bench->server().requestsTo(kListPath).size(), 0);
    }

    void openListStaysOpen()
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
    }

private:
    QComboBox *teams() const { return part<QComboBox>(m_form, "cbTeam"); }
    QComboBox *tasks() const { return part<QComboBox>(m_form, "cbTask"); }
    QString status() const { return part<QLabel>(m_form, "lbLoading")->text(); }
    static QStringList ids(const QComboBox *box)
    {
        QStringList found;
        for (int i = 0; i < box->count(); ++i)
            found.append(box->itemData(i).toString());
        return found;
    }
    void pick(const char *task) { tasks()->setCurrentIndex(ids(tasks()).indexOf(s(task))); }

    // As a person does.
    void open()
    {
        click(m_bench->child<QWidget>("pbTask"));
        QVERIFY(QTest::qWaitForWindowActive(m_form));
        QTRY_VERIFY(teams()->isEnabled());
        QVERIFY(m_bench->settle());
    }

    std::unique_ptr<WindowBench> m_bench;
    TaskForm *m_form = nullptr;
};

QTEST_MAIN(TestChooser)
#include "tst_chooser.moc"
