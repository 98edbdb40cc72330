#include "realinput.h"
#include "ui/loginform.h"
#include "widgets/scrolltext.h"
#include "widgets/tooltips.h"
#include "windowbench.h"

#include <QAbstractEventDispatcher>

using localservice::World;

namespace {

const QString kTask = s("1704");
const QString kOtherTask = s("1701");
const QString kOverdueTask = s("1703");

void notify()
{
    NotificationManager::instance()->addNotification(s("x"), TaskAdded, kTask);
}

QString stateOf(const QWidget *window, const char *property)
{
    return propertyOf(QString::number(window->winId()), s(property));
}

} // namespace

// The main window by itself, and among the others of the desktop.
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

    void overdueLabels()
    {
        const auto shown = [this]() -> QString {
            return label("lbOverdue")->isVisible() ? s("!") + label("lbOverdueTime")->text() : QString();
        };
        // None, the catch-all, an unknown one, without a deadline, due later.
        for (const QString &task : {QString(), s("0"), s("9"), kTask, kOtherTask}) {
            choose(kOverdueTask);
            QCOMPARE(shown(), s("!1д. 1ч. "));
            choose(task);
            QVERIFY2(shown().isEmpty(), qPrintable(task));
        }
        // The clock alone brings it up to date, and so does each minute while the timer is stopped.
        choose(kOverdueTask);
        for (const auto &step : {&MainForm::clock, &MainForm::updateComments}) {
            label("lbOverdueTime")->setText(s("?"));
            (form()->*step)();
            QCOMPARE(shown(), s("!1д. 1ч. "));
        }
    }

    void trayIconAndNoticeButton()
    {
        const auto *tray = form()->findChild<QSystemTrayIcon *>();
        const auto verify = [&](const char *icon, const char *notices) {
            const QImage shown = tray->icon().pixmap(16).toImage();
            QCOMPARE(shown, QImage(s(":/icons/%1_16.png").arg(s(icon))).convertToFormat(shown.format()));
            QCOMPARE(button("pbNotice")->property("notices").toString(), s(notices));
        };
        verify("trayNotActive", "none");
        notify();
        verify("trayNotactive_attention", "shown");
        click(button("pbNotice"));
        verify("trayNotactive_attention", "hidden");
        m_bench->child<QAction>("actionToggleVisible")->trigger();
        form()->startTracking();
        verify("trayActive_attention", "shown");
        WindowBench::dropPopups();
        verify("trayActive", "none");
        QVERIFY(tray->toolTip().startsWith(s("Идёт запись")) && !tray->toolTip().contains(s("отправки")));
        m_bench->server().setOutage(localservice::Outage::Unavailable);
        m_bench->orvana()->sendTaskActivity(1);
        m_bench->orvana()->sendTaskActivity(1);
        QVERIFY(m_bench->settle());
        form()->updateComments();
        QVERIFY2(tray->toolTip().contains(s("\n2 отчёта ждут отправки с ")), qPrintable(tray->toolTip()));
        QVERIFY(popupTexts().join(s("|")).endsWith(s("Переход в оффлайн-режим.")));
        QVERIFY(button("pbPlay")->styleSheet().contains(s("pbPause_Offline")));
        m_bench->server().setOutage(localservice::Outage::None);
        QVERIFY(m_bench->refresh());
        QVERIFY(popupTexts().join(s("|")).contains(s("Переход в онлайн-режим.")));
    }

    void withAndWithoutTask()
    {
        const auto verify = [this](const char *text, const char *icon, bool hasTask) {
            QCOMPARE(title()->text(), s(text));
            QCOMPARE(title()->toolTip(), literalToolTip(s(text)));
            verifyTaskIcon(icon);
            QCOMPARE(button("pbTimeExtend")->isEnabled(), hasTask);
            QCOMPARE(button("pbComment")->isEnabled(), hasTask);
        };
        QVERIFY(m_bench->change([](World &world) {
            world.task(kTask)->title = s("<h1>A & B</h1>");
            world.task(kTask)->importance = 1;
        }));
        verify("<h1>A & B</h1>", "pbTaskUrgentGrey", true);
        m_bench->session()->setCurrentTaskID(QString());
        verify("Выбрать задачу", "pbTask", false);
    }

    void controls()
    {
        const std::function<void()> ways[] = {
            [this] { click(button("pbPlay")); },
            [this] { QTest::keyClick(button("pbPlay"), Qt::Key_Space); },
            [this] { m_bench->child<QAction>("actionStartStop")->trigger(); },
        };
        for (const auto &use : ways) {
            choose(QString());
            use();
            verifyTracking(false);
            choose(kTask);
            use();
            verifyTracking(true);
            use();
            verifyTracking(false);
        }
        press(title());
        QTRY_VERIFY(form()->findChild<TaskForm *>());
        QTRY_VERIFY(form()->findChild<TaskForm *>()->isVisible());
        QVERIFY(m_bench->settle());
    }

    void listsChangeWhileItRuns()
    {
        const auto block = [](const QString &task, const char *mark) {
            return [task, mark](World &world) { world.setBlock(task, s(mark)); };
        };
        form()->startTracking();
        form()->sendActivity(true);
        QVERIFY(m_bench->change(block(kTask, "1")));
        verifyTracking(true);
        verifyTaskIcon("pbTaskBlocked");
        QCOMPARE(m_bench->server().reports().size(), 1);
        const localservice::Screenshot shot = m_bench->server().screenshots().value(0);
        QCOMPARE(shot.taskId, kTask);
        QCOMPARE(QImage::fromData(shot.jpeg, "JPG").size(), QGuiApplication::primaryScreen()->virtualSize());
        // The blocking task is another.
        m_bench->server().edit(block(kTask, "0"));
        QVERIFY(m_bench->change(block(kOtherTask, "1")));
        QCOMPARE(m_bench->session()->currentTaskID(), QString());
        verifyTracking(false);
        QVERIFY(m_bench->change(block(kOtherTask, "0")));
        choose(kTask);
        form()->startTracking();
        WindowBench::dropPopups();
        QVERIFY(m_bench->change([](World &world) { world.removeTask(kTask); }));
        verifyTracking(false);
        QCOMPARE(popupTexts(),
                 texts({"Задача \"Ответить на письма читателей\" более недоступна",
                        "Запись активности остановлена!"}));
    }

    void restart()
    {
        const auto startAgain = [this](bool tracks) {
            m_bench->restartWithoutWindow();
            QVERIFY(m_bench->openWindow());
            verifyTracking(tracks);
        };
        startAgain(false);
        form()->startTracking();
        startAgain(true);
        // What was tracked must not be tracked now.
        m_bench->form.reset();
        QVERIFY(m_bench->change([](World &world) { world.setBlock(kOtherTask, s("1")); }));
        QVERIFY(m_bench->session()->isActive());
        m_bench->restartWithoutWindow();
        WindowBench::dropPopups();
        m_bench->form = std::make_unique<MainForm>(m_bench->orvana());
        QVERIFY(popupTexts().contains(s("Выберите задачу для начала работы.")));
        QCOMPARE(m_bench->session()->currentTaskID(), QString());
        verifyTracking(false);
    }

    void clockShowsEitherTime()
    {
        m_bench->session()->setWorktime(QTime(8, 1, 2));
        m_bench->session()->setActiveTime(QTime(7, 3, 4));
        form()->updateTimerLbl();
        const auto shown = [this] {
            return QString(label("lbActivity")->text().trimmed() + label("lbClock")->text());
        };
        QCOMPARE(shown(), s("Сегодня:08:01:02"));
        click(label("lbActivity"));
        QCOMPARE(shown(), s("Активного:07:03:04"));
        press(label("lbActivity"));
        QTRY_COMPARE(shown(), s("Сегодня:08:01:02"));
        form()->hide();
        m_bench->session()->setWorktime(QTime(8, 2, 3));
        form()->show();
        QCOMPARE(shown(), s("Сегодня:08:02:03"));
    }

    void changeOfAccount()
    {
        form()->startTracking();
        for (int i = 0; i < 20; ++i) // more than fit
            notify();
        const QStringList shown = popupTexts();
        QVERIFY(m_bench->signIn());
        QCOMPARE(popupTexts(), shown);
        whenOpen<LoginForm>(this, [](LoginForm *login) {
            part<QLineEdit>(login, "lbEmail")->setText(s("пётр+test@orvana.example"));
            auto *password = part<QLineEdit>(login, "lbPassword");
            password->setText(s("a+b&c=d% #;/\"я"));
            QTest::keyClick(password, Qt::Key_Return);
        });
        m_bench->child<QAction>("actionChangeAccount")->trigger();
        QCOMPARE(m_bench->session()->login(), s("пётр+test@orvana.example"));
        QCOMPARE(title()->text(), s("Выбрать задачу"));
        verifyTracking(false);
        // What the other user was shown, or was still to see, is gone.
        NotificationManager::instance()->restoreAll();
        QCOMPARE(popupTexts().filter(s("Добавлена новая задача")), QStringList());
        // Left as it was: tracking.
        QVERIFY(m_bench->signIn());
        verifyTracking(true);
    }

    // This desktop has no tray: a hidden window could not be shown again.
    void hiding()
    {
        form()->startTracking();
        notify();
        const NotificationForm *popup = shownPopups().constFirst();
        for (const bool byKey : {true, false}) {
            form()->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(form()));
            if (byKey)
                QTest::keyClick(form()->windowHandle(), Qt::Key_Escape);
            else
                form()->close(); // as the window manager does
            QTRY_VERIFY(form()->isMinimized());
            QVERIFY(!form()->isHidden() && m_bench->session()->isActive());
            QTRY_COMPARE(popup->y(), form()->notificationArea().y());
            emit form()->showAll();
            QTRY_VERIFY(!form()->isMinimized());
            QTRY_COMPARE(popup->y(), form()->notificationArea().y() + form()->height());
        }
    }

    // Also while the user works in another program and on another desktop.
    void staysInSight()
    {
        const auto desktop = [this] { return stateOf(form(), "_NET_WM_DESKTOP"); };
        const QString everyDesktop = s("4294967295");
        QTRY_COMPARE(desktop(), everyDesktop);
        // Somebody sends it to one of them.
        QVERIFY(xdotool(s("set_num_desktops"), {s("2")}));
        QVERIFY(xdotool(s("set_desktop_for_window"), {QString::number(form()->winId()), s("1")}));
        QTRY_COMPARE(desktop(), s("1"));
        emit form()->showAll();
        QTRY_COMPARE(desktop(), everyDesktop);
        QWidget film;
        film.showFullScreen();
        film.activateWindow();
        QTRY_VERIFY(film.isActiveWindow() && stateOf(&film, "_NET_WM_STATE").contains(s("FULLSCREEN")));
        notify();
        const NotificationForm *popup = shownPopups().constFirst();
        QTRY_COMPARE(QGuiApplication::topLevelAt(popup->geometry().center()), popup->windowHandle());
    }

    void trayComesAndGoes()
    {
        QProcess host;
        host.start(s("trayer"), {s("--edge"), s("bottom")});
        QVERIFY2(host.waitForStarted(), "trayer is not installed");
        QTRY_VERIFY(QSystemTrayIcon::isSystemTrayAvailable());
        auto *tray = form()->findChild<QSystemTrayIcon *>();
        QTRY_VERIFY(tray->geometry().isValid());
        const auto windowOnTop = [this] { return QGuiApplication::topLevelAt(form()->geometry().center()); };
        // In sight, it is hidden; covered, it is shown.
        QWidget other;
        other.setWindowFlag(Qt::WindowStaysOnTopHint);
        other.showFullScreen();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        other.raise();
        QTRY_COMPARE(windowOnTop(), other.windowHandle());
        emit tray->activated(QSystemTrayIcon::Trigger);
        QVERIFY(form()->isVisible());
        other.hide();
        // A double click shows it, whether the panel reports one click of it or two.
        for (const auto second : {QSystemTrayIcon::DoubleClick, QSystemTrayIcon::Trigger}) {
            form()->hide();
            emit tray->activated(QSystemTrayIcon::Trigger);
            QTRY_COMPARE(windowOnTop(), form()->windowHandle());
            emit tray->activated(second);
            QVERIFY(form()->isVisible());
        }
        // Without the tray the window comes back by itself.
        tray->contextMenu()->actions().constFirst()->trigger();
        QVERIFY(form()->isHidden());
        host.kill();
        QVERIFY(host.waitForFinished());
        QTRY_VERIFY(form()->isVisible());
    }

    // Three times: rests at both ends, and a step for each pixel in between. Under the pointer without end.
    void longTitleComesToRest()
    {
        constexpr int kMany = 10'000;
        const auto endAll = [this] {
            int ended = 0;
            for (; title()->isMoving() && ended < kMany; ++ended) {
                QTimerEvent end(
                    QAbstractEventDispatcher::instance()->registeredTimers(title()).first().timerId);
                QCoreApplication::sendEvent(title(), &end);
            }
            return ended;
        };
        QEvent leave(QEvent::Leave); // wherever the pointer is
        QCoreApplication::sendEvent(title(), &leave);
        title()->setText(QString(200, QLatin1Char('w')));
        const int hidden = title()->sizeHint().width() - title()->width();
        QCOMPARE(endAll(), 3 * (hidden + 2));
        for (const auto &[type, isEndless] : {std::pair{QEvent::Enter, true}, {QEvent::Leave, false}}) {
            QEvent event(type);
            QCoreApplication::sendEvent(title(), &event);
            QCOMPARE(endAll() == kMany, isEndless);
        }
    }

    // Only by what has no meaning of its own, also after the window has been dragged.
    void dragging()
    {
        const QPoint before = form()->pos();
        const QPoint by(-60, 50);
        drag(form(), by);
        drag(button("pbTask"), by);
        drag(label("lbClock"), by);
        QCOMPARE(form()->pos(), before + 2 * by);
    }

    // A window manager that does not say it would move windows may have put it anywhere. Comes last: this one
    // says so for the rest of its life.
    void popupsKeepClear()
    {
        const QString hint = s("_NET_SUPPORTED");
        const QStringList change = {s("-root"), s("-f"), hint, s("32a"), s("-set"), hint, s("_NET_WM_STATE")};
        QCOMPARE(QProcess::execute(s("xprop"), change), 0);
        const QRect area = form()->screen()->availableGeometry();
        const int corner = area.right() + 1 - form()->width();
        for (const int top : {form()->height() / 2, area.bottom() + 1 - form()->height()}) {
            form()->move(corner, top);
            QTRY_COMPARE(form()->pos(), QPoint(corner, top));
            notify();
            notify();
            for (const NotificationForm *popup : shownPopups())
                QTRY_VERIFY(area.contains(popup->geometry())
                            && !popup->geometry().intersects(form()->geometry()));
        }
    }

