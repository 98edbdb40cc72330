#include "localservice/seed.h"
#include "localservice/server.h"
#include "servicecalls.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

#include <signal.h>

using namespace localservice;

/// What a person does with the service: its page, its seed file, its program.
class TestLocalServicePage final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void changes_data();
    void changes();
    void outageSparesThePage();
    void everythingIsEscaped();
    void relativeTimes();
    void brokenSeeds_data();
    void brokenSeeds();
    void programServesAndEnds();
    void programRefuses_data();
    void programRefuses();

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

using Check = std::function<bool(const World &)>;
Q_DECLARE_METATYPE(Check)

void TestLocalServicePage::init()
{
    m_server = std::make_unique<Server>();
    QString error;
    QVERIFY2(m_server->start(&error), qPrintable(error));
    m_calls = std::make_unique<ServiceCalls>(m_server->baseUrl());
}

void TestLocalServicePage::cleanup()
{
    m_calls.reset();
    m_server.reset();
}

void TestLocalServicePage::changes_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<Fields>("form");
    QTest::addColumn<int>("status");
    QTest::addColumn<Check>("check");
    const auto fields = [](std::initializer_list<std::pair<const char *, const char *>> list) {
        Fields made;
        for (const auto &[name, value] : list) {
            made.append({QString::fromUtf8(name), QString::fromUtf8(value)});
        }
        return made;
    };
    const auto change = [](const char *name, const char *action, const Fields &form, int status,
                           const Check &check) {
        QTest::newRow(name) << QString::fromUtf8(action) << form << status << check;
    };
    constexpr int done = 303;
    constexpr int refused = 400;
    const QString known = QStringLiteral("1702");
    const Check unchanged = [](const World &world) {
        return world.teams.size() == 3 && world.teams.first().tasks.size() == 7 && world.versions.size() == 1;
    };

    change("add a task", "add-task",
           fields({{"team", "17"},
                   {"title", "Новая & срочная"},
                   {"deadline", "2030-01-02T03:04"},
                   {"block", "on"}}),
           done, [](const World &world) {
               const Task &task = world.teams.first().tasks.last();
               return task.title == QStringLiteral("Новая & срочная") && task.block == QLatin1String("1")
                   && task.importance == 0 && task.deadline == QDateTime(QDate(2030, 1, 2), QTime(3, 4))
                   && world.task(task.id) == &task;
           });
    change("task without title", "add-task", fields({{"team", "17"}, {"title", "  "}}), refused, unchanged);
    change("task in no team", "add-task", fields({{"team", "18"}, {"title", "x"}}), refused, unchanged);
    change("task with a bad date", "add-task",
           fields({{"team", "17"}, {"title", "x"}, {"deadline", "завтра"}}), refused, unchanged);
    change("remove a task", "remove-task", fields({{"task", "1702"}}), done, [known](const World &world) {
        return !world.task(known) && world.teams.first().tasks.size() == 6;
    });
    change("remove an unknown task", "remove-task", fields({{"task", "x"}}), refused, unchanged);
    change("comment", "add-comment", fields({{"task", "1702"}}), done, [known](const World &world) {
        return qAbs(world.task(known)->lastComment.secsTo(QDateTime::currentDateTime())) < 60;
    });
    change("block", "set-block", fields({{"task", "1702"}, {"block", "1"}}), done,
           [known](const World &world) { return world.task(known)->block == QLatin1String("1"); });
    change("move the deadline", "set-deadline", fields({{"task", "1702"}, {"deadline", "2031-05-06T07:08"}}),
           done, [known](const World &world) {
               return world.task(known)->deadline == QDateTime(QDate(2031, 5, 6), QTime(7, 8));
           });
    change("drop the deadline", "set-deadline", fields({{"task", "1702"}, {"deadline", ""}}), done,
           [known](const World &world) { return !world.task(known)->deadline.isValid(); });
    change("add a team", "add-team", fields({{"name", "Новая"}}), done, [](const World &world) {
        const Team &team = world.teams.last();
        return team.name == QStringLiteral("Новая") && world.teams.size() == 4
            && std::all_of(world.users.begin(), world.users.end(),
                           [&team](const User &user) { return user.sees(team.id); });
    });
    change("add a team twice", "add-team", fields({{"name", "Новая"}, {"id", "2192"}}), refused, unchanged);
    change("remove a team", "remove-team", fields({{"team", "17"}}), done,
           [](const World &world) { return world.teams.size() == 2 && !world.team(QStringLiteral("17")); });
    change("offer two entries", "set-versions", fields({{"version", "1.2.0"}, {"version2", "1.2.0"}}), done,
           [](const World &world) { return world.versions.size() == 2; });
    change("offer none", "set-versions", fields({{"version", " "}, {"version2", ""}}), done,
           [](const World &world) { return world.versions.isEmpty(); });
    change("unknown action", "format-disk", fields({}), refused, unchanged);
}

