#include "ui/loginform.h"
#include "windowbench.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>

using localservice::Fault;

namespace {

const QString kLoginPath = QStringLiteral("/api_teams");

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
    void init();
    void cleanup();

    void emptyFields_data();
    void emptyFields();
    void errorCodes_data();
    void errorCodes();
    void typedCharactersArrive_data();
    void typedCharactersArrive();
    void refusedThenAccepted();
    void serviceDown();
    void secondRequestIsHeldBack();
    void closedWhileUnanswered();
    void storedAccountIsFilledIn();
    void keyboardOrder();
    void titleBarDrags();

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
    void open();
    int checks() { return m_bench->server().requestsTo(kLoginPath).size(); }

    std::unique_ptr<WindowBench> m_bench;
    std::unique_ptr<LoginForm> m_form;
};

void TestLogin::init()
{
    m_bench = std::make_unique<WindowBench>();
    open();
}

void TestLogin::open()
{
    m_form = std::make_unique<LoginForm>(m_bench->orvana());
    m_form->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_form.get()));
    QApplication::setActiveWindow(m_form.get());
    QTRY_VERIFY(email()->hasFocus());
}

void TestLogin::cleanup()
{
    m_form.reset();
    m_bench.reset();
}

void TestLogin::emptyFields_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("focus");
    QTest::addColumn<int>("checks");
    const QString noEmail = QStringLiteral("Введите e-mail");
    QTest::newRow("both") << QString() << QString() << noEmail << QStringLiteral("lbEmail") << 0;
    QTest::newRow("e-mail") << QString() << QStringLiteral("p") << noEmail << QStringLiteral("lbEmail") << 0;
    QTest::newRow("password") << QStringLiteral("a") << QString() << QStringLiteral("Введите пароль")
                              << QStringLiteral("lbPassword") << 0;
    QTest::newRow("only blanks") << QStringLiteral("  ") << QStringLiteral(" ")
                                 << QStringLiteral("Неверный логин или пароль") << QString() << 1;
}

void TestLogin::emptyFields()
{
    QFETCH(QString, email);
    QFETCH(QString, password);
    QFETCH(QString, message);
    QFETCH(QString, focus);
    type(this->email(), email);
    type(this->password(), password);
    child<QLabel>("lbInfo")->setText(QStringLiteral("?"));
    pressEnter();
    QTRY_COMPARE(this->message(), message);
    QTRY_VERIFY(enter()->isEnabled());
    if (!focus.isEmpty())
        QCOMPARE(QApplication::focusWidget()->objectName(), focus);
    QTEST(this->checks(), "checks");
}

void TestLogin::errorCodes_data()
{
    QTest::addColumn<QString>("message");
    const QString unreachable = QStringLiteral("Не удалось соединиться с сервером.");
    const QString unchanged = QStringLiteral("?");
    QTest::newRow("0") << QStringLiteral("Неверный логин или пароль");
    QTest::newRow("1") << unreachable;
    QTest::newRow("2") << unreachable;
    QTest::newRow("3") << unreachable;
    QTest::newRow("4") << unchanged;
    QTest::newRow("5") << QStringLiteral("Ошибка соединения с базой данных.");
    QTest::newRow("6") << unchanged;
    QTest::newRow("-1") << unchanged;
}

void TestLogin::errorCodes()
{
    QFETCH(QString, message);
    m_bench->server().setFault(kLoginPath, Fault::hang());
    type(email(), QStringLiteral("a"));
    type(password(), QStringLiteral("b"));
    pressEnter();
    QVERIFY(!enter()->isEnabled());
    QCOMPARE(this->message(), QString());
    child<QLabel>("lbInfo")->setText(QStringLiteral("?"));
    emit m_bench->orvana()->error(QByteArray(QTest::currentDataTag()).toInt());
    QCOMPARE(this->message(), message);
    QVERIFY(enter()->isEnabled());
    QCOMPARE(enter()->text(), QStringLiteral("Вход"));
    QVERIFY(m_form->isVisible());
}

void TestLogin::typedCharactersArrive_data()
{
    QTest::addColumn<QString>("email");
    QTest::addColumn<QString>("password");
    QTest::newRow("plain") << QStringLiteral("anna@orvana.example") << QStringLiteral("orvana");
    QTest::newRow("reserved") << QStringLiteral("a+b&login=c=d") << QStringLiteral("#;/?:@!$'()*,[]\\");
    QTest::newRow("percent signs") << QStringLiteral("100%") << QStringLiteral("%41%2B%");
    QTest::newRow("blanks") << QStringLiteral(" a  b ") << QStringLiteral("   ");
    QTest::newRow("Cyrillic") << QStringLiteral("пётр") << QStringLiteral("ёЙ№");
    QTest::newRow("quotes and markup") << QStringLiteral("\"<b>'&amp;") << QStringLiteral("{\"a\":1}");
}

