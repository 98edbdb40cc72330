#include "base/timetexts.h"
#include "ui/loginform.h"
#include "ui/taskform.h"
#include "widgets/autoscrolllineedit.h"
#include "widgets/scrolltext.h"
#include "windowbench.h"

namespace {

const QString kTeam = s("17");
const QString kTask = s("1704");
const QString kOtherTask = s("1701");
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
        // The clock alone brings it up to date.
        label("lbOverdue")->hide();
        label("lbOverdueTime")->clear();
        form()->clock();
        QVERIFY(isShown() && label("lbOverdueTime")->text() == s("1д. 1ч. "));
        // The team moves it while it is shown.
        m_bench->server().edit([](localservice::World &world) {
            world.setDeadline(s("1703"), QDateTime::currentDateTime().addDays(1));
        });
        QVERIFY(m_bench->refresh());
        QVERIFY(!isShown());
    }

    void trayIcons()
    {
        const auto *tray = form()->findChild<QSystemTrayIcon *>();
        const auto verify = [tray](const char *name) {
            const QImage shown = tray->icon().pixmap(16).toImage();
            QCOMPARE(shown, QImage(s(":/icons/%1_16.png").arg(s(name))).convertToFormat(shown.format()));
        };
        verify("trayNotActive");
        NotificationManager::instance()->addNotification(s("x"), Plain, QString());
        verify("trayNotactive_attention");
        form()->startTracking();
        verify("trayActive_attention");
        WindowBench::dropPopups();
        verify("trayActive");
        QVERIFY(tray->toolTip().startsWith(s("Идёт запись")) && !tray->toolTip().contains(s("отправки")));
        m_bench->server().setOutage(localservice::Outage::Unavailable);
        // The third one changes nothing else.
        for (int i = 0; i < 3; ++i) {
            m_bench->orvana()->sendTaskActivity(1);
            QVERIFY(m_bench->settle());
        }
        form()->updateComments();
        QVERIFY2(tray->toolTip().contains(s("\n3 отчёта ждут отправки с ")), qPrintable(tray->toolTip()));
    }

    void withAndWithoutTask()
    {
        m_bench->server().edit([](localservice::World &world) {
            world.task(kTask)->title = s("<h1>A & B</h1>");
            world.task(kTask)->importance = 1;
            world.addComment(kTask, QDateTime(QDate(2024, 2, 3), QTime(4, 5)));
        });
        QVERIFY(m_bench->refresh());
        QCOMPARE(title()->text(), s("<h1>A & B</h1>"));
        QTextDocument toolTip;
        toolTip.setHtml(title()->toolTip());
        QCOMPARE(toolTip.toPlainText(), title()->text());
        QCOMPARE(label("lbComment")->text(), s("03.02 04:05"));
        verifyTaskIcon("pbTaskUrgentGrey");
        QVERIFY(button("pbPlay")->isCheckable() && button("pbTimeExtend")->isEnabled()
                && button("pbComment")->isEnabled());

        m_bench->session()->setCurrentTaskID(QString());
        QCOMPARE(title()->text(), kPickTask);
        QCOMPARE(title()->toolTip(), kPickTask);
        QCOMPARE(label("lbComment")->text(), QString());
        verifyTaskIcon("pbTask");
        QVERIFY(!button("pbPlay")->isCheckable() && !button("pbTimeExtend")->isEnabled()
                && !button("pbComment")->isEnabled());
        // A restart says what is missing.
        m_bench->restartWithoutWindow();
        WindowBench::dropPopups();
        m_bench->server().clearRequests();
        m_bench->form = std::make_unique<MainForm>(m_bench->orvana());
        QCOMPARE(WindowBench::popupTexts(), QStringList{s("Выберите задачу для начала работы.")});
        form()->show();
        for (const char *path : {"/api_get_active", "/monitor/ubuntu64/ortm.version"})
            QTRY_COMPARE(m_bench->server().requestsTo(s(path)).size(), 1);
        QVERIFY(m_bench->settle());
    }

    void controls_data()
    {
        addColumns<UserAction>("use");
        addUserAction("button", [this] { QTest::mouseClick(button("pbPlay"), Qt::LeftButton); });
        addUserAction("Space", [this] { QTest::keyClick(button("pbPlay"), Qt::Key_Space); });
        addUserAction("Enter", [this] { QTest::keyClick(button("pbPlay"), Qt::Key_Return); });
        addUserAction("menu", [this] { m_bench->child<QAction>("actionStartStop")->trigger(); });
        addUserAction("hot keys", [this] {
            if (m_bench->session()->isActive())
                form()->onStopTimerShortcut_activated();
            else
                form()->onStartTimerShortcut_activated();
        });
    }
    void controls()
    {
        QFETCH(UserAction, use);
        choose(QString());
        use();
        verifyTracking(false);
        choose(kTask);
        use();
        verifyTracking(true);
        use();
        verifyTracking(false);
        QCOMPARE(m_bench->child<QAction>("actionStartStop")->text(), s("Старт"));
    }

    void minuteAtOnce()
    {
        form()->startTracking();
        form()->sendActivity(true);
        QVERIFY(m_bench->settle());
        QCOMPARE(m_bench->server().reports().size(), 1);
        const localservice::Screenshot shot = m_bench->server().screenshots().value(0);
        QCOMPARE(shot.taskId, kTask);
        QCOMPARE(QImage::fromData(shot.jpeg, "JPG").size(), QGuiApplication::primaryScreen()->virtualSize());
    }

    void listsChangeWhileItRuns()
    {
        const auto change = [this](const std::function<void(localservice::World &)> &edit, bool continues) {
            WindowBench::dropPopups();
            m_bench->server().edit(edit);
            QVERIFY(m_bench->refresh());
            QCOMPARE(m_bench->session()->currentTaskID(), continues ? kTask : QString());
            verifyTracking(continues);
        };
        form()->startTracking();
        change([](localservice::World &world) { world.setBlock(kTask, s("1")); }, true);
        verifyTaskIcon("pbTaskBlocked");
        change(
            [](localservice::World &world) {
                world.setBlock(kTask, s("0"));
                world.setBlock(kOtherTask, s("1"));
            },
            false);
        m_bench->server().edit([](localservice::World &world) { world.setBlock(kOtherTask, s("0")); });
        QVERIFY(m_bench->refresh());
        choose(kTask);
        form()->startTracking();
        change([](localservice::World &world) { world.removeTask(kTask); }, false);
        QCOMPARE(WindowBench::popupTexts(),
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
        m_bench->server().edit([](localservice::World &world) { world.setBlock(kOtherTask, s("1")); });
        QVERIFY(m_bench->refresh());
        QVERIFY(m_bench->session()->isActive());
        startAgain(false);
        QCOMPARE(m_bench->session()->currentTaskID(), QString());
    }

    void clockShowsEitherTime()
    {
        m_bench->session()->setWorktime(QTime(8, 1, 2));
        m_bench->session()->setActiveTime(QTime(7, 3, 4));
        form()->updateTimerLbl();
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

    void onlineState()
    {
        for (const bool online : {false, true}) {
            WindowBench::dropPopups();
            m_bench->session()->setOnline(online);
            emit m_bench->orvana()->onlineChanged(s("Причина. "));
            QCOMPARE(
                WindowBench::popupTexts(),
                texts({online ? "Причина. Переход в онлайн-режим." : "Причина. Переход в оффлайн-режим."}));
            QCOMPARE(button("pbPlay")->styleSheet().contains(s("_Offline")), !online);
        }
    }

    void noticeButton()
    {
        const auto state = [this] { return button("pbNotice")->property("notices").toString(); };
        QCOMPARE(state(), s("none"));
        WindowBench::notify();
        QCOMPARE(state(), s("shown"));
        QTest::mouseClick(button("pbNotice"), Qt::LeftButton);
        QVERIFY(state() == s("hidden") && WindowBench::popupTexts().isEmpty());
        m_bench->child<QAction>("actionToggleVisible")->trigger();
        QVERIFY(state() == s("shown") && WindowBench::popupTexts().size() == 1);
    }

    void changeOfAccount()
    {
        const QString other = s("пётр+test@orvana.example");
        form()->startTracking();
        for (int i = 0; i < 20; ++i) // more than fit
            NotificationManager::instance()->addNotification(QString::number(i), TaskAdded, s("7"));
        const QStringList shown = WindowBench::popupTexts();
        QVERIFY(m_bench->signIn());
        QCOMPARE(WindowBench::popupTexts(), shown);
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
        verifyTracking(false);
        // What the other user was shown, or was still to see, is gone.
        NotificationManager::instance()->restoreAll();
        QCOMPARE(WindowBench::popupTexts().filter(s("Добавлена новая задача")), QStringList());
        // Left as it was: tracking.
        QVERIFY(m_bench->signIn());
        verifyTracking(true);
    }

    void chooserOpens()
    {
        const auto *chooser = form()->findChild<TaskForm *>();
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
        ScrollText line(true, &window);
        ScrollText atRest(false, &window); // moves under the pointer only
        AutoScrollLineEdit box(&window);
        line.setGeometry(0, 0, 100, 20);
        atRest.setGeometry(0, 20, 100, 20);
        box.setGeometry(0, 40, 100, 30);
        QCursor::setPos(0, 0);
        window.move(300, 400);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        for (const QString &text : {s("w"), s("w ").repeated(500000), s("w").repeated(100)}) {
            line.setText(text);
            atRest.setText(text);
            box.setText(text.left(2000));
            QCOMPARE(line.isMoving(), text.size() > 1);
            QVERIFY(box.isMoving() == line.isMoving() && !atRest.isMoving());
        }
        window.hide();
        QVERIFY(!line.isMoving() && !box.isMoving());
        // Down and up again, within the time that it has.
        QList<int> places;
        const int bottom = box.verticalScrollBar()->maximum();
        connect(box.verticalScrollBar(), &QScrollBar::valueChanged, this,
                [&](int value) { places += value; });
        box.setTimeToRead(500ms);
        window.show();
        QTRY_VERIFY(places.contains(bottom) && places.constLast() == 0);
        QVERIFY(places.at(places.indexOf(bottom) + 1) > 0);
    }

private:
    MainForm *form() const { return m_bench->form.get(); }
    void choose(const QString &task) { m_bench->orvana()->changeTask(kTeam, task); }
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
    QPushButton *button(const char *name) const { return m_bench->child<QPushButton>(name); }
    QLabel *label(const char *name) const { return m_bench->child<QLabel>(name); }
    ScrollText *title() const { return m_bench->child<ScrollText>("lbTask"); }
    std::unique_ptr<WindowBench> m_bench;
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
