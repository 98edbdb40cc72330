#include "ui/autoscrolllineedit.h"
#include "ui/loginform.h"
#include "ui/scrolltext.h"
#include "ui/taskform.h"
#include "ui/timetexts.h"
#include "windowbench.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTextDocument>

namespace {

const QString kTeam = QStringLiteral("17");
const QString kTask = QStringLiteral("1704");
const QString kPickTask = QStringLiteral("Выбрать задачу");

QImage picture(const QIcon &icon, QIcon::Mode mode = QIcon::Normal)
{
    return icon.pixmap(QSize(16, 16), mode).toImage();
}

} // namespace

class TestMainWindow final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_bench.reset(); }

    void playStyles_data();
    void playStyles();
    void overdueTexts_data();
    void overdueTexts();
    void overdueLabels_data();
    void overdueLabels();
    void taskIcons_data();
    void taskIcons();
    void trayIcons_data();
    void trayIcons();
    void withAndWithoutTask();
    void clockShowsEitherTime_data();
    void clockShowsEitherTime();
    void hidingLosesNothing_data();
    void hidingLosesNothing();
    void trayComesAndGoes();
    void onlineStateIsTold_data();
    void onlineStateIsTold();
    void noticeButton();
    void changeOfAccount();
    void menu();
    void everyControlHasAName();
    void tabOrder();
    void keyboardAlone();
    void freeAreaDrags();
    void textsThatMove_data();
    void textsThatMove();

private:
    QPushButton *button(const char *name) const { return m_bench->child<QPushButton>(name); }
    QLabel *label(const char *name) const { return m_bench->child<QLabel>(name); }
    ScrollText *title() const { return m_bench->child<ScrollText>("lbTask"); }
    void activate()
    {
        m_bench->form->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_bench->form.get()));
    }

    std::unique_ptr<WindowBench> m_bench;
};

void TestMainWindow::init()
{
    m_bench = std::make_unique<WindowBench>();
    QVERIFY(m_bench->signIn());
    m_bench->orvana()->changeTask(kTeam, kTask);
    QVERIFY(m_bench->openWindow());
}

void TestMainWindow::playStyles_data()
{
    QTest::addColumn<QString>("task");
    QTest::addColumn<bool>("online");
    QTest::addColumn<bool>("active");
    QTest::addColumn<QString>("style");
    const QString style =
        QStringLiteral("QPushButton{background-image: url(:/images/%1.png);}"
                       "QPushButton:hover:!pressed{background-image: url(:/images/%1_hovered.png);}"
                       "QPushButton:pressed{background-image: url(:/images/%1_hovered_clicked.png);}");
    QTest::newRow("no task") << QString() << true << false
                             << QStringLiteral("background-image: url(:/images/pbPlay_Disabled.png);");
    QTest::newRow("offline, stopped")
        << kTask << false << false << style.arg(QStringLiteral("pbPlay_Offline"));
    QTest::newRow("offline, running")
        << kTask << false << true << style.arg(QStringLiteral("pbPause_Offline"));
    QTest::newRow("online, stopped") << kTask << true << false << style.arg(QStringLiteral("pbPlay_Online"));
    QTest::newRow("online, running") << kTask << true << true << style.arg(QStringLiteral("pbPause_Online"));
}

void TestMainWindow::playStyles()
{
    QFETCH(QString, task);
    QFETCH(bool, online);
    QFETCH(bool, active);
    QFETCH(QString, style);
    m_bench->session()->setCurrentTaskID(task);
    m_bench->session()->setOnline(online);
    if (active)
        m_bench->form->startTracking();
    m_bench->form->updatePlayBtn();
    const auto plain = [](QString text) { return text.remove(QLatin1Char(' ')); };
    QCOMPARE(plain(button("pbPlay")->styleSheet()), plain(style));
}

