#include "rows.h"
#include "ui/taskform.h"
#include "windowbench.h"

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
        const auto task = [this] { return m_form->currentTaskId(); };
        tasks()->setCurrentIndex(ids(tasks()).indexOf(s("1706")));
        m_bench->server().edit([](World &world) { world.removeTask(s("1701")); });
        QVERIFY(m_bench->refresh());
        QVERIFY(!ids(tasks()).contains(s("1701")));
        QCOMPARE(task(), s("1706"));
        for (const bool byKey : {false, true}) {
            tasks()->setCurrentIndex(ids(tasks()).indexOf(s("1706")));
            if (byKey)
                QTest::keyClick(tasks(), Qt::Key_Escape);
            else
                QTest::mouseClick(button(s("Отмена")), Qt::LeftButton);
            QVERIFY(!m_form->isVisible() && m_bench->form->isVisible());
            QCOMPARE(m_bench->session()->currentTaskID(), s("1704"));
            // Shown again, it starts from what is being worked on.
            open();
            QCOMPARE(task(), s("1704"));
        }
        // Of a team with a blocking task nothing else is offered.
        teams()->setCurrentIndex(1);
        QCOMPARE(ids(tasks()), texts({"4101"}));
        teams()->setCurrentIndex(0);
        QCOMPARE(task(), s("1704"));
        teams()->setCurrentIndex(2);
        m_bench->server().edit([](World &world) { world.removeTeam(s("2192")); });
        QVERIFY(m_bench->refresh());
        QCOMPARE(m_form->currentTeamId(), s("17"));
        for (const char *id : {"1702", "1705"})
            m_bench->server().edit([id](World &world) { world.setBlock(s(id), s("1")); });
        QVERIFY(m_bench->refresh());
        QCOMPARE(ids(tasks()), texts({"1702", "1705"}));
        QCOMPARE(task(), s("1702"));
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
        choose("2192", "0");
        open();
        teams()->setCurrentIndex(0);
        tasks()->setCurrentIndex(tasks()->count() - 1);
        QTest::mouseClick(button(s("Ок")), Qt::LeftButton);
        QCOMPARE(m_bench->session()->currentTeamID(), s("17"));
        QCOMPARE(m_bench->session()->currentTaskID(), s("0"));
    }

    void loadingEnds()
    {
        for (const QByteArray &answer : {QByteArray(), QByteArray("\t<!DOCTYPE html>"), QByteArray("[]")}) {
            Fault fault = answer.isEmpty() ? Fault::delayed({}) : Fault::answer(200, answer);
            fault.delay = std::chrono::milliseconds(200);
            m_bench->server().setFault(kListPath, fault);
            QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
            QCOMPARE(status(), s("Загрузка..."));
            QVERIFY(!teams()->isEnabled() && !tasks()->isEnabled());
            QTRY_VERIFY(teams()->isEnabled() && tasks()->isEnabled());
            QCOMPARE(status(), QString());
            QCOMPARE(teams()->count(), answer == "[]" ? 0 : 3);
            // Without anything to choose there is nothing to accept.
            QCOMPARE(button(s("Ок"))->isEnabled(), answer != "[]");
            QTest::mouseClick(button(s("Ок")), Qt::LeftButton);
            QCOMPARE(m_form->isVisible(), answer == "[]");
            QCOMPARE(m_bench->session()->currentTaskID(), s("1704"));
            QVERIFY(m_bench->settle());
        }
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
        tasks()->setCurrentIndex(ids(tasks()).indexOf(s("1706")));
        m_bench->server().setFault(kListPath, Fault::hang());
        if (before.contains(s("cancel")))
            QTest::mouseClick(button(s("Отмена")), Qt::LeftButton);
        if (before.contains(s("login"))) {
            QSignalSpy accepted(m_bench->orvana(), &Orvana::loginOk);
            m_bench->orvana()->requestCheckLogin(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"));
            QVERIFY(accepted.wait());
            QCOMPARE(m_form->currentTeamId() + m_form->currentTaskId(), QString());
        }
        if (before == s("gone"))
            m_bench->session()->removeAllSavedTasks(m_bench->session()->task(s("17"), s("1706")));
        if (!m_form->isVisible())
            QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
        QTRY_COMPARE(status(), before == s("gone") ? QString() : s("Загрузка..."));
        QTest::mouseClick(button(s("Ок")), Qt::LeftButton);
        QCOMPARE(m_bench->session()->currentTaskID(), chosen);
    }

    void offline()
    {
        m_bench->session()->setOnline(false);
        QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
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
    QComboBox *teams() const { return m_form->findChild<QComboBox *>(s("cbTeam")); }
    QComboBox *tasks() const { return m_form->findChild<QComboBox *>(s("cbTask")); }
    QString status() const { return m_form->findChild<QLabel *>(s("lbLoading"))->text(); }
    QPushButton *button(const QString &text) const
    {
        const auto all = m_form->findChildren<QPushButton *>(s("pbOrvana"));
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
    void choose(const char *team, const char *task) { m_bench->orvana()->changeTask(s(team), s(task)); }

    // As a person does.
    void open()
    {
        QTest::mouseClick(m_bench->child<QPushButton>("pbTask"), Qt::LeftButton);
        QVERIFY(QTest::qWaitForWindowActive(m_form));
        QTRY_VERIFY(teams()->isEnabled());
        QVERIFY(m_bench->settle());
    }

    std::unique_ptr<WindowBench> m_bench;
    TaskForm *m_form = nullptr;
};

QTEST_MAIN(TestChooser)
#include "tst_chooser.moc"