private:
    MainForm *form() const { return m_bench->form.get(); }
    void choose(const QString &task) { m_bench->orvana()->changeTask(s("17"), task); }
    void verifyTracking(bool tracking)
    {
        QCOMPARE(m_bench->session()->isActive(), tracking);
        QCOMPARE(button("pbPlay")->isCheckable(), !m_bench->session()->currentTaskID().isEmpty());
        QCOMPARE(button("pbPlay")->isChecked(), tracking);
        QCOMPARE(button("pbPlay")->styleSheet().contains(s("pbPause")), tracking);
        QCOMPARE(m_bench->child<QAction>("actionStartStop")->text() == s("Стоп"), tracking);
        QCOMPARE(m_bench->child<QTimer>("sendActivityTimer")->isActive(), tracking);
    }
    void verifyTaskIcon(const char *image)
    {
        const QIcon expected(s(":/images/%1.png").arg(s(image)));
        QCOMPARE(button("pbTask")->icon().pixmap(16).toImage(), expected.pixmap(16).toImage());
    }
    QPushButton *button(const char *name) const { return m_bench->child(name); }
    QLabel *label(const char *name) const { return m_bench->child<QLabel>(name); }
    ScrollText *title() const { return m_bench->child<ScrollText>("lbTask"); }
    std::unique_ptr<WindowBench> m_bench;
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