void TestMainWindow::overdueTexts_data()
{
    QTest::addColumn<QDateTime>("deadline");
    QTest::addColumn<QString>("text");
    const QDateTime now(QDate(2024, 3, 1), QTime(10, 15, 30));
    const auto before = [&now](int days, int hours, int minutes, int seconds = 0) {
        return now.addDays(-days).addSecs(-((hours * 60 + minutes) * 60 + seconds));
    };
    QTest::newRow("none") << QDateTime() << QString();
    QTest::newRow("this second") << now << QString();
    QTest::newRow("below a minute") << before(0, 0, 0, 59) << QString();
    QTest::newRow("half an hour") << before(0, 0, 30) << QStringLiteral("30 мин.");
    QTest::newRow("an hour") << before(0, 1, 0) << QStringLiteral("1ч. ");
    QTest::newRow("over midnight") << before(0, 12, 5) << QStringLiteral("12ч. 5 мин.");
    QTest::newRow("almost a day") << before(0, 23, 59, 59) << QStringLiteral("23ч. 59 мин.");
    QTest::newRow("a day") << before(1, 0, 0) << QStringLiteral("1д. ");
    QTest::newRow("25 hours") << before(1, 1, 0) << QStringLiteral("1д. 1ч. ");
    QTest::newRow("later in the day, days ago") << before(2, 20, 7) << QStringLiteral("2д. 20ч. 7 мин.");
    QTest::newRow("over a leap day") << QDateTime(QDate(2024, 2, 28), QTime(10, 15, 30))
                                     << QStringLiteral("2д. ");
    QTest::newRow("midnight") << QDateTime(QDate(2024, 3, 1), QTime(0, 0)) << QStringLiteral("10ч. 15 мин.");
}

void TestMainWindow::overdueTexts()
{
    QFETCH(QDateTime, deadline);
    QTEST(overdueText(deadline, QDateTime(QDate(2024, 3, 1), QTime(10, 15, 30))), "text");
}

void TestMainWindow::overdueLabels_data()
{
    QTest::addColumn<QString>("task");
    QTest::addColumn<bool>("isOverdue");
    QTest::newRow("no task") << QString() << false;
    QTest::newRow("catch-all") << QStringLiteral("0") << false;
    QTest::newRow("unknown") << QStringLiteral("9") << false;
    QTest::newRow("no deadline") << kTask << false;
    QTest::newRow("later") << QStringLiteral("1701") << false;
    QTest::newRow("passed") << QStringLiteral("1703") << true;
}

void TestMainWindow::overdueLabels()
{
    QFETCH(QString, task);
    QFETCH(bool, isOverdue);
    m_bench->orvana()->changeTask(kTeam, QStringLiteral("1702"));
    QVERIFY(label("lbOverdue")->isVisible());
    m_bench->orvana()->changeTask(kTeam, task);
    QCOMPARE(label("lbOverdue")->isVisible(), isOverdue);
    QCOMPARE(label("lbOverdueTime")->isVisible(), isOverdue);
    if (!isOverdue)
        return;
    QCOMPARE(label("lbOverdueTime")->text(), QStringLiteral("1д. 1ч. "));
    const QString deadline = serviceDateTimeText(m_bench->session()->currentDeadline());
    QCOMPARE(label("lbOverdueTime")->toolTip(), deadline);
    QCOMPARE(label("lbOverdue")->toolTip(), deadline);

    // The team moves it while it is shown.
    m_bench->server().edit([&task](localservice::World &world) {
        world.setDeadline(task, QDateTime::currentDateTime().addDays(1));
    });
    QVERIFY(m_bench->refresh());
    QVERIFY(!label("lbOverdue")->isVisible());
}

void TestMainWindow::taskIcons_data()
{
    QTest::addColumn<QString>("block");
    QTest::addColumn<int>("importance");
    QTest::addColumn<QString>("image");
    const QString plain = QStringLiteral(":/images/pbTask.png");
    const QString urgent = QStringLiteral(":/images/pbTaskUrgentGrey.png");
    const QString blocked = QStringLiteral(":/images/pbTaskBlocked.png");
    QTest::newRow("plain") << QString() << 0 << plain;
    QTest::newRow("zero") << QStringLiteral("0") << 0 << plain;
    QTest::newRow("negative") << QString() << -1 << plain;
    QTest::newRow("important") << QString() << 1 << urgent;
    QTest::newRow("very important") << QStringLiteral("0") << 5 << urgent;
    QTest::newRow("blocking") << QStringLiteral("1") << 0 << blocked;
    QTest::newRow("blocking and important") << QStringLiteral("да") << 3 << blocked;
}