void TestLocalServicePage::changes()
{
    QFETCH(QString, action);
    QFETCH(Fields, form);
    QFETCH(int, status);
    QFETCH(Check, check);
    QCOMPARE(m_calls->post(QStringLiteral("/control/") + action, form).status, status);
    QVERIFY(check(m_server->world()));
    QVERIFY(m_server->requests().isEmpty());
}

void TestLocalServicePage::outageSparesThePage()
{
    const auto meet = [this](const char *mode) {
        m_calls->post(QStringLiteral("/control/set-outage"),
                      Fields{{QStringLiteral("mode"), QLatin1String(mode)}});
        return m_calls->get(QStringLiteral("/api_teams"), asAnna());
    };
    QCOMPARE(meet("unavailable").status, 503);
    QCOMPARE(m_calls->get(QStringLiteral("/")).status, 200);
    QCOMPARE(meet("dropped").error, QNetworkReply::RemoteHostClosedError);
    QCOMPARE(m_calls->get(QStringLiteral("/")).status, 200);
    QCOMPARE(meet("none").array().size(), 3);
}

void TestLocalServicePage::everythingIsEscaped()
{
    const QString evil = QStringLiteral("<script>\"x\"&'</script>");
    m_server->edit([&evil](World &world) {
        world.addTeam({evil, evil});
        Task task;
        task.id = evil;
        task.title = evil;
        task.details.text = evil;
        world.addTask(evil, task);
        world.setVersions({evil, evil});
        world.users.append({evil, evil});
    });
    QJsonObject minute = report(1, 0, evil);
    for (const char *key : {"email", "team_id", "version"}) {
        minute.insert(QLatin1String(key), evil);
    }
    QCOMPARE(m_calls->post(QStringLiteral("/api_active2"), uploadBody(minute)).body, "{\"status\":\"ok\"}");
    QCOMPARE(m_calls->post(QStringLiteral("/api_screenshot"), uploadBody(minute)).body, "ok");
    const Fields request{{QStringLiteral("task_id"), evil},
                         {QStringLiteral("dl_date"), QStringLiteral("2030-01-02")},
                         {QStringLiteral("message"), evil}};
    m_calls->post(QStringLiteral("/api_task_deadline_request"), as(evil, evil, request));
    QCOMPARE(m_server->deadlineRequests().size(), 1);

    const QByteArray pages[]{m_calls->get(QStringLiteral("/")).body,
                             m_calls->get(QStringLiteral("/task"), {{QStringLiteral("id"), evil}}).body,
                             m_calls->get(QStringLiteral("/monitor/")).body};
    for (const QByteArray &page : pages) {
        QVERIFY(page.contains("&lt;script&gt;&quot;x&quot;&amp;"));
        QVERIFY(!page.contains("<script"));
        QVERIFY(!page.contains("\"x\""));
    }
    QVERIFY(pages[0].count("&lt;script&gt;") >= 15);
    QCOMPARE(m_calls->get(QStringLiteral("/task"), {{QStringLiteral("id"), QStringLiteral("нет")}}).status,
             404);
}

void TestLocalServicePage::relativeTimes()
{
    const QDateTime now(QDate(2024, 2, 28), QTime(23, 45));
    const QByteArray seed = R"({"users":[{"login":"a","password":"b"}],"teams":[{"id":1,"name":"t","tasks":[
        {"id":1,"title":"x","deadline":"-30m"},{"id":2,"title":"x","deadline":"+25h"},
        {"id":3,"title":"x","deadline":"+2d"},{"id":4,"title":"x","deadline":"2024-03-01 18:00:00"},
        {"id":5,"title":"x"}]}]})";
    QString error;
    const std::optional<World> world = worldFromSeed(seed, now, &error);
    QVERIFY2(world, qPrintable(error));
    QStringList deadlines;
    for (const Task &task : world->teams.first().tasks) {
        deadlines.append(task.deadline.toString(Qt::ISODate));
    }
    QCOMPARE(deadlines,
             QStringList({QStringLiteral("2024-02-28T23:15:00"), QStringLiteral("2024-03-01T00:45:00"),
                          QStringLiteral("2024-03-01T23:45:00"), QStringLiteral("2024-03-01T18:00:00"),
                          QString()}));
}

