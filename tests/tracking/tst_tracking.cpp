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
        m_client->server.edit([](localservice::World &world) { world.users[0].worked = {}; });
        QVERIFY(logIn(TestClient::anna(), s("orvana"), kTask));
        m_loop = std::make_unique<TrackingLoop>(m_client->orvana.get());
        m_loop->initTimers();
        m_loop->clock(); // the first second of a day only begins it
        m_client->notices.take();
        m_client->server.clearRequests();
    }

    void cleanup() { m_loop.reset(); }

    // In seconds; "*" runs without tracking too, "!" may not drift.
    void timers()
    {
        QStringList found;
        const auto timers = m_loop->findChildren<QTimer *>();
        for (const QTimer *timer : timers)
            found += QString::number(timer->interval() / 1000) + (timer->isActive() ? s("*") : QString())
                + (timer->timerType() == Qt::PreciseTimer ? s("!") : QString());
        QCOMPARE(found, texts({"6!", "3600*", "1*!", "60*", "1!", "1800", "1740*", "300"}));
        m_loop->updateComments();
        m_loop->checkUpdate();
        m_loop->syncTime();
        QVERIFY(settle());
        for (const char *path : {"/api_teams_tasks", "/monitor/ubuntu64/ortm.version", "/api_get_active"})
            QCOMPARE(m_client->server.requestsTo(s(path)).size(), 1);
    }

    // The letters are in take(). The outcome is what each report says; the clocks; whether tracking and the
    // screenshots' period run; and a mark for each screenshot ("S") and each notice of a stop ("!").
    void steps_data()
    {
        addRows({{"est..........", "0; 01:00 00:00 01:00 on P"},
                 {"st.........+", "1; 01:00 01:00 01:00 on P"},
                 {"st+..++....+", "4; 01:00 01:00 01:00 on P"},
                 {"st++++++++++t..........", "0 10; 02:00 01:00 02:00 on P"},
                 {"st+++++++++eps..........", "0; 00:00 00:00 01:00 on P"},
                 {"s+++++++++eu..........", "0; 00:00 00:00 01:00 on P"},
                 {"s+ef", "2; 00:00 00:00 01:00 on P S"},
                 {"sd..........d..........", "0 0; 00:00 00:00 02:00 on P SS"},
                 {"sdps.........", "; 00:00 00:00 00:00 on"},
                 {"sdps..........", "0; 00:00 00:00 01:00 on P S"},
                 {"n<", "; 00:00 00:00 00:00 off"},
                 {"<+<.........", "1; 00:00 00:00 01:00 on P"},
                 {"s>", "; 00:00 00:00 00:00 off"},
                 {"so", "; 00:00 00:00 00:00 on P"},
                 {"sx", "; 00:00 00:00 00:00 off !"},
                 {"x", "; 00:00 00:00 00:00 off"},
                 {"r",
                  "; 00:00 00:00 00:00 off Вы работаете по задаче \"Ответить на письма читателей\" в команде "
                  "\"Редакция сайта\". Активное время за сегодня 0мин. Активное время по задаче 0мин."}});
    }
    void steps()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
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
            (session()->isActive() ? s(" on") : s(" off")) + (runs("screenshotTimer") ? s(" P ") : s(" "));
        // Without a display each screenshot fails.
        outcome +=
            m_client->notices.take()
                .join(QString())
                .replace(s("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку"), s("S"))
                .replace(s("Запись активности остановлена!"), s("!"));
        QCOMPARE(outcome.trimmed(), result);
        for (const char *timer : {"sendActivityTimer", "clockTimer", "activityMessageTimer"})
            QCOMPARE(runs(timer), session()->isActive());
        QCOMPARE(session()->todayActiveTime(kTask), session()->todayActiveTime());
    }

    // By seconds: as the time since a deadline before a leap day, and as working time.
    void durations_data()
    {
        addRows({{"59", "/0мин"},
                 {"82800", "23ч. /23ч. 0мин"},
                 {"86400", "1д. /0мин"},
                 {"245220", "2д. 20ч. 7 мин./20ч. 7мин"}});
    }
    void durations()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const QDateTime now(QDate(2024, 3, 1), QTime(10, 15, 30));
        const QString overdue = overdueText(now.addSecs(-input.toInt()), now);
        QCOMPARE(overdue + QLatin1Char('/') + durationWords(QTime(0, 0).addSecs(input.toInt())), result);
    }

private:
    Orvana::Session *session() const { return m_client->session(); }
    bool logIn(const QString &login, const QString &password, const QString &task)
    {
        if (!m_client->logIn(login, password))
            return false;
        m_client->orvana->requestTeamsAndTasks();
        const bool loaded = settle();
        m_client->orvana->changeTask(kTeam, task);
        return loaded;
    }
    bool settle() const
    {
        return QTest::qWaitFor([this] { return m_client->orvana->findChildren<QNetworkReply *>().isEmpty(); },
                               TestClient::waitLimit);
    }
    void take(char step)
    {
        const auto input = [] { emit UserActivityWatcher::instance()->wasActivity(); };
        const auto clock = [this] {
            for (int i = 0; i < 60; ++i)
                m_loop->clock();
        };
        const QMap<char, std::function<void()>> steps{
            {'.', [&] { m_loop->sendActivity(false); }}, // a slice
            {'+', [&] { input(), input(), m_loop->sendActivity(false); }},
            {'e', input},
            {'f', [&] { m_loop->sendActivity(true); }}, // a minute that is closed at once
            {'t', clock}, // a minute
            {'s', [&] { m_loop->startTracking(); }},
            {'p', [&] { m_loop->stopTracking(); }},
            {'<', [&] { m_loop->onStartTimerShortcut_activated(); }},
            {'>', [&] { m_loop->onStopTimerShortcut_activated(); }},
            {'r', [&] { m_loop->showActivityMessage(); }},
            {'d', [&] { m_loop->screenshotTimeout(); }},
            {'x', [&] { emit session()->taskClosed(kTask); }},
            {'o', [&] { emit session()->taskClosed(kOtherTask); }},
            {'n', [&] { m_client->orvana->changeTask(kTeam, QString()); }},
            {'u', [&] { // another user, who left it running
                 QVERIFY(logIn(s("пётр+test@orvana.example"), s("a+b&c=d% #;/\"я"), kOtherTask));
                 session()->setActive(true);
             }}};
        steps.value(step)();
    }
    bool runs(const char *timer) const { return m_loop->findChild<QTimer *>(s(timer))->isActive(); }
    std::unique_ptr<TestClient> m_client;
    std::unique_ptr<TrackingLoop> m_loop;
};

QTEST_GUILESS_MAIN(TestTracking)
#include "tst_tracking.moc"