void TestMainWindow::taskIcons()
{
    QFETCH(QString, block);
    QFETCH(int, importance);
    QFETCH(QString, image);
    Task task;
    task.block = block;
    task.importance = importance;
    const QIcon icon = m_bench->form->getTaskIcon(task);
    QCOMPARE(picture(icon), picture(QIcon(image)));
    // A chosen row does not change its colours.
    QCOMPARE(picture(icon, QIcon::Selected), picture(QIcon(image)));
}

void TestMainWindow::trayIcons_data()
{
    QTest::addColumn<bool>("active");
    QTest::addColumn<bool>("attention");
    QTest::addColumn<QString>("image");
    QTest::newRow("stopped") << false << false << QStringLiteral("trayNotActive");
    QTest::newRow("running") << true << false << QStringLiteral("trayActive");
    QTest::newRow("stopped, popups") << false << true << QStringLiteral("trayNotactive_attention");
    QTest::newRow("running, popups") << true << true << QStringLiteral("trayActive_attention");
}

void TestMainWindow::trayIcons()
{
    QFETCH(bool, active);
    QFETCH(bool, attention);
    QFETCH(QString, image);
    const auto *tray = m_bench->form->findChild<QSystemTrayIcon *>();
    if (active)
        m_bench->form->startTracking();
    if (attention)
        NotificationManager::instance()->addNotification(QStringLiteral("x"), Plain, QString());
    QCOMPARE(picture(tray->icon()),
             QImage(QStringLiteral(":/icons/") + image + QStringLiteral("_16.png"))
                 .convertToFormat(picture(tray->icon()).format()));
    QVERIFY(tray->toolTip().startsWith(active ? QStringLiteral("Идёт запись")
                                              : QStringLiteral("Запись остановлена")));
    QVERIFY(!tray->toolTip().contains(QStringLiteral("отправки")));
    m_bench->server().setOutage(localservice::Outage::Unavailable);
    for (int i = 0; i < 2; ++i)
        m_bench->orvana()->sendTaskActivity(1);
    QVERIFY(m_bench->settle());
    m_bench->form->updateTrayIcon();
    QVERIFY2(tray->toolTip().contains(QStringLiteral("\n2 отчёта ждут отправки с ")), qPrintable(tray->toolTip()));
    WindowBench::dropPopups();
    QCOMPARE(m_bench->child<QPushButton>("pbNotice")->property("notices").toString(), QStringLiteral("none"));
}

void TestMainWindow::withAndWithoutTask()
{
    m_bench->server().edit([](localservice::World &world) {
        world.task(kTask)->title = QStringLiteral("<h1>A & B</h1>");
        world.addComment(kTask, QDateTime(QDate(2024, 2, 3), QTime(4, 5)));
    });
    QVERIFY(m_bench->refresh());
    QCOMPARE(title()->text(), QStringLiteral("<h1>A & B</h1>"));
    QTextDocument toolTip;
    toolTip.setHtml(title()->toolTip());
    QCOMPARE(toolTip.toPlainText(), title()->text());
    QCOMPARE(label("lbComment")->text(), QStringLiteral("03.02 04:05"));
    QVERIFY(button("pbPlay")->isCheckable() && button("pbTimeExtend")->isEnabled()
            && button("pbComment")->isEnabled());

    m_bench->session()->setCurrentTaskID(QString());
    QCOMPARE(title()->text(), kPickTask);
    QCOMPARE(title()->toolTip(), kPickTask);
    QCOMPARE(label("lbComment")->text(), QString());
    QVERIFY(!button("pbPlay")->isCheckable() && !button("pbTimeExtend")->isEnabled()
            && !button("pbComment")->isEnabled());
    // A restart says what is missing.
    m_bench->restartWithoutWindow();
    WindowBench::dropPopups();
    m_bench->form = std::make_unique<MainForm>(m_bench->orvana());
    QCOMPARE(WindowBench::popupTexts(), QStringList{QStringLiteral("Выберите задачу для начала работы.")});
}

