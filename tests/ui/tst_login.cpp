#include "rows.h"
#include "ui/loginform.h"
#include "windowbench.h"

using localservice::Fault;

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

class TestLogin final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        open();
    }

    void cleanup()
    {
        m_form.reset();
        m_bench.reset();
    }

    void emptyFields()
    {
        const auto verify = [this](const char *typed, const char *message, const QWidget *focus) {
            type(email(), s(typed));
            pressEnter();
            QCOMPARE(this->message(), s(message));
            QVERIFY(enter()->isEnabled());
            QCOMPARE(QApplication::focusWidget(), focus);
        };
        verify("", "Введите e-mail", email());
        verify("a", "Введите пароль", password());
        email()->clear();
        type(password(), s("p"));
        verify("", "Введите e-mail", email());
        QCOMPARE(checks(), 0);
    }

    void errorCodes()
    {
        m_bench->server().setFault(kLoginPath, Fault::hang());
        type(email(), s("a"));
        type(password(), s("b"));
        const std::pair<int, const char *> rows[] = {{0, "Неверный логин или пароль"},
                                                     {1, "Не удалось соединиться с сервером."},
                                                     {3, "Не удалось соединиться с сервером."},
                                                     {4, "?"},
                                                     {5, "Ошибка соединения с базой данных."},
                                                     {6, "?"},
                                                     {-1, "?"}};
        for (const auto &[code, text] : rows) {
            pressEnter();
            QVERIFY(!enter()->isEnabled());
            QCOMPARE(message(), QString());
            child<QLabel>("lbInfo")->setText(s("?"));
            email()->setFocus();
            password()->deselect();
            emit m_bench->orvana()->error(code);
            QCOMPARE(message(), s(text));
            QVERIFY(enter()->isEnabled() && m_form->isVisible());
            // The next key replaces a wrong password.
            QCOMPARE(password()->selectedText(), code == 0 ? s("b") : QString());
            QCOMPARE(QApplication::focusWidget(), code == 0 ? password() : email());
        }
        // A refusal of another request, or of what has been typed over meanwhile.
        for (const bool checking : {false, true}) {
            if (checking)
                pressEnter();
            type(password(), s("c"));
            emit m_bench->orvana()->error(Orvana::InvalidCredentials);
            QVERIFY(password()->hasFocus() && !password()->hasSelectedText());
        }
    }

    void unreachableThenRefusedThenAccepted()
    {
        QSignalSpy accepted(m_form.get(), &QDialog::accepted);
        type(email(), TestClient::anna());
        type(password(), s(" %41\"ё+& "));
        m_bench->server().stop();
        pressEnter();
        QVERIFY(!enter()->isEnabled());
        QTRY_COMPARE(message(), s("Не удалось соединиться с сервером."));
        QVERIFY(enter()->isEnabled() && m_bench->server().start());
        pressEnter();
        QTRY_COMPARE(message(), s("Неверный логин или пароль"));
        const auto request = m_bench->server().requestsTo(kLoginPath).constFirst();
        QCOMPARE(request.queryValue(s("password")), s(" %41\"ё+& "));
        QVERIFY(m_bench->session()->login().isEmpty());
        type(password(), s("orvana")); // over the wrong one
        pressEnter();
        QCOMPARE(message(), QString());
        QVERIFY(accepted.wait());
        QCOMPARE(m_form->result(), int(QDialog::Accepted));
        QVERIFY(!m_form->isVisible());
        QCOMPARE(m_bench->session()->login(), TestClient::anna());
        QVERIFY(m_bench->session()->isLogged());
    }

    void onlyOneRequestUnderWay()
    {
        m_bench->server().setFault(kLoginPath, Fault::hang());
        type(email(), TestClient::anna());
        type(password(), s("orvana"));
        for (int i = 0; i < 2; ++i)
            QTest::keyClick(password(), Qt::Key_Return);
        QTest::keyClick(email(), Qt::Key_Enter);
        pressEnter();
        QTRY_COMPARE(checks(), 1);
        QVERIFY(!enter()->isEnabled());
        // Closed meanwhile, it stays closed.
        QSignalSpy rejected(m_form.get(), &QDialog::rejected);
        QTest::keyClick(m_form.get(), Qt::Key_Escape);
        QCOMPARE(rejected.count(), 1);
        QSignalSpy answered(m_bench->orvana(), &Orvana::loginOk);
        m_bench->server().clearFaults();
        QVERIFY(answered.wait());
        QVERIFY(!m_form->isVisible());
        QCOMPARE(checks(), 1);
        // The cross is the same.
        m_form->show();
        QTest::mouseClick(child<QPushButton>("pbClose"), Qt::LeftButton);
        QCOMPARE(rejected.count(), 2);
    }

    void storedAccountIsFilledIn()
    {
        QVERIFY(m_bench->signIn());
        m_form.reset();
        m_bench->restartWithoutWindow();
        open();
        QCOMPARE(email()->text(), TestClient::anna());
        QCOMPARE(password()->text(), s("orvana"));
        QCOMPARE(password()->echoMode(), QLineEdit::Password);
    }

    void titleBarDrags()
    {
        const auto drag = [](QWidget *widget) {
            QTest::mousePress(widget, Qt::LeftButton, {}, QPoint(60, 10));
            QMouseEvent move(QEvent::MouseMove, QPointF(79.6, 3.4), Qt::NoButton, Qt::LeftButton, {});
            QCoreApplication::sendEvent(widget, &move);
            QTest::mouseRelease(widget, Qt::LeftButton, {}, QPoint(80, 3));
        };
        const QPoint before = m_form->pos();
        drag(child<QWidget>("wTop"));
        QTRY_COMPARE(m_form->pos(), before + QPoint(20, -7));
        drag(child<QWidget>("wLoginPane"));
        QCOMPARE(m_form->pos(), before + QPoint(20, -7));
    }

private:
    template <typename T>
    T *child(const char *name) const
    {
        return m_form->findChild<T *>(QString::fromLatin1(name));
    }
    QLineEdit *email() const { return child<QLineEdit>("lbEmail"); }
    QLineEdit *password() const { return child<QLineEdit>("lbPassword"); }
    QPushButton *enter() const { return child<QPushButton>("pbOrvana"); }
    QString message() const { return child<QLabel>("lbInfo")->text(); }
    void pressEnter() { QTest::mouseClick(enter(), Qt::LeftButton); }
    void open()
    {
        m_form = std::make_unique<LoginForm>(m_bench->orvana());
        m_form->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
        QApplication::setActiveWindow(m_form.get());
        QTRY_VERIFY(email()->hasFocus());
    }
    int checks() { return m_bench->server().requestsTo(kLoginPath).size(); }

    std::unique_ptr<WindowBench> m_bench;
    std::unique_ptr<LoginForm> m_form;
};

QTEST_MAIN(TestLogin)
#include "tst_login.moc"
