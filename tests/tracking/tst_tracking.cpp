#include "base/timetexts.h"
#include "testclient.h"
#include "tracking/trackingloop.h"
#include "tracking/x11_useractivitywatcher.h"

#include <QNetworkReply>

namespace {

const QString kTeam = s("17");
const QString kTask = s("1704");
const QString kOtherTask = s("1701");

} // namespace

// The loop without its window.
class TestTracking final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_client = std::make_unique<TestClient>();
        m_client->server.edit([](localservice::World &world) {
            for (localservice::User &user : world.users)
                user.worked = {};
        });
        QVERIFY(logIn(TestClient::anna(), s("orvana"), kTask));
        m_loop = std::make_unique<TrackingLoop>(m_client->orvana.get());
        m_loop->initTimers();
        // The clock's first second of a day only begins it.
        m_loop->clock();
    }

    void cleanup()
    {
        m_loop.reset();
        m_client.reset();
    }

    void timers()
    {
        QStringList found;
        const auto timers = m_loop->findChildren<QTimer *>();
        for (const QTimer *timer : timers)
            found += s("%1 %2%3%4%5")
                         .arg(timer->objectName())
                         .arg(timer->interval() / 1000)
                         .arg(timer->isActive() ? s(" runs") : QString(),
                              timer->isSingleShot() ? s(" once") : QString(),
                              timer->timerType() == Qt::PreciseTimer ? s(" precise") : QString());
        QCOMPARE(found,
                 texts({"sendActivityTimer 6 precise", "checkUpdateTimer 3600 runs",
                        "checkNeedCloseTimer 1 runs", "updateCommentsTimer 60 runs", "clockTimer 1 precise",
                        "activityMessageTimer 1800", "syncTimeTimer 1740 runs", "screenshotTimer 300"}));
    }

    // Events in each slice, and the active slices that are reported.
    void minute_data()
    {
        addRows({{"0000000000", "0"}, {"0000000001", "1"}, {"1002090001", "4"}, {"3333333333", "10"}});
    }
    void minute()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        // What came before the start is not of this minute.
        emit UserActivityWatcher::instance()->wasActivity();
        m_loop->startTracking();
        for (int minutes = 1; minutes < 3; ++minutes) {
            for (int second = 0; second < 60; ++second)
                m_loop->clock();
            for (const QChar events : qAsConst(input)) {
                QCOMPARE(m_client->orvana->pendingActivityRequests(), 0);
                slice(events.digitValue());
            }
            QVERIFY(settle());
            QCOMPARE(m_client->server.reports().size(), minutes);
            const localservice::ActivityReport report = m_client->server.reports().constLast();
            QCOMPARE(report.active, result.toInt());
            QCOMPARE(report.email, TestClient::anna());
            QCOMPARE(report.teamId + report.taskId, kTeam + kTask);
            // One active slice makes the whole minute active; without any, the clock that
            // ran on by seconds falls back.
            const QTime activeTime(0, report.active > 0 ? minutes : 0);
            QCOMPARE(session()->todayActiveTime(), activeTime);
            QCOMPARE(session()->todayActiveTimeDisplayed(), activeTime);
            QCOMPARE(session()->todayActiveTime(kTask), activeTime);
            QCOMPARE(countedWorktime(), QTime(0, minutes));
        }
    }

    void unfinishedMinuteIsDropped()
    {
        m_loop->startTracking();
        for (int second = 0; second < 59; ++second)
            m_loop->clock();
        slices(9, 1);
        QCOMPARE(session()->todayTime(), QTime(0, 0, 59));
        m_loop->stopTracking();
        QCOMPARE(session()->todayTime(), QTime(0, 0));
        m_loop->startTracking();
        slices(9);
        QCOMPARE(m_client->orvana->pendingActivityRequests(), 0);
        slice();
        QTRY_COMPARE(m_client->server.reports().size(), 1);
        QCOMPARE(m_client->server.reports().constFirst().active, 0);
        QCOMPARE(countedWorktime(), QTime(0, 1));
    }

    // s: start, p: stop, d: the period ends, m: a minute, f: one that is closed at once. Whether the
    // period runs in the end, and the screenshots.
    void screenshots_data()
    {
        addRows({{"smmm", "1 0"},
                 {"sdmmm", "1 1"},
                 {"sdmmdm", "1 2"},
                 {"smpsm", "1 0"},
                 {"sdps", "0 0"},
                 {"sdpsm", "1 1"},
                 {"sfm", "1 1"}});
    }
    void screenshots()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        for (const QChar step : qAsConst(input)) {
            if (step == QLatin1Char('s'))
                m_loop->startTracking();
            else if (step == QLatin1Char('p'))
                m_loop->stopTracking();
            else if (step == QLatin1Char('d'))
                m_loop->screenshotTimeout();
            else if (step == QLatin1Char('f'))
                m_loop->sendActivity(true);
            else
                slices(10);
            QVERIFY(settle());
        }
        // Without a display each one that is tried fails.
        const QString failed = s("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку");
        const int tried = m_client->notices.take().filter(failed).size();
        QCOMPARE(s("%1 %2").arg(runs("screenshotTimer")).arg(tried), result);
        QCOMPARE(m_client->server.reports().size(),
                 input.count(QLatin1Char('m')) + input.count(QLatin1Char('f')));
    }

    void shortcuts()
    {
        for (const QString &task : {QString(), kTask}) {
            m_client->orvana->changeTask(kTeam, task);
            m_loop->onStopTimerShortcut_activated();
            verifyTracking(false);
            m_loop->onStartTimerShortcut_activated();
            verifyTracking(!task.isEmpty());
        }
        // Used again, it lets the minute go on.
        slice(1);
        m_loop->onStartTimerShortcut_activated();
        slices(9);
        QTRY_COMPARE(m_client->server.reports().size(), 1);
        QCOMPARE(m_client->server.reports().constFirst().active, 1);
        m_loop->onStopTimerShortcut_activated();
        verifyTracking(false);
    }

    void closeTask()
    {
        m_loop->startTracking();
        m_loop->closeTask(kOtherTask);
        verifyTracking(true);
        m_client->notices.take();
        emit session()->taskClosed(kTask);
        verifyTracking(false);
        QCOMPARE(session()->currentTaskID(), QString());
        QCOMPARE(m_client->notices.take(), texts({"Запись активности остановлена!"}));
        m_client->orvana->changeTask(kTeam, kTask);
        emit session()->taskClosed(kTask);
        QCOMPARE(session()->currentTaskID(), QString());
        QCOMPARE(m_client->notices.take(), QStringList());
    }

    void anotherUserStartsAMinuteOfTheirOwn()
    {
        m_loop->startTracking();
        slices(9, 1);
        emit UserActivityWatcher::instance()->wasActivity();
        QVERIFY(logIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"), kOtherTask));
        slices(9);
        QCOMPARE(m_client->server.reports().size(), 0);
        slice();
        QTRY_COMPARE(m_client->server.reports().size(), 1);
        const localservice::ActivityReport report = m_client->server.reports().constFirst();
        QCOMPARE(report.email + report.taskId, session()->login() + kOtherTask);
        QCOMPARE(report.active, 0);
    }

    // Active times of the day and of the task.
    void reminder_data()
    {
        addRows({{"00:00:00 00:00:00", "0мин. Активное время по задаче 0мин."},
                 {"00:59:59 00:07:00", "59мин. Активное время по задаче 7мин."},
                 {"01:00:00 12:05:00", "1ч. 0мин. Активное время по задаче 12ч. 5мин."}});
    }
    void reminder()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        session()->setActiveTime(QTime::fromString(input.left(8), Qt::ISODate));
        session()->setActiveTaskTime(kTask, QTime::fromString(input.right(8), Qt::ISODate));
        m_client->notices.take();
        m_loop->showActivityMessage();
        QCOMPARE(m_client->notices.take(),
                 QStringList{s("Вы работаете по задаче \"Ответить на письма читателей\" в команде "
                               "\"Редакция сайта\". Активное время за сегодня ")
                             + result});
    }

    void backgroundRequests()
    {
        m_client->server.edit([](localservice::World &world) {
            for (localservice::User &user : world.users) {
                user.worked.total = 95;
                user.workedOn = QDate::currentDate();
            }
        });
        m_client->server.clearRequests();
        m_loop->updateComments();
        m_loop->syncTime();
        m_loop->checkUpdate();
        QVERIFY(settle());
        QCOMPARE(session()->todayTime(), QTime(1, 35));
        QCOMPARE(m_client->server.requestsTo(s("/api_teams_tasks")).size(), 1);
        QCOMPARE(m_client->server.requestsTo(s("/monitor/ubuntu64/ortm.version")).size(), 1);
        const auto syncs = m_client->server.requestsTo(s("/api_get_active"));
        QCOMPARE(syncs.size(), 1);
        // The team's id, although the service calls the field a task.
        QCOMPARE(syncs.constFirst().queryValue(s("task_id")), kTeam);
    }

    // By seconds; a leap day lies before now.
    void overdue_data()
    {
        addRows({{"0", ""},
                 {"59", ""},
                 {"1800", "30 мин."},
                 {"3600", "1ч. "},
                 {"86399", "23ч. 59 мин."},
                 {"86400", "1д. "},
                 {"90000", "1д. 1ч. "},
                 {"245220", "2д. 20ч. 7 мин."}});
    }
    void overdue()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const QDateTime now(QDate(2024, 3, 1), QTime(10, 15, 30));
        QCOMPARE(overdueText(now.addSecs(-input.toInt()), now), result);
    }

