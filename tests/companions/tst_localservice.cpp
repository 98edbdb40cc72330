#include "files.h"
#include "localservice/seed.h"
#include "localservice/server.h"
#include "rows.h"
#include "servicecalls.h"

#include <QSslSocket>

#include <vector>

#include <signal.h>
#include <unistd.h>

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
        QTest::newRow("older than 32 bits") << uploadBody(report(10, 4294967296)) << "";
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
            auto socket = connected();
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
            {"add-team", "name=Далеко&id=9223372036854775807", true},
            {"add-team", "name=Следом", true},
            {"remove-team", "team=41", true},
            {"set-versions", "version=1.2.0&version2=1.2.0", true},
            {"format-disk", "", false}};
        for (const auto &[action, form, isDone] : rows)
            QCOMPARE(m_calls->post(s("/control/") + s(action), form + andToken()).status, isDone ? 303 : 400);
        World world = m_server->world();
        const Task added = world.team(s("17"))->tasks.last();
        QCOMPARE(added.title, s("Новая & срочная"));
        QCOMPARE(added.deadline, QDateTime(QDate(2030, 1, 2), QTime(3, 4)));
        const Task changed = *world.task(s("1702"));
        QVERIFY(!changed.deadline.isValid() && changed.block == s("1"));
        QVERIFY(changed.lastComment.secsTo(QDateTime::currentDateTime()) < 60);
        QVERIFY(!world.task(s("1704")) && !world.team(s("41")));
        QVERIFY(world.users.last().sees(world.teams.last().id));
        QCOMPARE(world.teams.last().id, s("2194"));
        QCOMPARE(world.versions.size(), 2);
        QVERIFY(m_server->requests().isEmpty());
    }

    void foreignPosts_data()
    {
        addColumns<QString, QByteArray, QString, bool>("path", "header", "value", "isDone");
        const QString control = s("/control/remove-task");
        // PORT is the service's own.
        QTest::newRow("by hand") << control << QByteArray() << "" << true;
        QTest::newRow("own page") << control << QByteArray("Origin") << "https://127.0.0.1:PORT" << true;
        QTest::newRow("own page, no origin")
            << control << QByteArray("Referer") << "https://127.0.0.1:PORT/" << true;
        QTest::newRow("by name") << control << QByteArray("Host") << "localhost:PORT" << true;
        QTest::newRow("no token") << control << QByteArray("X-Token") << "" << false;
        QTest::newRow("wrong token") << control << QByteArray("X-Token") << QString(64, QLatin1Char('0'))
                                     << false;
        QTest::newRow("foreign page") << control << QByteArray("Origin") << "https://site.example" << false;
        QTest::newRow("no origin to speak of") << control << QByteArray("Origin") << "null" << false;
        QTest::newRow("another service here")
            << control << QByteArray("Origin") << "https://127.0.0.1:1" << false;
        QTest::newRow("foreign page, no origin")
            << control << QByteArray("Referer") << "https://site.example/https://127.0.0.1:PORT/" << false;
        QTest::newRow("foreign name") << control << QByteArray("Host") << "site.example:PORT" << false;
        QTest::newRow("report") << kReports << QByteArray("Host") << "any:1" << true;
        QTest::newRow("report of a page")
            << kReports << QByteArray("Origin") << "https://site.example" << false;
    }

    void foreignPosts()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, header);
        QFETCH(QString, value);
        QFETCH(bool, isDone);
        value.replace(s("PORT"), QString::number(m_server->port()));
        const bool hasOwnToken = header == "X-Token";
        QByteArray body = path == kReports ? uploadBody(report(1)) : QByteArray("task=1704");
        body += hasOwnToken ? "&token=" + value.toUtf8() : andToken();
        const int status = m_calls->post(path, body, {{header, value.toUtf8()}}).status;
        QCOMPARE(status, !isDone ? 403 : path == kReports ? 200 : 303);
        const bool isChanged = !m_server->reports().isEmpty() || !m_server->world().task(s("1704"));
        QCOMPARE(isChanged, isDone);
        QCOMPARE(m_calls->get(s("/")).status, 200);
    }

    void pageIsForOneUser()
    {
        if (::getuid() != 0)
            QSKIP("needs another user");
        QProcess other;
        other.start(s("setpriv"),
                    {s("--reuid=65534"), s("--clear-groups"), s("curl"), s("-sk"), s("--noproxy"), s("*"),
                     s("-w%{http_code} "), m_server->baseUrl() + s("/"),
                     m_server->baseUrl() + s("/screenshots/0"), m_server->baseUrl() + s("/task")});
        QVERIFY(other.waitForFinished());
        const QByteArray output = other.readAllStandardOutput();
        QVERIFY2(output.count("403 ") == 2 && output.contains("404 "), output.constData());
    }

    void limits_data()
    {
        addColumns<bool, bool, bool>("onDisk", "pictures", "recorded");
        QTest::newRow("minutes in memory") << false << false << false;
        QTest::newRow("pictures in memory") << false << true << false;
        QTest::newRow("minutes on disk") << true << false << false;
        QTest::newRow("pictures on disk") << true << true << false;
        QTest::newRow("requests") << true << false << true;
    }

    void limits()
    {
        QFETCH(bool, onDisk);
        QFETCH(bool, pictures);
        QFETCH(bool, recorded);
        constexpr int limit = 20000;
        const QTemporaryDir folder;
        QStringList lines;
        Server::Options options;
        options.recordRequests = recorded;
        if (onDisk)
            options.dataFolder = folder.path();
        (onDisk && !recorded ? options.limits.disk : options.limits.memory) = limit;
        options.log = [&lines](const QString &line) { lines.append(line); };
        Server server(options);
        QVERIFY(server.start());
        ServiceCalls calls(server.baseUrl());
        const QByteArray jpeg = "\xFF\xD8\xFF" + QByteArray(1000, 'x');
        const QByteArray minute = uploadBody(report(7, 0, QString(500, QLatin1Char('x'))));
        const QByteArray shot = uploadBody(with(report(7), "file", QString::fromLatin1(jpeg.toBase64())));
        const auto send = [&](ServiceCalls &to) {
            return pictures ? to.post(s("/api_screenshot"), shot) : to.post(kReports, minute);
        };
        Answer answer;
        int kept = -1;
        do {
            answer = send(calls);
            ++kept;
        } while (kept < 100 && (answer.body == kAccepted || answer.body == "ok"));
        QVERIFY(kept > 2 && kept < 100);
        QVERIFY(recorded ? answer.status == 507 : answer.body.startsWith(kRefused));
        QCOMPARE(send(calls).body, answer.body);
        QCOMPARE(server.reports().size() + server.screenshots().size(), kept);
        QCOMPARE(lines.filter(s("исчерпано")).size(), recorded ? 0 : 1);
        server.stop();
        if (recorded || !onDisk)
            return;
        qint64 size = 0;
        for (QDirIterator files(folder.path(), QDir::Files, QDirIterator::Subdirectories); files.hasNext();)
            size += QFileInfo(files.next()).size();
        QVERIFY(size <= limit);
        Server again(options);
        QVERIFY(again.start());
        ServiceCalls later(again.baseUrl());
        QVERIFY(send(later).body.startsWith(kRefused));
    }

    void idleConnectionsMakeWay()
    {
        std::vector<std::unique_ptr<QSslSocket>> sockets;
        for (int i = 0; i < 48; ++i)
            sockets.push_back(connected());
        QCOMPARE(m_calls->get(s("/api_teams"), asAnna()).status, 200);
        const auto isOpen = [](const auto &socket) { return socket->state() == QSslSocket::ConnectedState; };
        QTRY_COMPARE(std::count_if(sockets.begin(), sockets.end(), isOpen), 47);
    }

    void outageSparesThePage()
    {
        for (const char *mode : {"unavailable", "dropped", "none"}) {
            m_calls->post(s("/control/set-outage"), QByteArray("mode=") + mode + andToken());
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
            world.users.append({evil, s("the-password")});
        });
        QJsonObject minute = report(1, 0, evil);
        for (const char *key : {"email", "team_id", "version"})
            minute = with(minute, key, evil);
        m_calls->post(kReports, uploadBody(minute));
        m_calls->post(s("/api_screenshot"), uploadBody(minute));
        m_calls->post(s("/api_task_deadline_request"),
                      as(evil, s("the-password"),
                         {{s("task_id"), evil}, {s("dl_date"), s("2030-01-02")}, {s("message"), evil}}));
        const QByteArray pages[]{m_calls->get(s("/")).body, m_calls->get(s("/received")).body,
                                 m_calls->get(s("/task"), {{s("id"), evil}}).body,
                                 m_calls->get(s("/monitor/")).body};
        for (const QByteArray &page : pages) {
            QVERIFY(page.contains("&lt;script&gt;&quot;x&quot;&amp;"));
            QVERIFY(!page.contains("<script>") && !page.contains("\"x\"") && !page.contains("the-password"));
        }
        // Each of the records shows up, with all its texts.
        QVERIFY(pages[0].count("&lt;script&gt;") >= 14);
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
    QByteArray andToken() const { return "&token=" + m_server->controlToken(); }
    std::unique_ptr<QSslSocket> connected() const
    {
        auto socket = std::make_unique<QSslSocket>();
        socket->setPeerVerifyMode(QSslSocket::VerifyNone);
        socket->connectToHostEncrypted(s("127.0.0.1"), static_cast<quint16>(m_server->port()));
        if (!socket->waitForEncrypted())
            qWarning("no encrypted connection");
        return socket;
    }

    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
