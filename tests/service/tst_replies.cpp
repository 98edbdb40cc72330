#include "offlineclient.h"
#include "rows.h"
#include "update/orvanaupdate.h"

namespace {

constexpr int kStages = 8; // and none with the number 0
const std::function<void(Orvana &)> kAsk[kStages] = {
    {},
    [](Orvana &client) { client.requestCheckLogin(s("new"), s("pw")); },
    [](Orvana &client) { client.requestTeamsAndTasks(); },
    [](Orvana &client) { client.requestCheckUpdate(); },
    [](Orvana &client) { client.sendTaskActivity(5); },
    [](Orvana &client) { client.requestDeadlineChange(QDate(2024, 3, 1), s("?"), QTime(18, 0)); },
    [](Orvana &client) { client.requestTaskInfo(s("7")); },
    [](Orvana &client) { client.requestTimeSync(s("7")); },
};

// A client in the middle of a day's work, and what a reply changes.
class Bench final
{
    Q_DISABLE_COPY_MOVE(Bench)

public:
    Bench()
    {
        client.login(s("user"));
        OrvanaUpdate::instance()->init(client.get());
        OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"1.0\"}]");
        client.load(texts({"1:7"}));
        client->changeTask(s("1"), s("7"));
        client.session()->setWorktime(QTime(1, 0));
        client.session()->setActiveTime(QTime(1, 0));
        client.session()->save();
        Orvana *orvana = client.get();
        const auto note = [this](const QString &text) { m_events.append(text); };
        QObject::connect(orvana, &Orvana::error, [note](int code) { note(s("error%1").arg(code)); });
        QObject::connect(orvana, &Orvana::loginOk, [note] { note(s("login")); });
        QObject::connect(orvana, &Orvana::loginUnanswered, [note] { note(s("unanswered")); });
        QObject::connect(orvana, &Orvana::updateAvailable,
                         [note](bool newer) { note(newer ? s("newer") : s("current")); });
        QObject::connect(orvana, &Orvana::taskInfoUpdated,
                         [note](const TaskInfo &info) { note(s("details<%1>").arg(info.title)); });
        QObject::connect(orvana, &Orvana::onlineChanged, [this, note](const QString &reason) {
            note((client.session()->isOnline() ? s("online<%1>") : s("offline<%1>")).arg(reason));
        });
    }

    std::shared_ptr<QNetworkReply> ask(int stage)
    {
        kAsk[stage](*client.get());
        return client.takeRequests().last();
    }

    // Signals, popups and what changed in the state, in this order.
    QString outcome(const std::shared_ptr<QNetworkReply> &request, const QByteArray &body,
                    QNetworkReply::NetworkError error = QNetworkReply::NoError)
    {
        m_events.clear();
        client.notices().take();
        const QStringList before = state();
        if (!client.answer(request, body, error))
            m_events.append(s("leaked"));
        m_events += client.notices().take();
        const QStringList after = state();
        for (int i = 0; i < after.size(); ++i) {
            if (before.at(i) != after.at(i))
                m_events.append(after.at(i));
        }
        return m_events.join(QLatin1String("; "));
    }

    QStringList state()
    {
        Orvana::Session *session = client.session();
        return {s("user ") + session->login(),
                s("teams %1").arg(session->teams().size()),
                s("version %1 of %2")
                    .arg(OrvanaUpdate::instance()->availableUpdateVersion())
                    .arg(OrvanaUpdate::instance()->updateList().size()),
                s("records %1").arg(client.records()),
                s("pending %1").arg(client->pendingActivityRequests()),
                s("title ") + session->taskInfo(s("7")).title,
                figures(session->todayTime(), "'time 'HH:mm/") + figures(session->todayActiveTime(), "HH:mm"),
                figures(session->todayActiveTime(s("7")), "'task 'HH:mm")
                    + figures(session->todayActiveTime(QString()), "', none 'HH:mm")};
    }

    OfflineClient client;

private:
    QStringList m_events;
};

