#include "offlineclient.h"
#include "rows.h"
#include "update/orvanaupdate.h"

namespace {

constexpr int kStages = 9; // 1 to 7, and on both sides one that there is not
const QString kUser = s("user");

// A client in the middle of a day's work, and what an answer does to it.
class Bench final
{
    Q_DISABLE_COPY_MOVE(Bench)

public:
    Bench()
    {
        client.login(kUser);
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
        switch (stage) {
        case Orvana::CheckLogin:
            client->requestCheckLogin(s("new"), s("pw"));
            break;
        case Orvana::TeamsAndTasks:
            client->requestTeamsAndTasks();
            break;
        case Orvana::CheckUpdate:
            client->requestCheckUpdate();
            break;
        case Orvana::SendActivity:
            client->sendTaskActivity(5);
            break;
        case Orvana::DeadlineChange:
            client->requestDeadlineChange(QDate(2024, 3, 1), s("?"), QTime(18, 0));
            break;
        case Orvana::TaskDetails:
            client->requestTaskInfo(s("7"));
            break;
        case Orvana::TimeSync:
            client->requestTimeSync(s("7"));
            break;
        default: {
            auto reply = std::make_shared<CannedReply>(QByteArray());
            reply->setProperty("stage", stage);
            return reply;
        }
        }
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
            m_events.append(s("reply leaked"));
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
                s("version ") + OrvanaUpdate::instance()->availableUpdateVersion(),
                s("records %1").arg(client.records()),
                s("pending %1").arg(client->pendingActivityRequests()),
                s("title ") + session->taskInfo(s("7")).title,
                s("time ") + figures(session->todayTime(), "HH:mm/")
                    + figures(session->todayActiveTime(), "HH:mm"),
                s("task %1, none %2")
                    .arg(figures(session->todayActiveTime(s("7")), "HH:mm"),
                         figures(session->todayActiveTime(QString()), "HH:mm"))};
    }

    OfflineClient client;

private:
    QStringList m_events;
};

const QByteArray kSuccess[] = {
    "",
    "{}",
    R"([{"id":"1","name":"C1","tasks":[{"id":"7","title":"T7"}]},{"id":"2","name":"C2","tasks":[]}])",
    R"([{"version":"1.1.1"},{"version":"0"}])",
    R"({"status":"ok"})",
    R"({"status":"ok"})",
    R"({"status":"ok","message":{"id":7,"title":"Жук","files":[],"texts":[]}})",
    R"({"today_active":90,"today_total":"125","today_task":5})",
    "",
};
// What is no answer at all for any kind but the login check, which has no contents.
const QStringList kMeaningless =
    texts({"", "login; online<>; user new; teams 0; time 00:00/00:00",
           "Вы больше не являетесь членом команды \"C1\"; teams 0", "current; version ", "pending 0",
           "Ошибка переноса задачи:", "Ошибка получения данных по задаче: ", "time 00:00/00:00", ""});

} // namespace

