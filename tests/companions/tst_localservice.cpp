#include "localservice/seed.h"
#include "localservice/server.h"
#include "rows.h"
#include "servicecalls.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QSslSocket>
#include <QTemporaryDir>

#include <functional>
#include <vector>

#include <signal.h>

using namespace localservice;
using namespace std::chrono_literals;
using Check = std::function<bool(const World &)>;

Q_DECLARE_METATYPE(Fault)
Q_DECLARE_METATYPE(Check)

namespace {

const QString kReports = s("/api_active2");
const QByteArray kAccepted = "{\"status\":\"ok\"}";
const QByteArray kRefused = "{\"status\":\"error\",";

QJsonObject with(QJsonObject object, const char *key, const QJsonValue &value)
{
    object.insert(s(key), value);
    return object;
}

} // namespace

// What the client's own tests do not ask of the service: that it judges strictly,
// survives anything and can be steered by a person.
class TestLocalService final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_server = std::make_unique<Server>();
        QVERIFY(m_server->start());
        m_calls = std::make_unique<ServiceCalls>(m_server->baseUrl());
    }
    void cleanup()
    {
        m_calls.reset();
        m_server.reset();
    }

    void credentials_data()
    {
        addColumns<QString, QString, bool>("login", "password", "accepted");
        const QString pyotr = s("пётр+test@orvana.example");
        QTest::newRow("odd characters") << pyotr << s("a+b&c=d% #;/\"я") << true;
        QTest::newRow("plus is not a blank") << pyotr << s("a b&c=d% #;/\"я") << false;
        QTest::newRow("other user's password") << pyotr << s("orvana") << false;
    }

    void credentials()
    {
        QFETCH(QString, login);
        QFETCH(QString, password);
        QFETCH(bool, accepted);
        const QByteArray refusal = "{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}";
        const Fields fields =
            as(login, password, {{s("task_id"), s("1701")}, {s("dl_date"), s("2030-01-02")}});
        for (const char *path : {"/api_teams", "/api_teams_tasks", "/api_get_task", "/api_get_active"})
            QVERIFY2((m_calls->get(s(path), fields).body != refusal) == accepted, path);
        QCOMPARE(m_calls->post(s("/api_task_deadline_request"), fields).body, accepted ? kAccepted : refusal);
        QCOMPARE(m_server->deadlineRequests().size(), accepted ? 1 : 0);
    }

    void recordsRequestsExactly()
    {
        m_calls->get(s("/api_teams?p=1+2%2B3&q&=v"));
        const RecordedRequest request = m_server->requests().constFirst();
        QCOMPARE(request.target, "/api_teams?p=1+2%2B3&q&=v");
        QCOMPARE(request.queryPairs, (Pairs{{s("p"), s("1 2+3")}, {s("q"), {}}, {{}, s("v")}}));
    }

    void reports_data()
    {
        addColumns<QByteArray, QString>("body", "acceptedTask");
        const QString cyrillic = s("%41+&= задача");
        const QByteArray json = QJsonDocument(QJsonArray{report(3, 0, cyrillic)}).toJson();
        QTest::newRow("encoded twice over") << uploadBody(json) << cyrillic;
        QTest::newRow("old minute") << uploadBody(report(10, 4294967295)) << "1701";
        QTest::newRow("encoded once") << "data=" + QUrl::toPercentEncoding(QString::fromUtf8(json)) << "";
        QTest::newRow("empty body") << QByteArray() << "";
        QTest::newRow("not JSON") << uploadBody(QByteArray("[{\"email\":")) << "";
        QTest::newRow("object without list") << uploadBody(QJsonDocument(report(1)).toJson()) << "";
        QTest::newRow("eleven slices") << uploadBody(report(11)) << "";
        QTest::newRow("age is not a number") << uploadBody(with(report(1), "past", s("soon"))) << "";
        QTest::newRow("unknown person") << uploadBody(with(report(1), "email", s("nobody"))) << "";
        QTest::newRow("nested deeply") << uploadBody(QByteArray(100000, '[')) << "";
    }

    void reports()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, acceptedTask);
        const QByteArray answer = m_calls->post(kReports, body).body;
        QVERIFY2(acceptedTask.isEmpty() ? answer.startsWith(kRefused) : answer == kAccepted,
                 answer.constData());
        QCOMPARE(m_server->reports().size(), acceptedTask.isEmpty() ? 0 : 1);
        if (!acceptedTask.isEmpty())
            QCOMPARE(m_server->reports().first().taskId, acceptedTask);
    }

    void totalsAndPicturesOutliveARestart()
    {
        const QString task = s("1704");
        const QTemporaryDir folder;
        Server::Options options;
        options.dataFolder = folder.path();
        QVector<int> totals;
        for (const bool again : {false, true}) {
            Server server(options);
            QVERIFY(server.start());
            ServiceCalls calls(server.baseUrl());
            const auto grown = [&] {
                const QJsonObject reply =
                    calls.get(s("/api_get_active"), asAnna({{s("task_id"), task}})).object();
                return QVector<int>{reply.value(s("today_total")).toInt(),
                                    reply.value(s("today_active")).toInt(),
                                    reply.value(s("today_task")).toInt()};
            };
            if (!again) {
                totals = grown();
                for (const QJsonObject &minute :
                     {report(7, 0, task), report(0, 0, task), report(1), report(9, 172800, task)})
                    calls.post(kReports, uploadBody(minute));
                totals = {totals[0] + 3, totals[1] + 2, totals[2] + 2};
                const QByteArray jpeg = "\xFF\xD8\xFF\xE0 and more";
                const QJsonObject shot = with(report(0), "fileName", s("/tmp/снимок.jpg"));
                for (const QByteArray &picture : {jpeg, jpeg, QByteArray("text")})
                    calls.post(s("/api_screenshot"),
                               uploadBody(with(shot, "file", QString::fromLatin1(picture.toBase64()))));
                QCOMPARE(server.screenshots().size(), 2);
                QVERIFY(server.screenshots().at(0).path != server.screenshots().at(1).path);
                QFile stored(server.screenshots().at(0).path);
                QVERIFY(stored.open(QIODevice::ReadOnly) && stored.readAll() == jpeg);
                QFile torn(folder.filePath(s("reports.jsonl")));
                QVERIFY(torn.open(QIODevice::Append) && torn.write("{\"arrived\": torn\n") > 0);
            }
            QCOMPARE(grown(), totals);
            QCOMPARE(server.reports().size(), 4);
        }
    }

    void deadlineRequests()
    {
        const QStringList refused[] = {{s("1702"), s("2030-02-30"), s("10:00")},
                                       {s("1702"), s("2030-02-28"), s("25:00")},
                                       {s("1702"), s("2030-02-28"), {}},
                                       {s("0"), s("2030-02-28"), s("10:00")}};
        for (const QStringList &asked : refused) {
            const Fields fields{{s("task_id"), asked[0]}, {s("dl_date"), asked[1]}, {s("dl_time"), asked[2]}};
            const QJsonObject reply = m_calls->post(s("/api_task_deadline_request"), asAnna(fields)).object();
            QCOMPARE(reply.value(s("status")).toString(), s("fail"));
        }
        QVERIFY(m_server->deadlineRequests().isEmpty());
    }

    void faults_data()
    {
        addColumns<Fault, int, int, QByteArray, bool>("fault", "error", "status", "body", "accepted");
        const auto row = [](const char *name, const Fault &fault, QNetworkReply::NetworkError error,
                            int status, const QByteArray &body, bool accepted) {
            QTest::newRow(name) << fault << int(error) << status << body << accepted;
        };
        using Reply = QNetworkReply;
        row("refuse", Fault::refuse(), Reply::RemoteHostClosedError, 0, "", false);
        row("lose the reply", Fault::loseReply(), Reply::RemoteHostClosedError, 0, "", true);
        row("delay", Fault::delayed(300ms), Reply::NoError, 200, kAccepted, true);
        row("status", Fault::answer(503, "down"), Reply::ServiceUnavailableError, 503, "down", false);
        row("strange body", Fault::answer(200, "\t<!DOCTYPE\xC0"), Reply::NoError, 200, "\t<!DOCTYPE\xC0",
            false);
        row("cut body", Fault::truncate(5), Reply::RemoteHostClosedError, 200, kAccepted.left(5), true);
    }

    void faults()
    {
        QFETCH(Fault, fault);
        m_server->setFault(kReports, fault);
        QElapsedTimer timer;
        timer.start();
        const Answer answer = m_calls->post(kReports, uploadBody(report(5)));
        QTEST(int(answer.error), "error");
        QTEST(answer.status, "status");
        QTEST(answer.body, "body");
        QVERIFY(timer.elapsed() >= fault.delay.count());
        QTEST(!m_server->reports().isEmpty(), "accepted");
        QCOMPARE(m_calls->get(s("/api_teams"), asAnna()).status, 200);
        m_server->clearFaults();
        QCOMPARE(m_calls->post(kReports, uploadBody(report(5))).body, kAccepted);
    }

    void faultsTakeTurns()
    {
        const QString path = s("/api_teams");
        Fault third = Fault::answer(404);
        third.skip = 1;
        m_server->setFault(path, Fault::answer(500), 2);
        m_server->appendFault(path, third, 1);
        m_server->setFault(s("*"), Fault::answer(503));
        for (const int status : {500, 500, 200, 404, 503})
            QCOMPARE(m_calls->get(path, asAnna()).status, status);
    }

    void survivesHostileConnections()
    {
        std::vector<std::unique_ptr<QSslSocket>> sockets;
        const auto port = static_cast<quint16>(m_server->port());
        for (const QByteArray &opening :
             {QByteArray("GET"), QByteArray("\r\n\r\n"), QByteArray(20000, 'x'),
              QByteArray("GET /%00%ff%zz?%=&&=%& HTTP/1.1\r\nHost: x\r\n\r\n"),
              QByteArray("POST /api_active2 HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\ndata"),
              QByteArray("POST /api_active2 HTTP/1.1\r\nContent-Length: -5\r\n\r\ndata")}) {
            auto socket = std::make_unique<QSslSocket>();
            socket->setPeerVerifyMode(QSslSocket::VerifyNone);
            socket->connectToHostEncrypted(s("127.0.0.1"), port);
            QVERIFY(socket->waitForEncrypted());
            socket->write(opening);
            socket->flush();
            sockets.push_back(std::move(socket));
        }
        QTcpSocket plain;
        plain.connectToHost(s("127.0.0.1"), port);
        QVERIFY(plain.waitForConnected());
        plain.write("GET / HTTP/1.0\r\n\r\n");
        QVERIFY(plain.waitForDisconnected());
        m_server->setFault(s("/api_get_active"), Fault::hang());
        const auto hanging = m_calls->startGet(s("/api_get_active"), asAnna());
        QCOMPARE(m_calls->get(s("/api_teams"), asAnna()).array().size(), 3);
        QElapsedTimer timer;
        timer.start();
        m_server->stop();
        QVERIFY(timer.elapsed() < 1000);
    }

    void pageChanges_data()
    {
        addColumns<QString, Fields, Check>("action", "form", "check"); // without a check: refused
        const auto row = [](const char *name, const char *action, const Fields &form,
                            const Check &check = {}) { QTest::newRow(name) << s(action) << form << check; };
        const QString team = s("team");
        const QString task = s("task");
        const QString title = s("title");
        const QString known = s("1702");
        row("add a task", "add-task",
            {{team, s("17")}, {title, s("Новая & срочная")}, {s("deadline"), s("2030-01-02T03:04")}},
            [](const World &world) {
                const Task &added = world.teams.first().tasks.last();
                return added.title == s("Новая & срочная")
                    && added.deadline == QDateTime(QDate(2030, 1, 2), QTime(3, 4));
            });
        row("task without title", "add-task", {{team, s("17")}, {title, s("  ")}});
        row("task in no team", "add-task", {{team, s("18")}, {title, s("x")}});
        row("bad date", "set-deadline", {{task, known}, {s("deadline"), s("завтра")}});
        row("remove a task", "remove-task", {{task, known}},
            [known](const World &world) { return !world.task(known); });
        row("comment", "add-comment", {{task, known}}, [known](const World &world) {
            return qAbs(world.task(known)->lastComment.secsTo(QDateTime::currentDateTime())) < 60;
        });
        row("block", "set-block", {{task, known}, {s("block"), s("1")}},
            [known](const World &world) { return world.task(known)->block == QLatin1String("1"); });
        row("drop the deadline", "set-deadline", {{task, known}, {s("deadline"), s("")}},
            [known](const World &world) { return !world.task(known)->deadline.isValid(); });
        row("add a team", "add-team", {{s("name"), s("Новая")}}, [](const World &world) {
            return world.teams.size() == 4 && world.users.last().sees(world.teams.last().id);
        });
        row("team twice", "add-team", {{s("name"), s("Новая")}, {s("id"), s("2192")}});
        row("remove a team", "remove-team", {{team, s("17")}},
            [](const World &world) { return world.teams.size() == 2 && !world.team(s("17")); });
        row("offer an update", "set-versions", {{s("version"), s("1.2.0")}, {s("version2"), s("1.2.0")}},
            [](const World &world) { return world.versions.size() == 2; });
        row("unknown action", "format-disk", {});
    }

    void pageChanges()
    {
        QFETCH(QString, action);
        QFETCH(Fields, form);
        QFETCH(Check, check);
        QCOMPARE(m_calls->post(s("/control/") + action, form).status, check ? 303 : 400);
        const World world = m_server->world();
        QVERIFY(check ? check(world) : world.teams.size() == 3 && world.teams.first().tasks.size() == 7);
        QVERIFY(m_server->requests().isEmpty());
    }

    void outageSparesThePage()
    {
        for (const char *mode : {"unavailable", "dropped", "none"}) {
            m_calls->post(s("/control/set-outage"), Fields{{s("mode"), s(mode)}});
            const Answer answer = m_calls->get(s("/api_teams"), asAnna());
            QCOMPARE(answer.status, mode[0] == 'u' ? 503 : mode[0] == 'd' ? 0 : 200);
            QCOMPARE(m_calls->get(s("/")).status, 200);
        }
    }

    void pageEscapesEverything()
    {
        const QString evil = s("<script>\"x\"&'</script>");
        m_server->edit([&evil](World &world) {
            world.addTeam({evil, evil});
            Task task;
            task.id = task.title = task.details.text = evil;
            world.addTask(evil, task);
            world.setVersions({evil, evil});
            world.users.append({evil, evil});
        });
        QJsonObject minute = report(1, 0, evil);
        for (const char *key : {"email", "team_id", "version"})
            minute = with(minute, key, evil);
        m_calls->post(kReports, uploadBody(minute));
        m_calls->post(s("/api_screenshot"), uploadBody(minute));
        m_calls->post(
            s("/api_task_deadline_request"),
            as(evil, evil, {{s("task_id"), evil}, {s("dl_date"), s("2030-01-02")}, {s("message"), evil}}));
        const QByteArray pages[]{m_calls->get(s("/")).body, m_calls->get(s("/task"), {{s("id"), evil}}).body,
                                 m_calls->get(s("/monitor/")).body};
        for (const QByteArray &page : pages) {
            QVERIFY(page.contains("&lt;script&gt;&quot;x&quot;&amp;"));
            QVERIFY(!page.contains("<script") && !page.contains("\"x\""));
        }
        // Each of the records shows up, with all its texts.
        QVERIFY(pages[0].count("&lt;script&gt;") >= 15);
    }

    void seedTimesAreRelative()
    {
        const QByteArray seed = R"({"users":[{"login":"a","password":"b"}],"teams":[{"id":1,"name":"t",
            "tasks":[{"id":1,"title":"x","deadline":"-30m"},{"id":2,"title":"x","deadline":"+25h"},
            {"id":3,"title":"x","deadline":"+2d"},{"id":4,"title":"x"}]}]})";
        const auto world = worldFromSeed(seed, QDateTime(QDate(2024, 2, 28), QTime(23, 45)), nullptr);
        QVERIFY(world);
        QStringList deadlines;
        for (const Task &task : world->teams.first().tasks)
            deadlines.append(task.deadline.toString(Qt::ISODate));
        QCOMPARE(deadlines, texts({"2024-02-28T23:15:00", "2024-03-01T00:45:00", "2024-03-01T23:45:00", ""}));
    }

    void brokenSeeds_data()
    {
        const auto task = [](const char *text) -> QByteArray {
            return QByteArray(R"({"users":[{"login":"a","password":"b"}],)"
                              R"("teams":[{"id":"1","name":"t","tasks":[)")
                + text + "]}]}";
        };
        addColumns<QByteArray, QString>("seed", "complaint");
        QTest::newRow("cut off") << QByteArray("{\n\n\"users\": [{") << s("строка 3");
        QTest::newRow("a list") << QByteArray("[]") << s("объект");
        QTest::newRow("no password") << QByteArray(R"({"users":[{"login":"a"}]})") << s("users[0].password");
        QTest::newRow("misspelt key") << task(R"({"id":"1","title":"x","deadlin":"+1h"})") << s("«deadlin»");
        QTest::newRow("bad time") << task(R"({"id":"1","title":"x","deadline":"01.02.2024"})")
                                  << s("teams[0].tasks[0].deadline");
        QTest::newRow("same id twice")
            << task(R"({"id":"1","title":"x"},{"id":"1","title":"y"})") << s("дважды");
        QTest::newRow("tasks are text") << task(R"("x")") << s("teams[0].tasks[0]");
    }

    void brokenSeeds()
    {
        QFETCH(QByteArray, seed);
        QFETCH(QString, complaint);
        QString error;
        QVERIFY(!worldFromSeed(seed, QDateTime::currentDateTime(), &error));
        QVERIFY2(error.contains(complaint), qPrintable(error));
    }

    void programServesAndEnds()
    {
        const QTemporaryDir folder;
        for (const int ending : {SIGTERM, SIGINT}) {
            QProcess program;
            program.start(s(LOCALSERVICE_PROGRAM), {s("--port"), s("0"), s("--data"), folder.path()});
            QByteArray output;
            const auto said = [&program, &output](const char *word) {
                output += program.readAllStandardOutput();
                return output.contains(word);
            };
            QTRY_VERIFY(said("anna@orvana.example / orvana\n"));
            const QRegularExpression address(s("https://127\\.0\\.0\\.1:[0-9]+"));
            ServiceCalls calls(address.match(QString::fromUtf8(output)).captured());
            QCOMPARE(calls.post(kReports, uploadBody(report(7))).body, kAccepted);
            QTRY_VERIFY(said("активность 7"));
            ::kill(static_cast<pid_t>(program.processId()), ending);
            QVERIFY(program.waitForFinished());
            QCOMPARE(program.exitStatus(), QProcess::NormalExit);
            QCOMPARE(program.exitCode(), 0);
        }
        QVERIFY(QFile::exists(folder.filePath(s("seed.json"))));
        QCOMPARE(QFile::permissions(folder.filePath(s("reports.jsonl"))) & 0x077, QFile::Permissions());
    }

    void programRefuses_data()
    {
        addColumns<QStringList, QString>("arguments", "complaint");
        QTest::newRow("port taken") << texts({"--port", "TAKEN"}) << s("занят");
        QTest::newRow("unknown option") << texts({"--prot", "1"}) << s("prot");
        QTest::newRow("impossible folder")
            << texts({"--port", "0", "--data", "/dev/null/x"}) << s("/dev/null/x");
    }

    void programRefuses()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        QProcess program;
        program.start(s(LOCALSERVICE_PROGRAM),
                      arguments.replaceInStrings(s("TAKEN"), QString::number(m_server->port())));
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitCode(), 1);
        const QString said = QString::fromUtf8(program.readAllStandardError());
        QVERIFY2(said.contains(complaint), qPrintable(said));
    }

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
