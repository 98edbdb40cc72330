#include "windowbench.h"

using localservice::Fault;
using localservice::World;

namespace {

const QString kListPath = s("/api_teams_tasks");

QStringList ids(const QComboBox *box)
{
    QStringList found;
    for (int i = 0; i < box->count(); ++i)
        found.append(box->itemData(i).toString());
    return found;
}

} // namespace

class TestChooser final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        QVERIFY(m_bench->openFor(s("1704")));
    }

    void cleanup() { m_bench.reset(); }

    void entries()
    {
        m_bench->server().edit(
            [](World &world) { world.setDeadline(s("1701"), QDateTime(QDate(2024, 1, 31), QTime(18, 0))); });
        open();
        QCOMPARE(ids(teams()), texts({"17", "41", "2192"}));
        QVERIFY(tasks()->itemText(0).endsWith(s(" | Истекает: 2024-01-31 18:00:00")));
        QCOMPARE(tasks()->itemText(tasks()->count() - 1), s("Прочие непоставленные задачи"));
        // Lists that are open stay so.
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

    void refreshesAndDetours()
    {
        open();
        pick("1706");
        QVERIFY(m_bench->change([](World &world) { world.removeTask(s("1701")); }));
        for (const bool byKey : {false, true}) {
            QCOMPARE(shown(), s("17 1706"));
            if (byKey)
                QTest::keyClick(tasks(), Qt::Key_Escape);
            else
                click(button(m_form, s("Отмена")));
            QVERIFY(!m_form->isVisible());
            QCOMPARE(chosen(), s("17 1704"));
            // Shown again, it starts from what is being worked on.
            open();
            QCOMPARE(shown(), s("17 1704"));
            pick("1706");
        }
        // Of a team with a blocking task nothing else is offered.
        teams()->setCurrentIndex(1);
        QCOMPARE(ids(tasks()), texts({"4101"}));
        teams()->setCurrentIndex(2);
        QVERIFY(m_bench->change([](World &world) {
            world.removeTeam(s("2192"));
            for (const char *id : {"1702", "1705"})
                world.setBlock(s(id), s("1"));
        }));
        QCOMPARE(shown(), s("17 1702"));
        QCOMPARE(ids(tasks()), texts({"1702", "1705"}));
    }

    void acceptedByKeyboard()
    {
        open();
        QTRY_VERIFY(teams()->hasFocus());
        QTest::keyClick(teams(), Qt::Key_End);
        QTest::keyClick(teams(), Qt::Key_Tab);
        QVERIFY(tasks()->hasFocus());
        QTest::keyClick(tasks(), Qt::Key_Down);
        QTest::keyClick(tasks(), Qt::Key_Return);
        QVERIFY(!m_form->isVisible());
        QCOMPARE(chosen(), s("2192 21922"));
        // The catch-all entry has the same id in every team.
        m_bench->orvana()->changeTask(s("2192"), s("0"));
        open();
        teams()->setCurrentIndex(0);
        pick("0");
        click(button(m_form, s("Ок")));
        QCOMPARE(chosen(), s("17 0"));
    }

    void loadingEnds_data() { addRows({{"\t<!DOCTYPE html>", "3"}, {"[]", "0"}}); }

    // With an answer that is none, and with one without teams.
    void loadingEnds()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        Fault fault = Fault::answer(200, input.toUtf8());
        fault.delay = std::chrono::milliseconds(200);
        m_bench->server().setFault(kListPath, fault);
        clickTask();
        QCOMPARE(status(), s("Загрузка..."));
        QVERIFY(!teams()->isEnabled() && !tasks()->isEnabled());
        QTRY_VERIFY(teams()->isEnabled() && tasks()->isEnabled());
        QCOMPARE(status(), QString());
        QCOMPARE(QString::number(teams()->count()), result);
        // Without anything to choose there is nothing to accept.
        click(button(m_form, s("Ок")));
        QCOMPARE(m_form->isVisible(), result == s("0"));
        QCOMPARE(chosen(), s("17 1704"));
    }

    void onlyWhatTheSessionHolds_data()
    {
        addRows({{"cancel", "17 1704"},
                 {"gone", "17 1704"},
                 {"offline cancel", "17 1704"},
                 {"login cancel", " "},
                 {"login", " "}});
    }

    // The service leaves every request for lists unanswered after a choice was cancelled, a task has
    // gone while it is shown, or another user has logged in while the window is hidden or shown.
    // Without the service nothing is requested.
    void onlyWhatTheSessionHolds()
    {
        QFETCH(QString, input);
        open();
        pick("1706");
        m_bench->server().setFault(kListPath, Fault::hang());
        m_bench->session()->setOnline(!input.contains(s("offline")));
        if (input.contains(s("cancel")))
            click(button(m_form, s("Отмена")));
        if (input.contains(s("login"))) {
            QSignalSpy accepted(m_bench->orvana(), &Orvana::loginOk);
            m_bench->orvana()->requestCheckLogin(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"));
            QVERIFY(accepted.wait());
            QCOMPARE(shown(), s(" "));
        }
        if (input == s("gone"))
            m_bench->session()->removeAllSavedTasks(m_bench->session()->task(s("17"), s("1706")));
        if (!m_form->isVisible())
            click(m_bench->child("pbTask"));
        const bool isAsked =
            input.contains(s("cancel")) != input.contains(s("offline")) || input == s("login");
        QTRY_COMPARE(status(), isAsked ? s("Загрузка...") : QString());
        click(button(m_form, s("Ок")));
        QTEST(chosen(), "result");
    }

private:
    QComboBox *teams() const { return part<QComboBox>(m_form, "cbTeam"); }
    QComboBox *tasks() const { return part<QComboBox>(m_form, "cbTask"); }
    QString status() const { return part<QLabel>(m_form, "lbLoading")->text(); }
    QString shown() const { return m_form->currentTeamId() + QLatin1Char(' ') + m_form->currentTaskId(); }
    QString chosen() const
    {
        return m_bench->session()->currentTeamID() + QLatin1Char(' ') + m_bench->session()->currentTaskID();
    }
    void pick(const char *task) { tasks()->setCurrentIndex(ids(tasks()).indexOf(s(task))); }

    // As a person does.
    void clickTask()
    {
        click(m_bench->child("pbTask"));
        m_form = m_bench->form->findChild<TaskForm *>();
    }

    void open()
    {
        clickTask();
        QVERIFY(QTest::qWaitForWindowActive(m_form));
        QTRY_VERIFY(teams()->isEnabled());
        QVERIFY(m_bench->settle());
    }

    std::unique_ptr<WindowBench> m_bench;
    TaskForm *m_form = nullptr;
};

QTEST_MAIN(TestChooser)
#include "tst_chooser.moc"