class TestReplies final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QCoreApplication::setApplicationVersion(s("1.1.0")); }

    void answers_data()
    {
        addColumns<QByteArray, QStringList>("body", "outcomes"); // null: each kind's own success; by stage
        const auto refused = [](const char *error, const char *reason = "") {
            QStringList outcomes = texts({"", "%1", "%1", "%1; current; version ", "%1; pending 0",
                                          "%1; Ошибка переноса задачи:%2", "%1", "%1; time 00:00/00:00", ""});
            return outcomes.replaceInStrings(s("%1"), s(error)).replaceInStrings(s("%2"), s(reason));
        };
        QStringList unwanted = kMeaningless;
        unwanted[Orvana::DeadlineChange] += s("нет доступа");
        unwanted[Orvana::TaskDetails] += s("нет доступа");
        QStringList accepted =
            texts({"", "login; online<>; user new; teams 0; time 00:00/00:00",
                   "Добавлена новая команда \"C2\"; teams 2",
                   "newer; Доступно новое обновление Orvana Team1.1.1; version 1.1.1", "records 0; pending 0",
                   "Запрос на продление задачи успешно отправлен", "details<Жук>; title Жук",
                   "time 02:05/01:30; task 00:00, none 00:05", ""});
        QTest::newRow("success") << QByteArray() << accepted;
        for (const int stage : {Orvana::TeamsAndTasks, Orvana::CheckUpdate, Orvana::TimeSync})
            accepted[stage] = kMeaningless.at(stage);
        accepted[Orvana::TaskDetails] = s("details<>");
        QTest::newRow("bare ok") << QByteArray(R"( {"status":"ok"} tail)") << accepted;
        QTest::newRow("credentials") << QByteArray(R"({"status":-1,"err_msg":"Invalid email|pswd|client"})")
                                     << refused("error0");
        QTest::newRow("credentials and more")
            << QByteArray("{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}\n") << refused("error6");
        QTest::newRow("minus one") << QByteArray(R"({"status":-1})") << refused("error6");
        QTest::newRow("minus ten") << QByteArray(R"({"status":-10,"message":"м"})") << refused("error6", "м");
        QTest::newRow("error") << QByteArray(R"({"status":"error","message":"м"})") << refused("error6", "м");
        QTest::newRow("html") << QByteArray("\t<!DOCTYPE html><p>") << refused("error4");
        QTest::newRow("database")
            << QTextCodec::codecForName("Windows-1251")->fromUnicode(s("Не могу соединится с базой данных"))
            << refused("error5");
        QTest::newRow("refusal") << QByteArray(R"({"status":"fail","message":"нет доступа"})") << unwanted;
        for (const char *body : {"}{", "[", "null", "\"ok\"", "ok", "<!DOCTYPE html>", " {\"status\":-1}",
                                 "Не могу соединится с базой данных", "{\"status\":[\"ok\"]}"})
            QTest::newRow(body) << QByteArray(body) << kMeaningless;
        QTest::newRow("empty") << QByteArray("") << kMeaningless;
        QTest::newRow("NUL first") << QByteArray("\0{\"status\":\"ok\"}", 16) << kMeaningless;
        QTest::newRow("nested deep") << QByteArray(100000, '[') << kMeaningless;
        QTest::newRow("long") << QByteArray(8 * 1024 * 1024, 'x') << kMeaningless;
    }

    void answers()
    {
        QFETCH(QByteArray, body);
        QFETCH(QStringList, outcomes);
        for (int stage = 0; stage < kStages; ++stage) {
            Bench bench;
            QCOMPARE(bench.outcome(bench.ask(stage), body.isNull() ? kSuccess[stage] : body),
                     outcomes.at(stage));
            QVERIFY(bench.client.session()->isOnline());
            // One character less, and it is no answer.
            if (!body.isNull() || kSuccess[stage].size() < 3)
                continue;
            Bench another;
            QCOMPARE(another.outcome(another.ask(stage), kSuccess[stage].chopped(1)), kMeaningless.at(stage));
        }
    }

    void transportErrors()
    {
        const QMap<int, QString> before{{Orvana::CheckLogin, s("unanswered; ")},
                                        {Orvana::TaskDetails, s("details<>; ")}};
        const QMap<int, QString> after{
            {Orvana::SendActivity, s("; pending 0")},
            {Orvana::DeadlineChange,
             s("; Запрос на продление задачи не удалось отправить, повторите попытку позже.")}};
        const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
        for (int i = 0; i < errors.keyCount(); ++i) {
            const auto error = static_cast<QNetworkReply::NetworkError>(errors.value(i));
            QString offline = s("offline<>");
            if (error == QNetworkReply::NoError)
                continue;
            if (error == QNetworkReply::HostNotFoundError || error == QNetworkReply::UnknownNetworkError)
                offline = s("offline<Ошибка соединения. >");
            else if (error == QNetworkReply::ProtocolUnknownError)
                offline = s("offline<Сайт недоступен. >");
            Bench bench;
            // Known details are not what listeners are told.
            bench.client.answer(bench.ask(Orvana::TaskDetails), kSuccess[Orvana::TaskDetails]);
            for (int stage = 0; stage < kStages; ++stage) {
                bench.client.session()->setOnline(true);
                // Whatever came with the error is not looked at.
                QCOMPARE(bench.outcome(bench.ask(stage), kSuccess[stage], error),
                         QString(before.value(stage) + offline + after.value(stage)));
                QVERIFY(!bench.client.session()->isOnline());
            }
        }
    }

    void onlineState()
    {
        Bench bench;
        const auto fail = QNetworkReply::ProtocolUnknownError;
        QCOMPARE(bench.outcome(bench.ask(8), "", fail), s("offline<Сайт недоступен. >"));
        QCOMPARE(bench.outcome(bench.ask(8), "", QNetworkReply::HostNotFoundError), QString());
        for (int stage = 0; stage < kStages; ++stage) {
            if (stage == Orvana::CheckLogin)
                continue;
            bench.client.session()->setOnline(false);
            QVERIFY(bench.outcome(bench.ask(stage), "{\"status\":-1}").contains(QLatin1String("online<>")));
            QVERIFY(!bench.outcome(bench.ask(stage), "{\"status\":-1}").contains(QLatin1String("online")));
        }
        // A new user's flag starts anew.
        bench.client.session()->setOnline(false);
        QCOMPARE(bench.outcome(bench.ask(Orvana::CheckLogin), "{\"status\":-1}"), s("error6; online<>"));
    }

    void otherUsersRepliesAreIgnored()
    {
        for (const int stage : {Orvana::TeamsAndTasks, Orvana::TaskDetails, Orvana::TimeSync}) {
            Bench bench;
            const auto request = bench.ask(stage);
            bench.client.login(s("other"));
            bench.client.session()->setOnline(false);
            QCOMPARE(bench.outcome(request, kSuccess[stage]), s("online<>"));
        }
        // The minute was the first user's, and is off the disk.
        Bench bench;
        const auto request = bench.ask(Orvana::SendActivity);
        bench.client.login(s("other"));
        QCOMPARE(bench.outcome(request, kSuccess[Orvana::SendActivity]), s("records 0; pending 0"));
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
        // The same user again is loaded anew from what was saved.
        bench.client.session()->setActive(true);
        bench.client.login(s("b"), s("3"));
        QVERIFY(bench.client.session()->isActive());
    }

    void versions()
    {
        // As it is stored, whether it is offered, and how many entries the updater finds in the file.
        const std::tuple<const char *, const char *, bool, int> rows[] = {
            {R"([{"version":"1.1.1"}])", "1.1.1", true, 1},
            {R"([{"version":"1.1.0"}])", "1.1.0", false, 1},
            {R"([{"version":"1.1"}])", "1.1", false, 1},
            {R"([{"file":"a"},5,{"version":2}])", "2", true, 3},
            {R"([{"version":null},{"version":"2"}])", "", false, 2},
            {R"({"version":"2"})", "", false, 0}};
        for (const auto &[body, version, isOffered, entries] : rows) {
            Bench bench;
            const QString outcome = bench.outcome(bench.ask(Orvana::CheckUpdate), body);
            QCOMPARE(outcome.contains(s("newer; Доступно новое обновление Orvana Team") + s(version)),
                     isOffered);
            QCOMPARE(outcome.contains(QLatin1String("current")), !isOffered);
            QCOMPARE(OrvanaUpdate::instance()->availableUpdateVersion(), s(version));
            QCOMPARE(bench.client.stored(s("update.json"), s("updateInfo")).toList().size(), entries);
            // Once an hour at most one popup speaks of it.
            bench.client.answer(bench.ask(Orvana::CheckUpdate), body);
            bench.client.answer(bench.ask(Orvana::CheckUpdate), body);
            QCOMPARE(bench.client.notices().take().size(), isOffered ? 1 : 0);
        }
    }
};

QTEST_MAIN(TestReplies)

#include "tst_replies.moc"
