#include "files.h"
#include "localservice/seed.h"
#include "localservice/server.h"
#include "rows.h"
#include "servicecalls.h"

#include <QSslSocket>

#include <vector>

#include <signal.h>

using namespace localservice;

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

    void reports_data()
    {
        addColumns<QByteArray, QString>("body", "acceptedTask");
        const QString cyrillic = s("%41+&= задача");
        const QByteArray json = QJsonDocument(QJsonArray{report(3, 0, cyrillic)}).toJson();
        QTest::newRow("encoded twice over") << uploadBody(json) << cyrillic;
        QTest::newRow("old minute") << uploadBody(report(10, 4294967295)) << "1701";
        QTest::newRow("encoded once") << "data=" + QUrl::toPercentEncoding(QString::fromUtf8(json)) << "";
        QTest::newRow("not JSON") << uploadBody(QByteArray("[{\"email\":")) << "";
        QTest::newRow("eleven slices") << uploadBody(report(11)) << "";
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
                QCOMPARE(contentsOf(server.screenshots().at(0).path), jpeg);
                QFile torn(folder.filePath(s("reports.jsonl")));
                QVERIFY(torn.open(QIODevice::Append) && torn.write("{\"arrived\": torn\n") > 0);
            }
            QCOMPARE(grown(), totals);
            QCOMPARE(server.reports().size(), 4);
        }
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

    void pageChanges()
    {
        const std::tuple<const char *, const char *, bool> rows[] = {
            {"add-task", "team=17&title=Новая%20%26%20срочная&deadline=2030-01-02T03:04", true},
            {"add-task", "team=17&title=%20%20", false},
            {"set-deadline", "task=1702&deadline=завтра", false},
            {"set-deadline", "task=1702&deadline=", true},
            {"set-block", "task=1702&block=1", true},
            {"add-comment", "task=1702", true},
            {"remove-task", "task=1704", true},
            {"remove-task", "task=1704", false},
            {"add-team", "name=Новая", true},
            {"add-team", "name=Новая&id=2192", false},
            {"remove-team", "team=41", true},
            {"set-versions", "version=1.2.0&version2=1.2.0", true},
            {"format-disk", "", false}};
        for (const auto &[action, form, isDone] : rows)
            QCOMPARE(m_calls->post(s("/control/") + s(action), QByteArray(form)).status, isDone ? 303 : 400);
        World world = m_server->world();
        const Task added = world.team(s("17"))->tasks.last();
        QCOMPARE(added.title, s("Новая & срочная"));
        QCOMPARE(added.deadline, QDateTime(QDate(2030, 1, 2), QTime(3, 4)));
        const Task changed = *world.task(s("1702"));
        QVERIFY(!changed.deadline.isValid() && changed.block == s("1"));
        QVERIFY(changed.lastComment.secsTo(QDateTime::currentDateTime()) < 60);
        QVERIFY(!world.task(s("1704")) && !world.team(s("41")));
        QVERIFY(world.users.last().sees(world.teams.last().id));
        QCOMPARE(world.versions.size(), 2);
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

    void seeds()
    {
        const QDateTime now(QDate(2024, 2, 28), QTime(23, 45));
        const auto deadlines = [&now](const char *tasks) {
            const QByteArray seed = QByteArray(R"({"users":[{"login":"a","password":"b"}],)"
                                               R"("teams":[{"id":"1","name":"t","tasks":[)")
                + tasks + "]}]}";
            QString found;
            const auto world = worldFromSeed(seed, now, &found); // or what is wrong with it
            for (int i = 0; world && i < world->teams.first().tasks.size(); ++i)
                found += world->teams.first().tasks.at(i).deadline.toString(s("dd.MM hh:mm "));
            return found;
        };
        QCOMPARE(deadlines(R"({"id":1,"title":"x","deadline":"-30m"},{"id":2,"title":"x","deadline":"+25h"},)"
                           R"({"id":3,"title":"x","deadline":"+2d"},{"id":4,"title":"x"})"),
                 s("28.02 23:15 01.03 00:45 01.03 23:45 "));
        QVERIFY(deadlines(R"({"id":"1","title":"x","deadlin":"+1h"})").contains(s("«deadlin»")));
        QVERIFY(deadlines(R"({"id":"1","title":"x","deadline":"01.02.2024"})")
                    .contains(s("teams[0].tasks[0].deadline")));
        QVERIFY(deadlines(R"({"id":"1","title":"x"},{"id":"1","title":"y"})").contains(s("дважды")));
        QVERIFY(deadlines("\n\n{").contains(s("строка 3")));
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

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
