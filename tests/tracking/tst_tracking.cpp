#include "rows.h"
#include "tracking/x11_useractivitywatcher.h"
#include "windowbench.h"

#include <QScreen>

#include <array>
#include <functional>

namespace {

const QString kTeam = s("17");
const QString kTask = s("1704");
const QString kOtherTask = s("1701");
const char *const kTrackingTimers[] = {"sendActivityTimer", "clockTimer", "screenshotTimer",
                                       "activityMessageTimer"};

} // namespace

class TestTracking final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_bench = std::make_unique<WindowBench>();
        QVERIFY(m_bench->openFor(kTask));
    }

    void cleanup() { m_bench.reset(); }

    void timers()
    {
        const std::tuple<const char *, int, bool> rows[] = {
            {"sendActivityTimer", 6000, false},       {"clockTimer", 1000, false},
            {"activityMessageTimer", 1800000, false}, {"screenshotTimer", 300000, false},
            {"checkUpdateTimer", 3600000, true},      {"checkNeedCloseTimer", 1000, true},
            {"updateCommentsTimer", 60000, true},     {"syncTimeTimer", 1740000, true}};
        for (const auto &[name, interval, always] : rows) {
            const auto *timer = m_bench->child<QTimer>(name);
            QVERIFY2(timer && timer->interval() == interval && !timer->isSingleShot(), name);
            QCOMPARE(timer->isActive(), always);
            // A coarse timer would make minutes longer.
            QVERIFY2(interval > 6000 || always || timer->timerType() == Qt::PreciseTimer, name);
        }
    }

    void minuteIsReported()
    {
        // What came before the start is not of this minute.
        emit UserActivityWatcher::instance()->wasActivity();
        press("pbPlay");
        int minutes = 0;
        int activeMinutes = 0;
        for (const QByteArray &slices :
             {QByteArray("0000000000"), QByteArray("1002090001"), QByteArray("3333333333")}) {
            for (int second = 0; second < 60; ++second)
                m_bench->form->clock();
            for (const char events : slices) {
                QCOMPARE(m_bench->orvana()->pendingActivityRequests(), 0);
                slice(events - '0');
            }
            const int active = 10 - slices.count('0');
            activeMinutes += active > 0 ? 1 : 0;
            ++minutes;
            QTRY_COMPARE(m_bench->server().reports().size(), minutes);
            const localservice::ActivityReport report = m_bench->server().reports().constLast();
            QCOMPARE(report.active, active);
            QCOMPARE(report.email, TestClient::anna());
            QCOMPARE(report.teamId + report.taskId, kTeam + kTask);
            // One active slice makes the whole minute active; without any, the clock that
            // ran on by seconds falls back.
            QCOMPARE(countedWorktime(), QTime(0, minutes));
            QCOMPARE(m_bench->session()->todayActiveTime(), QTime(0, activeMinutes));
            QCOMPARE(m_bench->session()->todayActiveTimeDisplayed(), QTime(0, activeMinutes));
            QCOMPARE(m_bench->session()->todayActiveTime(kTask), QTime(0, activeMinutes));
            QVERIFY(m_bench->settle());
        }
    }

    void unfinishedMinuteIsDropped()
    {
        press("pbPlay");
        for (int second = 0; second < 59; ++second)
            m_bench->form->clock();
        QCOMPARE(m_bench->child<QLabel>("lbClock")->text(), s("00:00:59"));
        for (int i = 0; i < 9; ++i)
            slice(1);
        press("pbPlay");
        verifyTracking(false);
        QCOMPARE(m_bench->child<QAction>("actionStartStop")->text(), s("Старт"));
        QCOMPARE(m_bench->child<QLabel>("lbClock")->text(), s("00:00:00"));
        press("pbPlay");
        for (int i = 0; i < 9; ++i)
            slice();
        QCOMPARE(m_bench->orvana()->pendingActivityRequests(), 0);
        slice();
        QTRY_COMPARE(m_bench->server().reports().size(), 1);
        QCOMPARE(m_bench->server().reports().constFirst().active, 0);
        QCOMPARE(countedWorktime(), QTime(0, 1));
    }

    void forcedMinuteBringsItsPicture()
    {
        press("pbPlay");
        slice(1);
        emit UserActivityWatcher::instance()->wasActivity();
        m_bench->form->sendActivity(true);
        QTRY_COMPARE(m_bench->server().reports().size(), 1);
        QCOMPARE(m_bench->server().reports().constFirst().active, 2);
        QTRY_COMPARE(m_bench->server().screenshots().size(), 1);
        const localservice::Screenshot shot = m_bench->server().screenshots().constFirst();
        QCOMPARE(shot.taskId, kTask);
        QCOMPARE(QImage::fromData(shot.jpeg, "JPG").size(), QGuiApplication::primaryScreen()->virtualSize());
        QVERIFY(m_bench->settle());
        QCOMPARE(countedWorktime(), QTime(0, 1));
    }

    void pictures()
    {
        // s: start, p: stop, d: the period ends, m: a minute; whether the period runs then, and the pictures.
        const std::tuple<const char *, bool, int> rows[] = {{"smmm", true, 0},   {"sdmmm", true, 1},
                                                            {"sdmmdm", true, 2}, {"smpsm", true, 0},
                                                            {"sdps", false, 0},  {"sdpsm", true, 1}};
        for (const auto &[steps, periodRuns, shots] : rows) {
            cleanup();
            init();
            for (const char step : QByteArray(steps)) {
                if (step == 'd') {
                    m_bench->form->screenshotTimeout();
                } else if (step == 'm') {
                    minute();
                    // Two pictures of one second would share a name.
                    QVERIFY(m_bench->settle());
                } else {
                    press("pbPlay");
                }
            }
            QVERIFY2(runs("screenshotTimer") == periodRuns, steps);
            QVERIFY(m_bench->settle());
            QCOMPARE(m_bench->server().screenshots().size(), shots);
            QCOMPARE(m_bench->server().reports().size(), QByteArray(steps).count('m'));
        }
    }

    void controls()
    {
        const struct
        {
            std::function<void()> use;
            bool starts;
            bool stops;
        } controls[] = {{[this] { press("pbPlay"); }, true, true},
                        {[this] { m_bench->child<QAction>("actionStartStop")->trigger(); }, true, true},
                        {[this] { m_bench->form->onStartTimerShortcut_activated(); }, true, false},
                        {[this] { m_bench->form->onStopTimerShortcut_activated(); }, false, true}};
        for (const auto &control : controls) {
            choose(QString());
            control.use();
            verifyTracking(false);
            choose(kTask);
            control.use();
            verifyTracking(control.starts);
            if (!control.starts)
                m_bench->form->startTracking();
            slice(1);
            control.use();
            verifyTracking(!control.stops);
            // Started again, a minute goes on; it does not begin anew.
            for (int i = 1; i < 10 && !control.stops; ++i)
                slice();
            m_bench->form->stopTracking();
        }
        QTRY_COMPARE(m_bench->server().reports().size(), 1);
        QCOMPARE(m_bench->server().reports().constFirst().active, 1);
    }

    void listsChangeWhileItRuns()
    {
        const QString gone = s("Задача \"%1\" более недоступна");
        const auto change = [this](const std::function<void(localservice::World &)> &edit, bool goesOn) {
            WindowBench::dropPopups();
            m_bench->server().edit(edit);
            QVERIFY(m_bench->refresh());
            QCOMPARE(m_bench->session()->currentTaskID(), goesOn ? kTask : QString());
            verifyTracking(goesOn);
        };
        press("pbPlay");
        change([](localservice::World &world) { world.removeTask(s("1706")); }, true);
        QCOMPARE(WindowBench::popupTexts().size(), 1);
        change([](localservice::World &world) { world.setBlock(kTask, s("1")); }, true);
        // Another task blocks this one.
        change(
            [](localservice::World &world) {
                world.setBlock(kTask, s("0"));
                world.setBlock(kOtherTask, s("1"));
            },
            false);
        QVERIFY(!m_bench->child<QPushButton>("pbPlay")->isCheckable());
        m_bench->server().edit([](localservice::World &world) { world.setBlock(kOtherTask, s("0")); });
        QVERIFY(m_bench->refresh());
        choose(kTask);
        press("pbPlay");
        change([](localservice::World &world) { world.removeTask(kTask); }, false);
        QCOMPARE(
            WindowBench::popupTexts(),
            (QStringList{gone.arg(s("Ответить на письма читателей")), s("Запись активности остановлена!")}));
    }

    void restart()
    {
        const auto startAgain = [this](bool tracks) {
            m_bench->form.reset();
            m_bench->restartWithoutWindow();
            QVERIFY(m_bench->openWindow());
            verifyTracking(tracks);
        };
        startAgain(false);
        press("pbPlay");
        startAgain(true);
        minute(7);
        QTRY_COMPARE(m_bench->server().reports().size(), 1);
        QCOMPARE(m_bench->server().reports().constFirst().active, 7);
        // What was tracked may not be tracked now.
        m_bench->form.reset();
        m_bench->server().edit([](localservice::World &world) { world.setBlock(kOtherTask, s("1")); });
        QVERIFY(m_bench->refresh());
        QVERIFY(m_bench->session()->isActive());
        startAgain(false);
        QCOMPARE(m_bench->session()->currentTaskID(), QString());
    }

    void accountChangeDropsTicks()
    {
        const QString other = s("пётр+test@orvana.example");
        const QString password = s("a+b&c=d% #;/\"я");
        QVERIFY(m_bench->signIn(other, password));
        verifyTracking(false);
        choose(kOtherTask);
        press("pbPlay");
        verifyTracking(true);

        QVERIFY(m_bench->signIn()); // his session is kept as it was: tracking
        verifyTracking(false);
        QCOMPARE(m_bench->session()->currentTaskID(), kTask);
        press("pbPlay");
        for (int i = 0; i < 9; ++i)
            slice(1);
        emit UserActivityWatcher::instance()->wasActivity();

        QVERIFY(m_bench->signIn(other, password));
        verifyTracking(true);
        minute();
        QTRY_COMPARE(m_bench->server().reports().size(), 1);
        const localservice::ActivityReport report = m_bench->server().reports().constFirst();
        QCOMPARE(report.email, other);
        QCOMPARE(report.taskId, kOtherTask);
        QCOMPARE(report.active, 0);
    }

    void reminder()
    {
        const auto verify = [this](const QTime &day, const QTime &task, const char *times) {
            WindowBench::dropPopups();
            m_bench->session()->setActiveTime(day);
            m_bench->session()->setActiveTaskTime(kTask, task);
            m_bench->form->showActivityMessage();
            QCOMPARE(WindowBench::popupTexts(),
                     QStringList{s("Вы работаете по задаче \"Ответить на письма читателей\" в команде "
                                   "\"Редакция сайта\". Активное время за сегодня ")
                                 + s(times)});
        };
        verify({0, 0}, {0, 0}, "0мин. Активное время по задаче 0мин.");
        verify({0, 59, 59}, {0, 7}, "59мин. Активное время по задаче 7мин.");
        verify({1, 0}, {12, 5}, "1ч. 0мин. Активное время по задаче 12ч. 5мин.");
    }

    void backgroundRequests()
    {
        m_bench->server().edit([](localservice::World &world) {
            for (localservice::User &user : world.users) {
                user.worked.total = 95;
                user.workedOn = QDate::currentDate();
            }
        });
        m_bench->form->updateComments();
        m_bench->form->syncTime();
        m_bench->form->checkUpdate();
        QVERIFY(m_bench->settle());
        QCOMPARE(m_bench->child<QLabel>("lbClock")->text(), s("01:35:00"));
        QCOMPARE(m_bench->server().requestsTo(s("/api_teams_tasks")).size(), 1);
        QCOMPARE(m_bench->server().requestsTo(s("/monitor/ubuntu64/ortm.version")).size(), 1);
        const auto syncs = m_bench->server().requestsTo(s("/api_get_active"));
        QCOMPARE(syncs.size(), 1);
        // The team's id, although the service calls the field a task.
        QCOMPARE(syncs.constFirst().queryValue(s("task_id")), kTeam);
    }

