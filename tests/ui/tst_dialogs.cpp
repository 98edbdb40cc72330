#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "ui/loginform.h"
#include "update/orvanaupdate.h"
#include "urlcatcher.h"
#include "windowbench.h"

using localservice::Fault;
using localservice::World;

namespace {

const QString kLoginPath = s("/api_teams");

// By keys, also those that no key of this keyboard has.
void type(QWidget *field, const QString &text)
{
    field->setFocus();
    for (const QChar &c : text)
        QTest::sendKeyEvent(QTest::Click, field, Qt::Key_unknown, QString(c), Qt::NoModifier);
}

} // namespace

class TestDialogs final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_bench = std::make_unique<WindowBench>(); }

    void cleanup()
    {
        m_form.reset();
        m_bench.reset();
    }

    void errorCodes_data()
    {
        addRows({{"0", "Неверный логин или пароль"},
                 {"1", "Не удалось соединиться с сервером."},
                 {"5", "Ошибка соединения с базой данных."}});
    }

    void errorCodes()
    {
        QFETCH(QString, input);
        const bool isWrong = input == s("0");
        openLogin();
        m_bench->server().setFault(kLoginPath, Fault::hang());
        enter(s("a"), s("b"));
        QVERIFY(!pbEnter()->isEnabled() && message().isEmpty());
        email()->setFocus();
        emit m_bench->orvana()->error(input.toInt());
        QTEST(message(), "result");
        QVERIFY(pbEnter()->isEnabled() && m_form->isVisible());
        // The next key replaces a wrong password, but not one that has been typed since the
        // request, or when another request is refused.
        QCOMPARE(password()->selectedText(), isWrong ? s("b") : QString());
        QVERIFY(isWrong ? password()->hasFocus() : email()->hasFocus());
        for (const bool checking : {false, true}) {
            if (checking)
                click(pbEnter());
            type(password(), s("c"));
            emit m_bench->orvana()->error(Orvana::InvalidCredentials);
            QVERIFY(password()->hasFocus() && !password()->hasSelectedText());
        }
    }

    void unreachableThenRefusedThenAccepted()
    {
        openLogin();
        QSignalSpy accepted(m_form.get(), &QDialog::accepted);
        enter(QString(), s("p"));
        QCOMPARE(message(), s("Введите e-mail"));
        QVERIFY(pbEnter()->isEnabled() && email()->hasFocus());
        password()->clear();
        enter(TestClient::anna(), QString());
        QCOMPARE(message(), s("Введите пароль"));
        QVERIFY(pbEnter()->isEnabled() && password()->hasFocus());
        email()->clear();
        QCOMPARE(checks(), 0);
        m_bench->server().stop();
        enter(TestClient::anna(), s(" %41\"ё+& "));
        QTRY_COMPARE(message(), s("Не удалось соединиться с сервером."));
        QVERIFY(pbEnter()->isEnabled() && m_bench->server().start());
        click(pbEnter());
        QTRY_COMPARE(message(), s("Неверный логин или пароль"));
        const auto request = m_bench->server().requestsTo(kLoginPath).constFirst();
        QCOMPARE(request.queryValue(s("password")), s(" %41\"ё+& "));
        QVERIFY(m_bench->session()->login().isEmpty());
        type(password(), s("orvana")); // over the wrong one
        click(pbEnter());
        QVERIFY(accepted.wait());
        QVERIFY(!m_form->isVisible() && m_bench->session()->isLogged());
        QCOMPARE(m_bench->session()->login(), TestClient::anna());
        // The next start fills it in.
        m_form.reset();
        m_bench->restartWithoutWindow();
        openLogin();
        QCOMPARE(email()->text(), TestClient::anna());
        QCOMPARE(password()->text(), s("orvana"));
        QCOMPARE(password()->echoMode(), QLineEdit::Password);
    }

    void onlyOneRequestUnderWay()
    {
        openLogin();
        m_bench->server().setFault(kLoginPath, Fault::hang());
        enter(TestClient::anna(), s("orvana"));
        QTest::keyClick(password(), Qt::Key_Return);
        QTest::keyClick(email(), Qt::Key_Enter);
        click(pbEnter());
        QTRY_COMPARE(checks(), 1);
        // Closed meanwhile, it stays closed.
        QSignalSpy rejected(m_form.get(), &QDialog::rejected);
        QTest::keyClick(m_form.get(), Qt::Key_Escape);
        QCOMPARE(rejected.count(), 1);
        QSignalSpy answered(m_bench->orvana(), &Orvana::loginOk);
        m_bench->server().clearFaults();
        QVERIFY(answered.wait());
        QVERIFY(!m_form->isVisible());
    }

    void calendar()
    {
        CalendarForm form(nullptr);
        form.findChild<QCalendarWidget *>()->setCurrentPage(2024, 1);
        QCOMPARE(part<QToolButton>(&form, "qt_calendar_monthbutton")->text().toLower(), s("январь"));
    }

    void deadlineRequest()
    {
        QVERIFY(m_bench->openFor(s("1701")));
        QPointer<CalendarForm> opened;
        for (const bool changesMind : {true, false}) {
            whenOpen<CalendarForm>(this, [&](CalendarForm *form) {
                opened = form;
                form->findChild<QCalendarWidget *>()->setSelectedDate(QDate(2031, 5, 7));
                form->findChild<QTimeEdit *>()->setTime(QTime(18, 30));
                auto *reason = part<QPlainTextEdit>(form, "reasonTextEdit");
                reason->setPlainText(s(" \n\t \n"));
                click(button(form, s("Ок")));
                QVERIFY(form->isVisible());
                reason->setPlainText(s("  жду & жду\n"));
                if (changesMind)
                    QTest::keyClick(form, Qt::Key_Escape);
                else
                    click(button(form, s("Ок")));
            });
            click(m_bench->child("pbTimeExtend"));
            QTRY_VERIFY(opened.isNull());
            QVERIFY(m_bench->settle());
        }
        QCOMPARE(popupTexts().filter(s("Введите причину переноса!")).size(), 2);
        const auto sent = m_bench->server().deadlineRequests();
        QCOMPARE(sent.size(), 1);
        QCOMPARE((QStringList{sent[0].taskId, sent[0].date, sent[0].time, sent[0].message}),
                 texts({"1701", "2031-05-07", "18:30", "  жду & жду\n"}));

        // Work that is on no list has no deadline, and the exempt team's is not moved.
        for (const auto &choice : {texts({"17", "0"}), texts({"2192", "21922"})}) {
            m_bench->orvana()->changeTask(choice.first(), choice.last());
            WindowBench::dropPopups();
            QTimer::singleShot(0, this, [] {
                if (QWidget *dialog = QApplication::activeModalWidget())
                    dialog->close();
            });
            click(m_bench->child("pbTimeExtend"));
            QVERIFY(popupTexts().contains(s("Для данной задачи невозможно выполнить перенос дедлайна.")));
        }
    }

    void about()
    {
        QCoreApplication::setApplicationVersion(s("1.1.0"));
        OrvanaUpdate::instance()->init(m_bench->orvana());
        AboutForm about(m_bench->orvana(), nullptr);
        const auto *info = part<QLabel>(&about, "lbUpdateInfo");
        const std::pair<const char *, const char *> answers[] = {{"1.2.0", "Доступно обновление 1.2.0"},
                                                                 {"1.1.0", "Установлена последняя версия"}};
        for (const auto &[version, text] : answers) {
            m_bench->server().edit([&](World &world) { world.setVersions({s(version)}); });
            about.update();
            QTRY_COMPARE(info->text(), s(text));
        }
        const UrlCatcher catcher;
        click(part(&about, "lbUrl"));
        QCOMPARE(catcher.opened, QStringList{m_bench->server().baseUrl()});
    }

private:
    QLineEdit *email() const { return part<QLineEdit>(m_form.get(), "lbEmail"); }
    QLineEdit *password() const { return part<QLineEdit>(m_form.get(), "lbPassword"); }
    QPushButton *pbEnter() const { return part<QPushButton>(m_form.get(), "pbOrvana"); }
    QString message() const { return part<QLabel>(m_form.get(), "lbInfo")->text(); }
    int checks() { return m_bench->server().requestsTo(kLoginPath).size(); }
    void openLogin()
    {
        m_form = std::make_unique<LoginForm>(m_bench->orvana());
        m_form->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
        QVERIFY(focus(email()));
    }
    void enter(const QString &user, const QString &secret)
    {
        type(email(), user);
        type(password(), secret);
        click(pbEnter());
    }

    std::unique_ptr<WindowBench> m_bench;
    std::unique_ptr<LoginForm> m_form;
};

QTEST_MAIN(TestDialogs)
#include "tst_dialogs.moc"