void TestMainWindow::clockShowsEitherTime_data()
{
    QTest::addColumn<int>("key"); // 0: the mouse
    QTest::newRow("mouse") << 0;
    QTest::newRow("Space") << int(Qt::Key_Space);
    QTest::newRow("Enter") << int(Qt::Key_Return);
}

void TestMainWindow::clockShowsEitherTime()
{
    QFETCH(int, key);
    m_bench->session()->setWorktime(QTime(8, 1, 2));
    m_bench->session()->setActiveTime(QTime(7, 3, 4));
    m_bench->form->updateTimerLbl();
    const QStringList captions = {QStringLiteral("Сегодня:"), QStringLiteral("Активного:")};
    const QStringList times = {QStringLiteral("08:01:02"), QStringLiteral("07:03:04")};
    QCOMPARE(label("lbActivity")->text().trimmed(), captions.at(0));
    for (const int shown : {0, 1, 0}) {
        QCOMPARE(label("lbClock")->text(), times.at(shown));
        if (key)
            QTest::keyClick(label("lbActivity"), static_cast<Qt::Key>(key));
        else
            QTest::mouseClick(label("lbActivity"), Qt::LeftButton);
        QCOMPARE(label("lbActivity")->text(), captions.at(1 - shown));
    }
}

void TestMainWindow::hidingLosesNothing_data()
{
    QTest::addColumn<QString>("way");
    for (const char *way : {"Esc", "button", "close"})
        QTest::newRow(way) << QString::fromLatin1(way);
}

// This desktop has no tray: a hidden window could not be shown again.
void TestMainWindow::hidingLosesNothing()
{
    QFETCH(QString, way);
    QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
    m_bench->form->startTracking();
    QCOMPARE(m_bench->form->notificationOffset(), m_bench->form->height());
    activate();
    if (way == QLatin1String("Esc"))
        QTest::keyClick(m_bench->form->windowHandle(), Qt::Key_Escape);
    else if (way == QLatin1String("button"))
        QTest::mouseClick(button("pbMinimize"), Qt::LeftButton);
    else
        m_bench->form->close();
    QTRY_VERIFY(m_bench->form->isMinimized());
    QVERIFY(!m_bench->form->isHidden());
    QVERIFY(m_bench->session()->isActive());
    QCOMPARE(m_bench->form->notificationOffset(), 0);
    emit m_bench->form->showAll();
    QTRY_VERIFY(!m_bench->form->isMinimized());
    QVERIFY(QTest::qWaitForWindowActive(m_bench->form.get()));
}

void TestMainWindow::trayComesAndGoes()
{
    QProcess host;
    host.start(QStringLiteral("trayer"), {QStringLiteral("--edge"), QStringLiteral("bottom")});
    QVERIFY2(host.waitForStarted(), "trayer is not installed");
    QTRY_VERIFY(QSystemTrayIcon::isSystemTrayAvailable());
    auto *tray = m_bench->form->findChild<QSystemTrayIcon *>();
    QTRY_VERIFY(tray->geometry().isValid());

    activate();
    QTest::keyClick(m_bench->form->windowHandle(), Qt::Key_Escape);
    QVERIFY(m_bench->form->isHidden());
    for (const bool shown : {true, false}) {
        emit tray->activated(QSystemTrayIcon::Trigger);
        QCOMPARE(m_bench->form->isVisible(), shown);
    }
    // Without the tray the window comes back by itself.
    host.kill();
    QVERIFY(host.waitForFinished());
    QTRY_VERIFY(m_bench->form->isVisible());
}

