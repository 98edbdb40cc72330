#include "realinput.h"
#include "windowbench.h"

// The main window among the others of the desktop.
class TestWindowPlace final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        QVERIFY(m_bench->openFor(s("1704")));
    }

    void cleanup() { m_bench.reset(); }

    void hiding_data()
    {
        addColumns<UserAction>("hide");
        addUserAction("Escape", [this] { QTest::keyClick(form()->windowHandle(), Qt::Key_Escape); });
        addUserAction("button", [this] {
            QTest::mouseClick(m_bench->child<QPushButton>("pbMinimize"), Qt::LeftButton);
        });
        addUserAction("window manager", [this] { form()->close(); });
    }
    // This desktop has no tray: a hidden window could not be shown again.
    void hiding()
    {
        QFETCH(UserAction, hide);
        form()->startTracking();
        WindowBench::notify();
        const NotificationForm *popup = shownPopups().constFirst();
        form()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(form()));
        hide();
        QTRY_VERIFY(form()->isMinimized());
        QVERIFY(!form()->isHidden() && m_bench->session()->isActive());
        QCOMPARE(form()->notificationOffset(), 0);
        QTRY_COMPARE(popup->y(), form()->notificationArea().y());
        emit form()->showAll();
        QTRY_VERIFY(!form()->isMinimized());
        QTRY_COMPARE(popup->y(), form()->notificationArea().y() + form()->height());
    }

    // Also while the user works in another program and on another desktop.
    void staysInSight()
    {
        const QString everyDesktop = s("4294967295");
        WindowBench::notify();
        const NotificationForm *popup = shownPopups().constFirst();
        QTRY_COMPARE(desktopOf(popup), everyDesktop);
        QVERIFY(propertyOf(idOf(popup), s("_NET_WM_WINDOW_TYPE"))
                    .startsWith(s("_NET_WM_WINDOW_TYPE_NOTIFICATION")));
        QTRY_VERIFY(propertyOf(idOf(popup), s("_NET_WM_STATE")).contains(s("SKIP_TASKBAR")));
        for (const bool shown : {true, false, true}) {
            form()->setVisible(shown);
            QTRY_COMPARE(desktopOf(form()), shown ? everyDesktop : QString());
        }
        // Somebody sends it to one of them.
        QVERIFY(xdotool(s("set_num_desktops"), {s("2")}));
        QVERIFY(xdotool(s("set_desktop_for_window"), {idOf(form()), s("1")}));
        QTRY_COMPARE(desktopOf(form()), s("1"));
        emit form()->showAll();
        QTRY_COMPARE(desktopOf(form()), everyDesktop);

        QWidget film;
        film.showFullScreen();
        film.activateWindow();
        QTRY_VERIFY(film.isActiveWindow());
        QTRY_COMPARE(propertyOf(idOf(&film), s("_NET_WM_STATE")), s("_NET_WM_STATE_FULLSCREEN"));
        WindowBench::notify();
        const NotificationForm *over = shownPopups().constLast();
        QTRY_COMPARE(QGuiApplication::topLevelAt(over->geometry().center()), over->windowHandle());
    }

    void trayComesAndGoes()
    {
        QProcess host;
        host.start(s("trayer"), {s("--edge"), s("bottom")});
        QVERIFY2(host.waitForStarted(), "trayer is not installed");
        QTRY_VERIFY(QSystemTrayIcon::isSystemTrayAvailable());
        auto *tray = form()->findChild<QSystemTrayIcon *>();
        QTRY_VERIFY(tray->geometry().isValid());

        const auto toggle = [tray] { tray->contextMenu()->actions().constFirst()->trigger(); };
        const auto windowOnTop = [this] { return QGuiApplication::topLevelAt(form()->geometry().center()); };
        // Stands for another program's window: what is typed there stays there.
        QLineEdit other;
        other.setGeometry(200, 200, 400, 400);
        other.show();
        WindowBench::notify();
        for (const bool hides : {true, false}) {
            toggle();
            QCOMPARE(form()->isHidden(), hides);
            QVERIFY(hides || QTest::qWaitForWindowActive(form()));
            other.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&other));
            other.clear();
            QVERIFY(pressKeys(s("x")) && pressKeys(s("Return")));
            QTRY_COMPARE(other.text(), s("x"));
            QCOMPARE(shownPopups().size(), 1);
        }
        // In sight, it is hidden; covered, it is shown.
        other.setWindowFlag(Qt::WindowStaysOnTopHint);
        other.showFullScreen();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        other.raise();
        QTRY_COMPARE(windowOnTop(), other.windowHandle());
        emit tray->activated(QSystemTrayIcon::Trigger);
        QVERIFY(form()->isVisible());
        other.hide();
        QTRY_COMPARE(windowOnTop(), form()->windowHandle());
        toggle();
        QVERIFY(form()->isHidden());
        // A double click shows it, whether the panel reports one click of it or two.
        for (const auto second : {QSystemTrayIcon::DoubleClick, QSystemTrayIcon::Trigger}) {
            form()->hide();
            emit tray->activated(QSystemTrayIcon::Trigger);
            QTRY_COMPARE(windowOnTop(), form()->windowHandle());
            emit tray->activated(second);
            QVERIFY(form()->isVisible());
        }
        toggle();
        QVERIFY(form()->isHidden());
        // Without the tray the window comes back by itself.
        host.kill();
        QVERIFY(host.waitForFinished());
        QTRY_VERIFY(form()->isVisible());
    }

    // Only by what has no meaning of its own, also after the window has been dragged.
    void dragging()
    {
        form()->move(300, 300);
        QTRY_COMPARE(form()->pos(), QPoint(300, 300));
        drag(form());
        QTRY_COMPARE(form()->pos(), QPoint(360, 350));
        drag(m_bench->child<QPushButton>("pbTask"));
        QCOMPARE(form()->pos(), QPoint(360, 350));
        drag(m_bench->child<QLabel>("lbClock"));
        QCOMPARE(form()->pos(), QPoint(420, 400));
    }

private:
    static QString idOf(const QWidget *window) { return QString::number(window->winId()); }
    static QString desktopOf(const QWidget *window) { return propertyOf(idOf(window), s("_NET_WM_DESKTOP")); }
    // Without the event loop in between: the window manager answers each move later.
    static void drag(QWidget *target)
    {
        const QPoint start = target->mapToGlobal(QPoint(3, 3));
        const auto send = [&](QEvent::Type type, const QPoint &offset, Qt::MouseButton button,
                              Qt::MouseButtons held) {
            QMouseEvent event(type, target->mapFromGlobal(start + offset), start + offset, button, held, {});
            QApplication::sendEvent(target, &event);
        };
        send(QEvent::MouseButtonPress, {}, Qt::LeftButton, Qt::LeftButton);
        send(QEvent::MouseMove, {50, 45}, Qt::NoButton, Qt::LeftButton);
        send(QEvent::MouseMove, {60, 50}, Qt::NoButton, Qt::LeftButton);
        send(QEvent::MouseButtonRelease, {60, 50}, Qt::LeftButton, Qt::NoButton);
    }
    MainForm *form() const { return m_bench->form.get(); }

    std::unique_ptr<WindowBench> m_bench;
};

QTEST_MAIN(TestWindowPlace)
#include "tst_windowplace.moc"