void TestLocalServicePage::brokenSeeds_data()
{
    QTest::addColumn<QByteArray>("seed");
    QTest::addColumn<QString>("complaint");
    const QByteArray user = R"("users":[{"login":"a","password":"b"}])";
    const auto tasks = [&user](const char *list) -> QByteArray {
        return "{" + user + R"(,"teams":[{"id":"1","name":"t","tasks":[)" + list + "]}]}";
    };
    QTest::newRow("cut off") << QByteArray("{\n\n\"users\": [{") << "строка 3";
    QTest::newRow("empty") << QByteArray() << "строка 1";
    QTest::newRow("a list") << QByteArray("[]") << "объект";
    QTest::newRow("nobody") << QByteArray("{}") << "users";
    QTest::newRow("no password") << QByteArray(R"({"users":[{"login":"a"}]})") << "users[0].password";
    QTest::newRow("misspelt key") << tasks(R"({"id":"1","title":"x","deadlin":"+1h"})") << "«deadlin»";
    QTest::newRow("bad time") << tasks(R"({"id":"1","title":"x","deadline":"01.02.2024"})")
                              << "teams[0].tasks[0].deadline";
    QTest::newRow("same id twice") << tasks(R"({"id":"1","title":"x"},{"id":"1","title":"y"})") << "дважды";
    QTest::newRow("title is a list") << tasks(R"({"id":"1","title":[]})") << "teams[0].tasks[0].title";
    QTest::newRow("tasks are text") << tasks(R"("x")") << "teams[0].tasks[0]";
}

void TestLocalServicePage::brokenSeeds()
{
    QFETCH(QByteArray, seed);
    QFETCH(QString, complaint);
    QString error;
    QVERIFY(!worldFromSeed(seed, QDateTime::currentDateTime(), &error));
    QVERIFY2(error.contains(complaint), qPrintable(error));
}

void TestLocalServicePage::programServesAndEnds()
{
    QTemporaryDir folder;
    for (const int ending : {SIGTERM, SIGINT}) {
        QProcess program;
        program.start(
            QStringLiteral(LOCALSERVICE_PROGRAM),
            {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--data"), folder.path()});
        QByteArray output;
        const auto said = [&program, &output](const char *word) {
            output += program.readAllStandardOutput();
            return output.contains(word);
        };
        QTRY_VERIFY(said("anna@orvana.example / orvana\n"));
        const QString url = QRegularExpression(QStringLiteral("https://127\\.0\\.0\\.1:[0-9]+"))
                                .match(QString::fromUtf8(output))
                                .captured();
        ServiceCalls calls(url);
        QCOMPARE(calls.post(QStringLiteral("/api_active2"), uploadBody(report(7))).body,
                 "{\"status\":\"ok\"}");
        QTRY_VERIFY(said("активность 7"));
        ::kill(static_cast<pid_t>(program.processId()), ending);
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
    }
    QFile stored(folder.filePath(QStringLiteral("reports.jsonl")));
    QVERIFY(stored.open(QIODevice::ReadOnly));
    QCOMPARE(stored.readAll().count('\n'), 2);
    QCOMPARE(QFile::permissions(stored.fileName()) & (QFile::ReadGroup | QFile::ReadOther),
             QFile::Permissions());
    QVERIFY(QFile::exists(folder.filePath(QStringLiteral("seed.json"))));
}

void TestLocalServicePage::programRefuses_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("port taken") << QStringList{QStringLiteral("--port"), QStringLiteral("TAKEN")} << "занят";
    QTest::newRow("no port number") << QStringList{QStringLiteral("--port"), QStringLiteral("70000")}
                                    << "70000";
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--prot"), QStringLiteral("1")} << "prot";
    QTest::newRow("impossible folder") << QStringList{QStringLiteral("--port"), QStringLiteral("0"),
                                                      QStringLiteral("--data"), QStringLiteral("/dev/null/x")}
                                       << "/dev/null/x";
}

void TestLocalServicePage::programRefuses()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, complaint);
    arguments.replaceInStrings(QStringLiteral("TAKEN"), QString::number(m_server->port()));
    QProcess program;
    program.start(QStringLiteral(LOCALSERVICE_PROGRAM), arguments);
    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitCode(), 1);
    const QString said = QString::fromUtf8(program.readAllStandardError());
    QVERIFY2(said.contains(complaint), qPrintable(said));
}

QTEST_GUILESS_MAIN(TestLocalServicePage)
#include "tst_localservicepage.moc"