void TestMainWindow::onlineStateIsTold_data()
{
    QTest::addColumn<bool>("online");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QString>("text");
    QTest::newRow("back") << true << QString() << QStringLiteral("Переход в онлайн-режим.");
    QTest::newRow("lost") << false << QString() << QStringLiteral("Переход в оффлайн-режим.");
    QTest::newRow("unreachable") << false << QStringLiteral("Ошибка соединения. ")
                                 << QStringLiteral("Ошибка соединения. Переход в оффлайн-режим.");
}

void TestMainWindow::onlineStateIsTold()
{
    QFETCH(bool, online);
    QFETCH(QString, reason);
    m_bench->session()->setOnline(online);
    emit m_bench->orvana()->onlineChanged(reason);
    QCOMPARE(WindowBench::popupTexts().size(), 1);
    QTEST(WindowBench::popupTexts().constFirst(), "text");
    QCOMPARE(button("pbPlay")->styleSheet().contains(QStringLiteral("_Offline")), !online);
}

void TestMainWindow::noticeButton()
{
    const auto state = [this] { return button("pbNotice")->property("notices").toString(); };
    QCOMPARE(state(), QStringLiteral("none"));
    NotificationManager::instance()->addNotification(QStringLiteral("x"), TaskAdded, QString());
    QCOMPARE(state(), QStringLiteral("shown"));
    QTest::mouseClick(button("pbNotice"), Qt::LeftButton);
    QCOMPARE(state(), QStringLiteral("hidden"));
    QVERIFY(WindowBench::popupTexts().isEmpty());
    m_bench->child<QAction>("actionToggleVisible")->trigger();
    QCOMPARE(state(), QStringLiteral("shown"));
    QCOMPARE(WindowBench::popupTexts().size(), 1);
}

void TestMainWindow::changeOfAccount()
{
    const QString other = QStringLiteral("пётр+test@orvana.example");
    m_bench->form->startTracking();
    QTimer typist;
    connect(&typist, &QTimer::timeout, this, [&typist, &other] {
        const auto *login = qobject_cast<LoginForm *>(QApplication::activeModalWidget());
        if (!login)
            return;
        typist.stop();
        login->findChild<QLineEdit *>(QStringLiteral("lbEmail"))->setText(other);
        auto *password = login->findChild<QLineEdit *>(QStringLiteral("lbPassword"));
        password->setText(QStringLiteral("a+b&c=d% #;/\"я"));
        QTest::keyClick(password, Qt::Key_Return);
    });
    typist.start(10);
    m_bench->child<QAction>("actionChangeAccount")->trigger();
    QCOMPARE(m_bench->session()->login(), other);
    QCOMPARE(title()->text(), kPickTask);
    QVERIFY(!m_bench->session()->isActive());
    QVERIFY(m_bench->settle());
}

void TestMainWindow::menu()
{
    const QMenu *menu = button("pbMenu")->menu();
    QVERIFY(menu);
    QStringList texts;
    int separators = 0;
    const QList<QAction *> actions = menu->actions();
    for (const QAction *action : actions) {
        if (action->isSeparator())
            ++separators;
        else
            texts.append(action->text());
    }
    QCOMPARE(separators, 2);
    QCOMPARE(texts.size(), 5);
    for (const char *text : {"Выход", "Сменить учетную запись", "Автозапуск", "О программе"})
        QVERIFY2(texts.contains(QString::fromUtf8(text)), text);
}

void TestMainWindow::everyControlHasAName()
{
    const auto buttons = m_bench->form->findChildren<QPushButton *>();
    for (const QPushButton *candidate : buttons) {
        if (candidate->window() != m_bench->form.get())
            continue;
        QVERIFY2(!candidate->toolTip().isEmpty(), qPrintable(candidate->objectName()));
        QVERIFY2(!candidate->accessibleName().isEmpty(), qPrintable(candidate->objectName()));
    }
}

