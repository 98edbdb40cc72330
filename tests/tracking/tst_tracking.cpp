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

    // Steps, of which "." is a slice, "+" one with activity, "e" activity alone, "t" and "c" 60 and 59
    // seconds of the clock, "s" and "p" start and stop, "<" and ">" their shortcuts, "f" a minute that
    // is closed at once, "d" the end of the screenshots' period, "x" and "o" the end of this and of
    // another task, "n" no task, "u" another user who is tracking too. The outcome is what each report says;
    // the clocks; whether tracking and the screenshots' period run; and a mark for each screenshot ("S") and
    // each notice of a stop ("!").
    void steps_data()
    {
        addRows({{"s+++++++++", "; 00:00 00:00 00:00 on P"},
                 {"est..........", "0; 01:00 00:00 01:00 on P"},
                 {"st.........+", "1; 01:00 01:00 01:00 on P"},
                 {"st+..++....+", "4; 01:00 01:00 01:00 on P"},
                 {"st++++++++++t..........", "0 10; 02:00 01:00 02:00 on P"},
                 {"sc+++++++++p", "; 00:00 00:00 00:00 off"},
                 {"sc+++++++++eps..........", "0; 00:00 00:00 01:00 on P"},
                 {"s+++++++++eu..........", "0; 00:00 00:00 01:00 on P"},
                 {"s+ef", "2; 00:00 00:00 01:00 on P S"},
                 {"s....................", "0 0; 00:00 00:00 02:00 on P"},
                 {"sd....................", "0 0; 00:00 00:00 02:00 on P S"},
                 {"sd..........d..........", "0 0; 00:00 00:00 02:00 on P SS"},
                 {"s..........ps", "0; 01:00 00:00 01:00 on P"},
                 {"sdp", "; 00:00 00:00 00:00 off"},
                 {"sdps.........", "; 00:00 00:00 00:00 on"},
                 {"sdps..........", "0; 00:00 00:00 01:00 on P S"},
                 {"n<", "; 00:00 00:00 00:00 off"},
                 {"<+<.........", "1; 00:00 00:00 01:00 on P"},
                 {"s>", "; 00:00 00:00 00:00 off"},
                 {"so", "; 00:00 00:00 00:00 on P"},
                 {"sx", "; 00:00 00:00 00:00 off !"},
                 {"x", "; 00:00 00:00 00:00 off"}});
    }
    void steps()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        m_client->notices.take();
        for (const QChar each : qAsConst(input))
            take(each.toLatin1());
        QVERIFY(settle());
        QStringList reported;
        const auto reports = m_client->server.reports();
        for (const localservice::ActivityReport &report : reports) {
            reported += QString::number(report.active);
            QCOMPARE(report.email + report.teamId + report.taskId,
                     session()->login() + session()->currentTeamID() + session()->currentTaskID());
        }
        reported.sort(); // those under way at once arrive in any order
        QString outcome = reported.join(QLatin1Char(' ')) + QLatin1Char(';');
        const QTime shown = session()->todayTime();
        session()->updateSecondsToDisplayedWorktime();
        for (const QTime &time : {shown, session()->todayActiveTimeDisplayed(), session()->todayTime()})
            outcome += QLatin1Char(' ') + figures(time, "mm:ss");
        outcome +=
            (session()->isActive() ? s(" on") : s(" off")) + (runs("screenshotTimer") ? s(" P") : QString());
        // Without a display each screenshot fails.
        const QStringList notices = m_client->notices.take();
        const auto failed =
            notices.filter(s("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку"));
        const QString marks = QString(failed.size(), QLatin1Char('S'))
            + QString(notices.count(s("Запись активности остановлена!")), QLatin1Char('!'));
        QCOMPARE(outcome + (marks.isEmpty() ? marks : QLatin1Char(' ') + marks), result);
        for (const char *timer : {"sendActivityTimer", "clockTimer", "activityMessageTimer"})
            QCOMPARE(runs(timer), session()->isActive());
        QCOMPARE(session()->todayActiveTime(kTask), session()->todayActiveTime());
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
    void take(char step)
    {
        const int seconds = step == 't' ? 60 : step == 'c' ? 59 : 0;
        for (int i = 0; i < seconds; ++i)
            m_loop->clock();
        const int events = step == '+' ? 3 : step == 'e' ? 1 : 0;
        for (int i = 0; i < events; ++i)
            emit UserActivityWatcher::instance()->wasActivity();
        if (step == '.' || step == '+' || step == 'f')
            m_loop->sendActivity(step == 'f');
        else if (step == 's')
            m_loop->startTracking();
        else if (step == 'p')
            m_loop->stopTracking();
        else if (step == '<')
            m_loop->onStartTimerShortcut_activated();
        else if (step == '>')
            m_loop->onStopTimerShortcut_activated();
        else if (step == 'd')
            m_loop->screenshotTimeout();
        else if (step == 'x' || step == 'o')
            emit session()->taskClosed(step == 'x' ? kTask : kOtherTask);
        else if (step == 'n')
            m_client->orvana->changeTask(kTeam, QString());
        else if (step == 'u') {
            QVERIFY(logIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"), kOtherTask));
            session()->setActive(true); // as they left it
        }
    }
    bool runs(const char *timer) const { return m_loop->findChild<QTimer *>(s(timer))->isActive(); }
    std::unique_ptr<TestClient> m_client;
    std::unique_ptr<TrackingLoop> m_loop;
};

QTEST_GUILESS_MAIN(TestTracking)
#include "tst_tracking.moc"