void TestLogin::typedCharactersArrive()
{
    QFETCH(QString, email);
    QFETCH(QString, password);
    type(this->email(), email);
    type(this->password(), password);
    QTest::keyClick(this->password(), Qt::Key_Return);
    QTRY_COMPARE(checks(), 1);
    const auto request = m_bench->server().requestsTo(kLoginPath).constFirst();
    QCOMPARE(request.queryValue(QStringLiteral("login")), email);
    QCOMPARE(request.queryValue(QStringLiteral("password")), password);
}

void TestLogin::refusedThenAccepted()
{
    QSignalSpy accepted(m_form.get(), &QDialog::accepted);
    type(email(), TestClient::anna());
    type(password(), QStringLiteral("wrong"));
    pressEnter();
    QTRY_COMPARE(message(), QStringLiteral("Неверный логин или пароль"));
    QVERIFY(m_bench->session()->login().isEmpty());
    password()->clear();
    type(password(), QStringLiteral("orvana"));
    pressEnter();
    QCOMPARE(message(), QString());
    QVERIFY(accepted.wait());
    QCOMPARE(m_form->result(), int(QDialog::Accepted));
    QVERIFY(!m_form->isVisible());
    QCOMPARE(m_bench->session()->login(), TestClient::anna());
    QVERIFY(m_bench->session()->isLogged());
}

void TestLogin::serviceDown()
{
    m_bench->server().stop();
    type(email(), TestClient::anna());
    type(password(), QStringLiteral("orvana"));
    pressEnter();
    QVERIFY(!enter()->isEnabled());
    QTRY_COMPARE(message(), QStringLiteral("Не удалось соединиться с сервером."));
    QVERIFY(enter()->isEnabled());
    QVERIFY(m_bench->server().start());
    QSignalSpy accepted(m_form.get(), &QDialog::accepted);
    pressEnter();
    QVERIFY(accepted.wait());
}

void TestLogin::secondRequestIsHeldBack()
{
    m_bench->server().setFault(kLoginPath, Fault::hang());
    type(email(), TestClient::anna());
    type(password(), QStringLiteral("orvana"));
    QTest::keyClick(password(), Qt::Key_Return);
    QVERIFY(!enter()->isEnabled());
    QTest::keyClick(password(), Qt::Key_Return);
    QTest::keyClick(email(), Qt::Key_Enter);
    pressEnter();
    QTRY_COMPARE(checks(), 1);
    QSignalSpy accepted(m_form.get(), &QDialog::accepted);
    m_bench->server().clearFaults();
    QVERIFY(accepted.wait());
    QCOMPARE(checks(), 1);
}

void TestLogin::closedWhileUnanswered()
{
    m_bench->server().setFault(kLoginPath, Fault::hang());
    type(email(), TestClient::anna());
    type(password(), QStringLiteral("orvana"));
    pressEnter();
    QSignalSpy rejected(m_form.get(), &QDialog::rejected);
    QTest::keyClick(m_form.get(), Qt::Key_Escape);
    QCOMPARE(rejected.count(), 1);
    QCOMPARE(m_form->result(), int(QDialog::Rejected));
    QSignalSpy answered(m_bench->orvana(), &Orvana::loginOk);
    m_bench->server().clearFaults();
    QVERIFY(answered.wait());
    QVERIFY(!m_form->isVisible());
    // The cross is the same.
    m_form->show();
    QTest::mouseClick(child<QPushButton>("pbClose"), Qt::LeftButton);
    QCOMPARE(rejected.count(), 2);
}

void TestLogin::storedAccountIsFilledIn()
{
    QVERIFY(m_bench->signIn());
    m_form.reset();
    m_bench->restartWithoutWindow();
    open();
    QCOMPARE(email()->text(), TestClient::anna());
    QCOMPARE(password()->text(), QStringLiteral("orvana"));
    QCOMPARE(password()->echoMode(), QLineEdit::Password);
    const QRect area = m_form->screen()->availableGeometry();
    QCOMPARE(m_form->pos(),
             QPoint((area.left() + area.right()) / 2 - m_form->width() / 2,
                    (area.top() + area.bottom()) / 2 - m_form->height() / 2));
}

void TestLogin::keyboardOrder()
{
    const QWidgetList order = {email(), password(), enter(), email()};
    for (int i = 1; i < order.size(); ++i) {
        QTest::keyClick(order.at(i - 1), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), order.at(i));
    }
}

void TestLogin::titleBarDrags()
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

QTEST_MAIN(TestLogin)
#include "tst_login.moc"