const QByteArray kAccepted[kStages] = {
    "",
    "{}",
    R"([{"id":"1","name":"C1","tasks":[{"id":"7","title":"T7"}]},{"id":"2","name":"C2","tasks":[]}])",
    R"([{"version":"1.1.1"},{"version":"0"}])",
    R"({"status":"ok"})",
    R"({"status":"ok"})",
    R"({"status":"ok","message":{"id":7,"title":"Жук","files":[],"texts":[]}})",
    R"({"today_active":90,"today_total":"125","today_task":5})",
};
// Whatever is no answer; the login check has no contents to judge.
const QStringList kMeaningless =
    texts({"", "login; online<>; user new; teams 0; time 00:00/00:00",
           "Вы больше не являетесь членом команды \"C1\"; teams 0", "current; version  of 0", "pending 0",
           "Ошибка переноса задачи:", "Ошибка получения данных по задаче: ", "time 00:00/00:00"});

void addStages(const char *name, const QByteArray &body, const QStringList &outcomes)
{
    for (int stage = 1; stage < kStages; ++stage)
        QTest::addRow("%.30s, stage %d", name, stage) << stage << body << outcomes.at(stage);
}

} // namespace

class TestReplies final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QCoreApplication::setApplicationVersion(s("1.1.0")); }

    void answers_data()
    {
        addColumns<int, QByteArray, QString>("stage", "body", "outcome");
        QStringList accepted = texts({"", "login; online<>; user new; teams 0; time 00:00/00:00",
                                      "Добавлена новая команда \"C2\"; teams 2",
                                      "newer; Доступно новое обновление Orvana Team1.1.1; version 1.1.1 of 2",
                                      "records 0; pending 0", "Запрос на продление задачи успешно отправлен",
                                      "details<Жук>; title Жук", "time 02:05/01:30; task 00:00, none 00:05"});
        for (int stage = 1; stage < kStages; ++stage) {
            QTest::addRow("accepted, stage %d", stage) << stage << kAccepted[stage] << accepted.at(stage);
            if (kAccepted[stage].size() > 2)
                QTest::addRow("cut, stage %d", stage)
                    << stage << kAccepted[stage].chopped(1) << kMeaningless.at(stage);
        }
        QByteArray longTitle = kAccepted[Orvana::TaskDetails];
        longTitle.replace("Жук", QByteArray(200'000, 't'));
        QTest::newRow("200,000 letters")
            << static_cast<int>(Orvana::TaskDetails) << longTitle
            << s("details<%1…>; title %1…").arg(QString(100'000, QLatin1Char('t')));
        for (const int stage : {Orvana::TeamsAndTasks, Orvana::CheckUpdate, Orvana::TimeSync})
            accepted[stage] = kMeaningless.at(stage);
        accepted[Orvana::TaskDetails] = s("details<>");
        const auto version = [](const QByteArray &body, const char *outcome) {
            QTest::newRow(body.constData()) << static_cast<int>(Orvana::CheckUpdate) << body << s(outcome);
        };
        // Compared as texts.
        version(R"([{"version":"1.1.0"}])", "current; version 1.1.0 of 1");
        version(R"([{"version":"01.2"}])", "current; version 01.2 of 1");
        version(R"([{"file":"a"},5,{"version":2}])",
                "newer; Доступно новое обновление Orvana Team2; version 2 of 3");
        version(R"([{"version":null},{"version":"2"}])", "current; version  of 2");

        addStages("bare ok", R"( {"status":"ok"} tail)", accepted);

        const auto refused = [](const char *name, const QByteArray &body, const char *error,
                                const char *reason = "") {
            QStringList outcomes = texts({"", "%1", "%1", "%1; current; version  of 0", "%1; pending 0",
                                          "%1; Ошибка переноса задачи:%2", "%1", "%1; time 00:00/00:00", ""});
            outcomes.replaceInStrings(s("%1"), s(error)).replaceInStrings(s("%2"), s(reason));
            addStages(name, body, outcomes);
        };
        const QByteArray credentials = R"({"status":-1,"err_msg":"Invalid email|pswd|client"})";
        refused("credentials", credentials, "error0");
        refused("credentials and more", credentials + '\n', "error6");
        refused("minus ten", R"({"status":-10,"message":"м"})", "error6", "м");
        refused("error", R"({"status":"error","message":"м"})", "error6", "м");
        refused("html", "\t<!DOCTYPE html><p>", "error4");
        const QString noDatabase = s("Не могу соединится с базой данных");
        refused("database", QTextCodec::codecForName("Windows-1251")->fromUnicode(noDatabase), "error5");
        QStringList denied = kMeaningless;
        denied[Orvana::DeadlineChange] += s("нет доступа");
        denied[Orvana::TaskDetails] += s("нет доступа");
        addStages("refusal", R"({"status":"fail","message":"нет доступа"})", denied);
        for (const char *body : {"", "}{", "null", "ok", "<!DOCTYPE html>", " {\"status\":-1}",
                                 "Не могу соединится с базой данных", "{\"status\":[\"ok\"]}"})
            addStages(body, body, kMeaningless);
        addStages("NUL first", QByteArray("\0{\"status\":\"ok\"}", 16), kMeaningless);
        addStages("nested deep", QByteArray(100000, '['), kMeaningless);
        addStages("long", QByteArray(8 * 1024 * 1024, 'x'), kMeaningless);
    }

    void answers()
    {
        QFETCH(int, stage);
        QFETCH(QByteArray, body);
        Bench bench;
        QTEST(bench.outcome(bench.ask(stage), body), "outcome");
        QVERIFY(bench.client.session()->isOnline());
        if (stage == Orvana::CheckLogin) // the new user is online until a reply fails
            return;
        bench.client.session()->setOnline(false);
        const auto request = bench.ask(stage);
        QVERIFY(bench.outcome(request, body).contains(QLatin1String("online<>")));
        QVERIFY(!bench.outcome(request, body).contains(QLatin1String("online")));
    }

    void transportErrors()
    {
        const QStringList outcomes =
            texts({"%1", "unanswered; %1", "%1", "%1", "%1; pending 0",
                   "%1; Запрос на продление задачи не удалось отправить, повторите попытку позже.",
                   "details<>; %1", "%1", "%1"});
        const QMap<QNetworkReply::NetworkError, QString> reasons{
            {QNetworkReply::HostNotFoundError, s("Ошибка соединения. ")},
            {QNetworkReply::UnknownNetworkError, s("Ошибка соединения. ")},
            {QNetworkReply::ProtocolUnknownError, s("Сайт недоступен. ")},
            {QNetworkReply::SslHandshakeFailedError, QString()},
            {QNetworkReply::AuthenticationRequiredError, QString()},
            {QNetworkReply::TimeoutError, QString()}};
        for (const auto error : reasons.keys()) {
            Bench bench;
            // Listeners do not get the details that are known.
            bench.client.answer(bench.ask(Orvana::TaskDetails), kAccepted[Orvana::TaskDetails]);
            for (int stage = 1; stage < kStages; ++stage) {
                bench.client.session()->setOnline(true);
                // A body that came with the error is not read.
                QCOMPARE(bench.outcome(bench.ask(stage), kAccepted[stage], error),
                         outcomes.at(stage).arg(s("offline<%1>").arg(reasons.value(error))));
                QVERIFY(!bench.client.session()->isOnline());
            }
            QCOMPARE(bench.outcome(bench.ask(Orvana::TimeSync), "", error), QString());
        }
    }

    void outdatedRepliesAreIgnored()
    {
        for (const int stage :
             {Orvana::TeamsAndTasks, Orvana::TaskDetails, Orvana::TimeSync, Orvana::SendActivity}) {
            Bench bench;
            const auto request = bench.ask(stage);
            bench.client.login(s("other"));
            bench.client.session()->setOnline(false);
            // The minute was the first user's, and is off the disk.
            QCOMPARE(bench.outcome(request, kAccepted[stage]),
                     stage == Orvana::SendActivity ? s("online<>; records 0; pending 0") : s("online<>"));
        }
        // So are lists that were requested before those known.
        Bench bench;
        const auto slow = bench.ask(Orvana::TeamsAndTasks);
        bench.client.load(texts({"1:7 8"}));
        QCOMPARE(bench.outcome(slow, kAccepted[Orvana::TeamsAndTasks]), QString());
        // And totals that were requested before midnight.
        const auto yesterdays = bench.ask(Orvana::TimeSync);
        yesterdays->setProperty("day", QDate::currentDate().addDays(-1));
        QCOMPARE(bench.outcome(yesterdays, kAccepted[Orvana::TimeSync]), QString());
    }

    // The fourth reply of the same text does all that the third did, without being read.
    void sameListsAgain()
    {
        Bench bench;
        OfflineClient &client = bench.client;
        const QStringList lists = texts({"1:7 8", "2:9"});
        QSignalSpy updates(client.session(), &Orvana::Session::tasksUpdated);
        const auto loadTimes = [&](int times, const QStringList &body) {
            for (int i = 0; i < times; ++i)
                client.load(body);
            return client.notices().take().size();
        };
        loadTimes(1, lists);
        const auto details = client.takeRequests();
        QCOMPARE(details.size(), 2); // 7 was asked for before
        loadTimes(2, lists);
        QVERIFY(QFile::remove(client.path(s("user/tasks.ini"))));
        updates.clear();
        QCOMPARE(loadTimes(1, lists), 0);
        QCOMPARE(updates.size(), 2);
        QCOMPARE(client.storedKeys(s("user/tasks.ini")), texts({"1", "2"}));
        client.answer(details.last(), QByteArray(), QNetworkReply::TimeoutError);
        QCOMPARE(loadTimes(1, lists), 0);
        QCOMPARE(client.takeRequests().size(), 1);
        // What was changed here in the meantime is news again.
        client.session()->removeAllSavedTasks(client.session()->task(s("1"), s("8")));
        QCOMPARE(loadTimes(3, lists), 1);
        const QStringList dated = texts({"1:7@3", "2:9"});
        loadTimes(3, dated);
        const Task moved{s("7"), s("7"), QDateTime(QDate(2030, 1, 1), QTime(1, 1)), {}, {}};
        client.session()->updateDeadlinesTo(s("2"), moved);
        QCOMPARE(loadTimes(2, dated), 1);
        // Once they have moved a deadline, two teams that contradict each other do so in every reply.
        loadTimes(1, texts({"1:7@3", "2:7@4"}));
        loadTimes(1, texts({"1:7@1", "2:7@2"}));
        QCOMPARE(loadTimes(3, texts({"1:7@1", "2:7@2"})), 6);
        // So do two lists of one team.
        loadTimes(1, texts({"1:7", "1:7!"}));
        QCOMPARE(loadTimes(2, texts({"1:7", "1:7!"})), 4);
        client.load(lists);
        client.load(lists);
        client.login(s("other"));
        client.load(lists);
        QCOMPARE(client.session()->tasks(s("1")).size(), 3);
    }

    void onlyTheLatestLoginCounts()
    {
        Bench bench;
        bench.client->requestCheckLogin(s("a"), s("1"));
        const auto first = bench.client.takeRequests().last();
        bench.client->requestCheckLogin(s("b"), s("2"));
        const auto second = bench.client.takeRequests().last();
        QCOMPARE(bench.outcome(first, "{}"), QString());
        QCOMPARE(bench.outcome(second, "{\"status\":-1}"), s("error6"));
        bench.client.session()->setPassword(s("kept"));
        QCOMPARE(bench.outcome(second, "{}"), s("login; online<>; user b; teams 0; time 00:00/00:00"));
        QCOMPARE(bench.client.session()->password(), s("2"));
        QVERIFY(bench.client.session()->isLogged());
        QCOMPARE(bench.client.stored(s("user/session.ini"), s("password")).toString(), s("kept"));
        QCOMPARE(bench.outcome(second, "{}"), QString());
        // The same user again is loaded from what was saved.
        bench.client.session()->setActive(true);
        bench.client.login(s("b"), s("3"));
        QVERIFY(bench.client.session()->isActive());
    }
};

QTEST_MAIN(TestReplies)

#include "tst_replies.moc"
