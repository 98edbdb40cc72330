#include "rows.h"
#include "ui/loginform.h"
#include "windowbench.h"
#include "windowparts.h"

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

    void emptyFields_data()
    {
        addColumns<QString, QString, QString, QString>("email", "password", "message", "focus");
        QTest::newRow("both") << QString() << QString() << s("Введите e-mail") << s("lbEmail");
        QTest::newRow("e-mail") << QString() << s("p") << s("Введите e-mail") << s("lbEmail");
        QTest::newRow("password") << s("a") << QString() << s("Введите пароль") << s("lbPassword");
    }

    void emptyFields()
    {
        QFETCH(QString, email);
        QFETCH(QString, password);
        enter(email, password);
        QTEST(message(), "message");
        QVERIFY(pbEnter()->isEnabled());
        QTEST(QApplication::focusWidget()->objectName(), "focus");
        QCOMPARE(checks(), 0);
    }

    void errorCodes_data()
    {
        addColumns<int, QString>("code", "text");
        const QString unreachable = s("Не удалось соединиться с сервером.");
        QTest::newRow("0") << 0 << s("Неверный логин или пароль");
        QTest::newRow("1") << 1 << unreachable;
        QTest::newRow("3") << 3 << unreachable;
        QTest::newRow("5") << 5 << s("Ошибка соединения с базой данных.");
        for (const int code : {4, 6, -1})
            QTest::addRow("%d", code) << code << s("?");
    }

    void errorCodes()
    {
        QFETCH(int, code);
        m_bench->server().setFault(kLoginPath, Fault::hang());
        enter(s("a"), s("b"));
        QVERIFY(!pbEnter()->isEnabled());
        QCOMPARE(message(), QString());
        child<QLabel>("lbInfo")->setText(s("?"));
        email()->setFocus();
        emit m_bench->orvana()->error(code);
        QTEST(message(), "text");
        QVERIFY(pbEnter()->isEnabled() && m_form->isVisible());
        // The next key replaces a wrong password, but not one that has been typed since the
        // request, or when another request is refused.
        QCOMPARE(password()->selectedText(), code == 0 ? s("b") : QString());
        QCOMPARE(QApplication::focusWidget(), code == 0 ? password() : email());
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
        QSignalSpy accepted(m_form.get(), &QDialog::accepted);
        m_bench->server().stop();
        enter(TestClient::anna(), s(" %41\"ё+& "));
        QVERIFY(!pbEnter()->isEnabled());
        QTRY_COMPARE(message(), s("Не удалось соединиться с сервером."));
        QVERIFY(pbEnter()->isEnabled() && m_bench->server().start());
        click(pbEnter());
        QTRY_COMPARE(message(), s("Неверный логин или пароль"));
        const auto request = m_bench->server().requestsTo(kLoginPath).constFirst();
        QCOMPARE(request.queryValue(s("password")), s(" %41\"ё+& "));
        QVERIFY(m_bench->session()->login().isEmpty());
        type(password(), s("orvana")); // over the wrong one
        click(pbEnter());
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
        click(pbEnter());
        QTRY_COMPARE(checks(), 1);
        QVERIFY(!pbEnter()->isEnabled());
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
        click(child<QWidget>("pbClose"));
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
        return part<T>(m_form.get(), name);
    }
    QLineEdit *email() const { return child<QLineEdit>("lbEmail"); }
    QLineEdit *password() const { return child<QLineEdit>("lbPassword"); }
    QPushButton *pbEnter() const { return child<QPushButton>("pbOrvana"); }
    QString message() const { return child<QLabel>("lbInfo")->text(); }
    void enter(const QString &user, const QString &secret)
    {
        type(email(), user);
        type(password(), secret);
        click(pbEnter());
    }
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