private:
    Orvana::Session *session() const { return m_client->session(); }
    bool logIn(const QString &login, const QString &password, const QString &task)
    {
        QSignalSpy lists(session(), &Orvana::Session::teamsUpdated);
        if (!m_client->logIn(login, password))
            return false;
        m_client->orvana->requestTeamsAndTasks();
        const bool loaded = lists.wait(TestClient::waitLimit) && settle();
        m_client->orvana->changeTask(kTeam, task);
        return loaded;
    }
    // All replies are in.
    bool settle() const
    {
        return QTest::qWaitFor([this] { return m_client->orvana->findChildren<QNetworkReply *>().isEmpty(); },
                               TestClient::waitLimit);
    }
    void slice(int events = 0)
    {
        for (int i = 0; i < events; ++i)
            emit UserActivityWatcher::instance()->wasActivity();
        m_loop->sendActivity(false);
    }
    void slices(int count, int events = 0)
    {
        for (int i = 0; i < count; ++i)
            slice(events);
    }
    bool runs(const char *timer) const { return m_loop->findChild<QTimer *>(s(timer))->isActive(); }
    QTime countedWorktime() const
    {
        session()->updateSecondsToDisplayedWorktime();
        return session()->todayTime();
    }
    void verifyTracking(bool tracking)
    {
        QCOMPARE(session()->isActive(), tracking);
        for (const char *timer :
             {"sendActivityTimer", "clockTimer", "screenshotTimer", "activityMessageTimer"})
            QCOMPARE(runs(timer), tracking);
    }

    std::unique_ptr<TestClient> m_client;
    std::unique_ptr<TrackingLoop> m_loop;
};

QTEST_GUILESS_MAIN(TestTracking)
#include "tst_tracking.moc"
