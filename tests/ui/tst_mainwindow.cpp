#include "base/timetexts.h"
#include "realinput.h"
#include "rows.h"
#include "ui/loginform.h"
#include "ui/taskform.h"
#include "widgets/autoscrolllineedit.h"
#include "widgets/scrolltext.h"
#include "windowbench.h"

namespace {

const QString kTeam = s("17");
const QString kTask = s("1704");
const QString kPickTask = s("Выбрать задачу");

} // namespace

using namespace std::chrono_literals;

class TestMainWindow final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        QVERIFY(m_bench->openFor(kTask));
    }

    void cleanup() { m_bench.reset(); }

    void overdueTexts()
    {
        const QDateTime now(QDate(2024, 3, 1), QTime(10, 15, 30));
        const std::pair<int, const char *> rows[] = {{0, ""},
                                                     {59, ""},
                                                     {30 * 60, "30 мин."},
                                                     {3600, "1ч. "},
                                                     {86399, "23ч. 59 мин."},
                                                     {86400, "1д. "},
                                                     {25 * 3600, "1д. 1ч. "},
                                                     {2 * 86400 + 72420, "2д. 20ч. 7 мин."}};
        for (const auto &[seconds, text] : rows)
            QCOMPARE(overdueText(now.addSecs(-seconds), now), s(text));
        QCOMPARE(overdueText({}, now), QString());
        QCOMPARE(overdueText(QDateTime(QDate(2024, 2, 28), now.time()), now), s("2д. ")); // a leap day
    }

    void overdueLabels()
    {
        const auto isShown = [this] {
            return label("lbOverdue")->isVisible() && label("lbOverdueTime")->isVisible();
        };
        // None, the catch-all, an unknown one, without a deadline, due later.
        for (const QString &task : {QString(), s("0"), s("9"), kTask, s("1701")}) {
            m_bench->orvana()->changeTask(kTeam, s("1703"));
            QVERIFY(isShown());
            m_bench->orvana()->changeTask(kTeam, task);
            QVERIFY2(!isShown(), qPrintable(task));
        }
        m_bench->orvana()->changeTask(kTeam, s("1703"));
        QCOMPARE(label("lbOverdueTime")->text(), s("1д. 1ч. "));
        QCOMPARE(label("lbOverdue")->toolTip(), serviceDateTimeText(m_bench->session()->currentDeadline()));
        // The team moves it while it is shown.
        m_bench->server().edit([](localservice::World &world) {
            world.setDeadline(s("1703"), QDateTime::currentDateTime().addDays(1));
        });
        QVERIFY(m_bench->refresh());
        QVERIFY(!isShown());
    }

    void trayIcons()
    {
        const auto *tray = m_bench->form->findChild<QSystemTrayIcon *>();
        const auto verify = [tray](const char *name) {
            const QImage shown = tray->icon().pixmap(16).toImage();
            QCOMPARE(shown, QImage(s(":/icons/%1_16.png").arg(s(name))).convertToFormat(shown.format()));
        };
        verify("trayNotActive");
        NotificationManager::instance()->addNotification(s("x"), Plain, QString());
        verify("trayNotactive_attention");
        m_bench->form->startTracking();
        verify("trayActive_attention");
        WindowBench::dropPopups();
        verify("trayActive");
        QVERIFY(tray->toolTip().startsWith(s("Идёт запись")) && !tray->toolTip().contains(s("отправки")));
        m_bench->server().setOutage(localservice::Outage::Unavailable);
        for (int i = 0; i < 2; ++i)
            m_bench->orvana()->sendTaskActivity(1);
        QVERIFY(m_bench->settle());
        m_bench->form->updateTrayIcon();
        QVERIFY2(tray->toolTip().contains(s("\n2 отчёта ждут отправки с ")), qPrintable(tray->toolTip()));
    }

    void withAndWithoutTask()
    {
        m_bench->server().edit([](localservice::World &world) {
            world.task(kTask)->title = s("<h1>A & B</h1>");
            world.addComment(kTask, QDateTime(QDate(2024, 2, 3), QTime(4, 5)));
        });
        QVERIFY(m_bench->refresh());
        QCOMPARE(title()->text(), s("<h1>A & B</h1>"));
        QTextDocument toolTip;
        toolTip.setHtml(title()->toolTip());
        QCOMPARE(toolTip.toPlainText(), title()->text());
        QCOMPARE(label("lbComment")->text(), s("03.02 04:05"));
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
        QCOMPARE(WindowBench::popupTexts(), QStringList{s("Выберите задачу для начала работы.")});
    }

    void clockShowsEitherTime()
    {
        m_bench->session()->setWorktime(QTime(8, 1, 2));
        m_bench->session()->setActiveTime(QTime(7, 3, 4));
        m_bench->form->updateTimerLbl();
        const auto verify = [this](const char *caption, const char *time) {
            QCOMPARE(label("lbActivity")->text().trimmed(), s(caption));
            QCOMPARE(label("lbClock")->text(), s(time));
        };
        verify("Сегодня:", "08:01:02");
        QTest::mouseClick(label("lbActivity"), Qt::LeftButton);
        verify("Активного:", "07:03:04");
        QTest::keyClick(label("lbActivity"), Qt::Key_Space);
        verify("Сегодня:", "08:01:02");
    }

    // This desktop has no tray: a hidden window could not be shown again.
    void hidingLosesNothing()
    {
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        m_bench->form->startTracking();
        NotificationManager::instance()->addNotification(s("x"), TaskAdded, QString());
        const NotificationForm *popup = shownPopups().constFirst();
        for (const int way : {0, 1, 2}) {
            QCOMPARE(m_bench->form->notificationOffset(), m_bench->form->height());
            activate();
            if (way == 0)
                QTest::keyClick(m_bench->form->windowHandle(), Qt::Key_Escape);
            else if (way == 1)
                QTest::mouseClick(button("pbMinimize"), Qt::LeftButton);
            else
                m_bench->form->close();
            QTRY_VERIFY(m_bench->form->isMinimized());
            QVERIFY(!m_bench->form->isHidden() && m_bench->session()->isActive());
            QCOMPARE(m_bench->form->notificationOffset(), 0);
            QTRY_COMPARE(popup->y(), m_bench->form->notificationArea().y());
            emit m_bench->form->showAll();
            QTRY_VERIFY(!m_bench->form->isMinimized());
            QTRY_COMPARE(popup->y(), m_bench->form->notificationArea().y() + m_bench->form->height());
        }
    }

    // Also while the user works in another program and on another desktop.
    void staysInSight()
    {
        NotificationManager::instance()->addNotification(s("Макет"), TaskAdded, kTask);
        const QWidgetList windows{m_bench->form.get(), shownPopups().constFirst()};
        for (const bool isFirst : {true, false}) {
            for (QWidget *window : windows) {
                const QString id = QString::number(window->winId());
                QVERIFY(QTest::qWaitForWindowExposed(window));
                QTRY_COMPARE(propertyOf(id, s("_NET_WM_DESKTOP")), s("4294967295"));
                window->hide();
                QTRY_VERIFY(propertyOf(id, s("_NET_WM_DESKTOP")).isEmpty());
                window->setVisible(isFirst);
            }
        }
        const QString own = QString::number(m_bench->form->winId());
        m_bench->form->show();
        QTRY_COMPARE(propertyOf(own, s("_NET_WM_DESKTOP")), s("4294967295"));
        QCOMPARE(QProcess::execute(s("xdotool"), {s("set_num_desktops"), s("2")}), 0);
        QCOMPARE(QProcess::execute(s("xdotool"), {s("set_desktop_for_window"), own, s("1")}), 0);
        QTRY_COMPARE(propertyOf(own, s("_NET_WM_DESKTOP")), s("1"));
        emit m_bench->form->showAll();
        QTRY_COMPARE(propertyOf(own, s("_NET_WM_DESKTOP")), s("4294967295"));

        const QString popup = QString::number(windows.constLast()->winId());
        QVERIFY(
            propertyOf(popup, s("_NET_WM_WINDOW_TYPE")).startsWith(s("_NET_WM_WINDOW_TYPE_NOTIFICATION")));
        windows.constLast()->show();
        QTRY_VERIFY(propertyOf(popup, s("_NET_WM_STATE")).contains(s("SKIP_TASKBAR")));

        QWidget film;
        film.showFullScreen();
        film.activateWindow();
        QTRY_VERIFY(film.isActiveWindow());
        QTRY_COMPARE(propertyOf(QString::number(film.winId()), s("_NET_WM_STATE")), s("_NET_WM_STATE_FULLSCREEN"));
        NotificationManager::instance()->addNotification(s("Макет"), TaskAdded, kTask);
        const NotificationForm *over = shownPopups().constLast();
        QTRY_COMPARE(QGuiApplication::topLevelAt(over->geometry().center()), over->windowHandle());
    }

    void trayComesAndGoes()
    {
        QProcess host;
        host.start(s("trayer"), {s("--edge"), s("bottom")});
        QVERIFY2(host.waitForStarted(), "trayer is not installed");
        QTRY_VERIFY(QSystemTrayIcon::isSystemTrayAvailable());
        auto *tray = m_bench->form->findChild<QSystemTrayIcon *>();
        QTRY_VERIFY(tray->geometry().isValid());

        const auto toggle = [tray] { tray->contextMenu()->actions().constFirst()->trigger(); };
        // Another program's window, as it were: what is typed there stays there.
        QLineEdit other;
        other.setGeometry(200, 200, 400, 400);
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        NotificationManager::instance()->addNotification(s("x"), TaskAdded, QString());
        QVERIFY(QTest::qWaitForWindowExposed(shownPopups().constFirst()));
        for (const char *typed : {"1", "12"}) {
            toggle();
            QCOMPARE(m_bench->form->isHidden(), qstrcmp(typed, "1") == 0);
            if (m_bench->form->isVisible()) {
                QVERIFY(QTest::qWaitForWindowActive(m_bench->form.get()));
                other.activateWindow();
                QVERIFY(QTest::qWaitForWindowActive(&other));
            }
            QVERIFY(pressKeys(s(typed).right(1)) && pressKeys(s("Return")));
            QTRY_COMPARE(other.text(), s(typed));
            QCOMPARE(shownPopups().size(), 1);
        }
        // Seen, it is hidden; where it cannot be seen, it is shown instead.
        other.setWindowFlag(Qt::WindowStaysOnTopHint);
        other.showFullScreen();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        other.raise();
        const auto windowOnTop = [this] {
            return QGuiApplication::topLevelAt(m_bench->form->geometry().center());
        };
        QTRY_COMPARE(windowOnTop(), other.windowHandle());
        emit tray->activated(QSystemTrayIcon::Trigger);
        QVERIFY(m_bench->form->isVisible());
        other.hide();
        QTRY_COMPARE(windowOnTop(), m_bench->form->windowHandle());
        toggle();
        QVERIFY(m_bench->form->isHidden());
        // A double click shows it, whether the panel reports one click of it or two.
        for (const auto second : {QSystemTrayIcon::DoubleClick, QSystemTrayIcon::Trigger}) {
            m_bench->form->hide();
            emit tray->activated(QSystemTrayIcon::Trigger);
            QTRY_COMPARE(windowOnTop(), m_bench->form->windowHandle());
            emit tray->activated(second);
            QVERIFY(m_bench->form->isVisible());
        }
        QTRY_COMPARE(windowOnTop(), m_bench->form->windowHandle());
        toggle();
        QVERIFY(m_bench->form->isHidden());
        // Without the tray the window comes back by itself.
        host.kill();
        QVERIFY(host.waitForFinished());
        QTRY_VERIFY(m_bench->form->isVisible());
    }

    void dragging_data()
    {
        QTest::addColumn<bool>("isLogin");
        QTest::addColumn<QByteArray>("pressed"); // names of widgets, one after the other
        QTest::addColumn<bool>("moves");
        QTest::newRow("window") << false << QByteArray("MainForm") << true;
        QTest::newRow("plain label") << false << QByteArray("lbClock") << true;
        QTest::newRow("button") << false << QByteArray("pbTask") << false;
        QTest::newRow("login's bar") << true << QByteArray("wTop") << true;
        QTest::newRow("login's button") << true << QByteArray("pbClose") << false;
    }

    // Only by what has no meaning of its own, also after the window has been dragged.
    void dragging()
    {
        QFETCH(bool, isLogin);
        QFETCH(QByteArray, pressed);
        QFETCH(bool, moves);
        LoginForm login(m_bench->orvana());
        login.show();
        QVERIFY(QTest::qWaitForWindowExposed(&login));
        QWidget *form = isLogin ? static_cast<QWidget *>(&login) : m_bench->form.get();
        form->move(300, 300);
        QTRY_COMPARE(form->pos(), QPoint(300, 300));
        // Without the event loop in between: the window manager answers each move later.
        const auto drag = [form](const QByteArray &name) {
            QWidget *part = form->findChild<QWidget *>(QString::fromLatin1(name));
            QWidget *target = part ? part : form;
            const QPoint start = target->mapToGlobal(part ? part->rect().center() : QPoint(3, 3));
            const auto send = [&](QEvent::Type type, const QPoint &offset, Qt::MouseButtons held) {
                QMouseEvent event(type, target->mapFromGlobal(start + offset), start + offset,
                                  type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, held, {});
                QApplication::sendEvent(target, &event);
            };
            const QPoint before = form->pos();
            send(QEvent::MouseButtonPress, {}, Qt::LeftButton);
            send(QEvent::MouseMove, {50, 45}, Qt::LeftButton);
            send(QEvent::MouseMove, {60, 50}, Qt::LeftButton);
            const QPoint moved = form->pos() - before;
            send(QEvent::MouseButtonRelease, {60, 50}, Qt::NoButton);
            return moved;
        };
        drag(isLogin ? "wTop" : "MainForm");
        QTRY_COMPARE(form->pos(), QPoint(360, 350));
        QCOMPARE(drag(pressed), moves ? QPoint(60, 50) : QPoint());
    }

    void onlineStateIsTold()
    {
        const auto tell = [this](bool online, const char *reason, const char *text) {
            WindowBench::dropPopups();
            m_bench->session()->setOnline(online);
            emit m_bench->orvana()->onlineChanged(s(reason));
            QCOMPARE(WindowBench::popupTexts(), texts({text}));
            QCOMPARE(button("pbPlay")->styleSheet().contains(s("_Offline")), !online);
        };
        tell(false, "", "Переход в оффлайн-режим.");
        tell(true, "", "Переход в онлайн-режим.");
        tell(false, "Ошибка соединения. ", "Ошибка соединения. Переход в оффлайн-режим.");
    }

    void noticeButton()
    {
        const auto state = [this] { return button("pbNotice")->property("notices").toString(); };
        QCOMPARE(state(), s("none"));
        NotificationManager::instance()->addNotification(s("x"), TaskAdded, QString());
        QCOMPARE(state(), s("shown"));
        QTest::mouseClick(button("pbNotice"), Qt::LeftButton);
        QVERIFY(state() == s("hidden") && WindowBench::popupTexts().isEmpty());
        m_bench->child<QAction>("actionToggleVisible")->trigger();
        QVERIFY(state() == s("shown") && WindowBench::popupTexts().size() == 1);
    }

    void changeOfAccount()
    {
        const QString other = s("пётр+test@orvana.example");
        m_bench->form->startTracking();
        // More than fit.
        const auto addMany = [] {
            for (int i = 0; i < 20; ++i)
                NotificationManager::instance()->addNotification(QString::number(i), TaskAdded, s("7"));
        };
        addMany();
        const QStringList told = WindowBench::popupTexts();
        QVERIFY(m_bench->signIn());
        QCOMPARE(WindowBench::popupTexts(), told);
        QTimer typist;
        connect(&typist, &QTimer::timeout, this, [&typist, &other] {
            const auto *login = qobject_cast<LoginForm *>(QApplication::activeModalWidget());
            if (!login)
                return;
            typist.stop();
            login->findChild<QLineEdit *>(s("lbEmail"))->setText(other);
            auto *password = login->findChild<QLineEdit *>(s("lbPassword"));
            password->setText(s("a+b&c=d% #;/\"я"));
            QTest::keyClick(password, Qt::Key_Return);
        });
        typist.start(10);
        m_bench->child<QAction>("actionChangeAccount")->trigger();
        QCOMPARE(m_bench->session()->login(), other);
        QCOMPARE(title()->text(), kPickTask);
        QVERIFY(!m_bench->session()->isActive());
        // What was told to the other user is gone, shown or waiting.
        NotificationManager::instance()->restoreAll();
        QCOMPARE(WindowBench::popupTexts().filter(s("Добавлена новая задача")), QStringList());
        QVERIFY(m_bench->settle());
    }

    void keyboardAlone()
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

    void textsThatMove()
    {
        QWidget window;
        auto *line = new ScrollText(true, &window);
        auto *atRest = new ScrollText(false, &window); // moves under the pointer only
        auto *box = new AutoScrollLineEdit(&window);
        line->setGeometry(0, 0, 100, 20);
        atRest->setGeometry(0, 20, 100, 20);
        box->setGeometry(0, 40, 100, 30);
        QCursor::setPos(0, 0);
        window.move(300, 400);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        for (const QString &text : {s("w"), s("w ").repeated(500000), s("w").repeated(100)}) {
            line->setText(text);
            atRest->setText(text);
            box->setText(text.left(2000));
            QCOMPARE(line->isMoving(), text.size() > 1);
            QCOMPARE(box->isMoving(), text.size() > 1);
            QVERIFY(!atRest->isMoving());
        }
        window.hide();
        QVERIFY(!line->isMoving() && !box->isMoving());
        // Down and up again, within the time that it has.
        QList<int> places;
        const QScrollBar *bar = box->verticalScrollBar();
        connect(bar, &QScrollBar::valueChanged, box, [&places](int value) { places.append(value); });
        box->setTimeToRead(500ms);
        window.show();
        QTRY_VERIFY(places.contains(bar->maximum()) && places.constLast() == 0);
        const auto back = places.cbegin() + places.indexOf(bar->maximum()) + 1;
        QVERIFY(*back > 0);
    }

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

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