void TestMainWindow::tabOrder()
{
    const char *const order[] = {"pbTask",   "lbTask",       "pbMenu",     "pbMinimize",
                                 "pbPlay",   "lbActivity",   "pbTaskList", "pbComment",
                                 "pbNotice", "pbTimeExtend", "pbTask"};
    activate();
    button("pbTask")->setFocus();
    for (const char *name : order) {
        QVERIFY(QApplication::focusWidget());
        QCOMPARE(QApplication::focusWidget()->objectName(), QString::fromLatin1(name));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
}

void TestMainWindow::keyboardAlone()
{
    activate();
    QTest::keyClick(button("pbPlay"), Qt::Key_Space);
    QVERIFY(m_bench->session()->isActive());
    QTest::keyClick(button("pbPlay"), Qt::Key_Return);
    QVERIFY(!m_bench->session()->isActive());
    const auto *chooser = m_bench->form->findChild<TaskForm *>();
    for (QWidget *opener : {static_cast<QWidget *>(title()), static_cast<QWidget *>(button("pbTask"))}) {
        QTest::keyClick(opener, Qt::Key_Return);
        QVERIFY(chooser->isVisible());
        QTest::keyClick(chooser->windowHandle(), Qt::Key_Escape);
        QTRY_VERIFY(!chooser->isVisible());
    }
    QVERIFY(m_bench->settle());
}

void TestMainWindow::freeAreaDrags()
{
    MainForm *form = m_bench->form.get();
    const QRect area = form->screen()->availableGeometry();
    QCOMPARE(form->geometry().topRight(), area.topRight());
    const auto drag = [form](Qt::MouseButton button, const QPoint &by) {
        const QPoint from = form->pos() + QPoint(200, 120);
        QMouseEvent press(QEvent::MouseButtonPress, QPointF(200, 120), from, button, button, {});
        QCoreApplication::sendEvent(form, &press);
        QMouseEvent move(QEvent::MouseMove, QPointF(200, 120) + by, from + by, Qt::NoButton, button, {});
        QCoreApplication::sendEvent(form, &move);
    };
    const QPoint before = form->pos();
    drag(Qt::RightButton, QPoint(-50, 60));
    QCOMPARE(form->pos(), before);
    drag(Qt::LeftButton, QPoint(-50, 60));
    QTRY_COMPARE(form->pos(), before + QPoint(-50, 60));
}

void TestMainWindow::textsThatMove_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("visible");
    QTest::addColumn<bool>("moves");
    const QString longText =
        QString(40, QLatin1Char('w')) + QString(40, QLatin1Char(' ')) + QString(40, QLatin1Char('w'));
    QTest::newRow("fits") << QStringLiteral("w") << true << false;
    QTest::newRow("empty") << QString() << true << false;
    QTest::newRow("too long") << longText << true << true;
    QTest::newRow("too long, hidden") << longText << false << false;
    QTest::newRow("endless") << QString(1000000, QLatin1Char('w')) << true << true;
}

void TestMainWindow::textsThatMove()
{
    QFETCH(QString, text);
    QFETCH(bool, visible);
    QFETCH(bool, moves);
    QWidget window;
    auto *line = new ScrollText(true, &window);
    auto *atRest = new ScrollText(false, &window); // moves under the pointer only
    auto *box = new AutoScrollLineEdit(&window);
    line->setGeometry(0, 0, 100, 20);
    atRest->setGeometry(0, 20, 100, 20);
    box->setGeometry(0, 40, 100, 30);
    window.move(300, 400);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QCursor::setPos(0, 0);
    line->setVisible(visible);
    box->setVisible(visible);
    line->setText(text);
    atRest->setText(text);
    box->setText(text.left(2000));
    QCOMPARE(line->text(), text);
    QCOMPARE(line->isMoving(), moves);
    QCOMPARE(box->isMoving(), moves);
    QVERIFY(!atRest->isMoving());
    line->hide();
    box->hide();
    QVERIFY(!line->isMoving() && !box->isMoving());
    line->show();
    box->show();
    const bool isLong = text.size() > 1;
    QVERIFY(line->isMoving() == isLong && box->isMoving() == isLong);
    // A box that grows stops.
    line->resize(100000, 20);
    box->resize(20000, 400);
    QVERIFY(!line->isMoving() && !box->isMoving());
}

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