private:
    void choose(const QString &task) { m_bench->orvana()->changeTask(kTeam, task); }
    void slice(int events = 0)
    {
        for (int i = 0; i < events; ++i)
            emit UserActivityWatcher::instance()->wasActivity();
        m_bench->form->sendActivity(false);
    }
    void minute(int activeSlices = 0)
    {
        for (int i = 0; i < 10; ++i)
            slice(i < activeSlices ? 1 : 0);
    }
    void press(const char *button) { QTest::mouseClick(m_bench->child<QPushButton>(button), Qt::LeftButton); }
    bool runs(const char *timer) const { return m_bench->child<QTimer>(timer)->isActive(); }
    QTime countedWorktime() const
    {
        m_bench->session()->updateSecondsToDisplayedWorktime();
        return m_bench->session()->todayTime();
    }
    // The play button, the action and the timers never tell different stories.
    void verifyTracking(bool tracking)
    {
        QCOMPARE(m_bench->session()->isActive(), tracking);
        const auto *play = m_bench->child<QPushButton>("pbPlay");
        QCOMPARE(play->isChecked(), tracking);
        QCOMPARE(play->styleSheet().contains(s("pbPause")), tracking);
        QCOMPARE(m_bench->child<QAction>("actionStartStop")->text() == s("Стоп"), tracking);
        for (const char *timer : kTrackingTimers)
            QCOMPARE(runs(timer), tracking);
    }

    std::unique_ptr<WindowBench> m_bench;
};

QTEST_MAIN(TestTracking)
#include "tst_tracking.moc"
