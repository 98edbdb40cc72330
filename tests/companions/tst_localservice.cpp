#include "files.h"
#include "localservice/seed.h"
#include "localservice/server.h"
#include "rows.h"
#include "servicecalls.h"

#include <QRegularExpression>

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

// What a developer relies on who tries the client by hand, and what keeps others out.
class TestLocalService final : public QObject
{
    Q_OBJECT

private slots:
    void init() { restart({}); }

    void totalsAndScreenshotsSurviveARestart()
    {
        const QString task = s("1704");
        const QTemporaryDir folder;
        Server::Options options;
        options.dataFolder = folder.path();
        restart(options);
        const auto totals = [&] {
            const QJsonObject reply =
                m_calls->get(s("/api_get_active"), asAnna({{s("task_id"), task}})).object();
            return QVector<int>{reply.value(s("today_total")).toInt(), reply.value(s("today_active")).toInt(),
                                reply.value(s("today_task")).toInt()};
        };
        const QVector<int> before = totals();
        for (const QJsonObject &minute :
             {report(7, 0, task), report(0, 0, task), report(1), report(9, 172800, task)})
            m_calls->post(kReports, uploadBody(minute));
        const QVector<int> after{before[0] + 3, before[1] + 2, before[2] + 2};
        QCOMPARE(totals(), after);
        const QByteArray jpeg = "\xFF\xD8\xFF\xE0 and more";
        for (const QByteArray &file : {jpeg, jpeg, QByteArray("text")})
            m_calls->post(s("/api_screenshot"),
                          uploadBody(with(report(0), "file", QString::fromLatin1(file.toBase64()))));
        QCOMPARE(m_server->screenshots().size(), 2);
        QVERIFY(m_server->screenshots().at(0).path != m_server->screenshots().at(1).path);
        QCOMPARE(contentsOf(m_server->screenshots().at(0).path), jpeg);
        QCOMPARE(m_calls->get(s("/screenshots/1")).body, jpeg);
        QFile torn(folder.filePath(s("reports.jsonl")));
        QVERIFY(torn.open(QIODevice::Append) && torn.write("{\"arrived\": torn\n") > 0);
        restart(options);
        QCOMPARE(totals(), after);
    }

    void changes_data()
    {
        addColumns<QString, QString, QString>("action", "form", "result");
        const auto row = [](const char *action, const char *form, const char *result) {
            QTest::addRow("%s %s", action, form)
                << s(action) << s(form) << s(result).replace(QLatin1Char('\''), QLatin1Char('"'));
        };
        // What the state then says, or nothing when the change is refused.
        row("add-task", "team=17&title=Новая%20%26%20важная&important=on&deadline=2030-01-02T03:04",
            "{'block':'0','deadline':'2030-01-02 03:04:00','id':'21924','importance':1,'title':'Новая & "
            "важная'}");
        row("add-task", "team=17&title=%20%20", "");
        row("set-deadline", "task=1702&deadline=завтра", "");
        row("set-deadline",
            "task=1706&deadline=", "{'block':'0','id':'1706','importance':0,'title':'Обновить");
        row("set-block", "task=1704&block=1", "{'block':'1','id':'1704'");
        row("add-comment", "task=1704", "'id':'1704','importance':0,'last_comment':'20");
        row("remove-task", "task=nobody", "");
        row("remove-task", "task=1704",
            "'title':'Подобрать фотографии к обзору кофеен'},{'block':'0','deadline'");
        row("remove-team", "team=17", "'teams':[{'id':'41'");
        row("add-team", "name=Новая", "{'id':'2193','name':'Новая','tasks':[]}");
        row("add-team", "name=Новая&id=2192", "");
        row("add-team", "name=Далеко&id=9223372036854775807", "{'id':'9223372036854775807','name':'Далеко'");
        row("set-versions", "version=1.2.0&version2=1.3.0", "'version':'1.3.0'}]");
        row("set-outage", "mode=dropped", "'outage':'dropped'");
        row("set-outage", "mode=broken", "");
        row("format-disk", "", "");
    }

    void changes()
    {
        QFETCH(QString, action);
        QFETCH(QString, form);
        QFETCH(QString, result);
        const QByteArray before = state();
        QCOMPARE(m_calls->post(s("/control/") + action, form.toUtf8() + andToken()).status,
                 result.isEmpty() ? 400 : 204);
        const QByteArray after = state();
        QVERIFY2(result.isEmpty() ? after == before : after.contains(result.toUtf8()), after.constData());
        QVERIFY(result.isEmpty() || !before.contains(result.toUtf8()));
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
        QCOMPARE(status, !isDone ? 403 : path == kReports ? 200 : 204);
        const bool isChanged = !m_server->reports().isEmpty() || !m_server->world().task(s("1704"));
        QCOMPARE(isChanged, isDone);
    }

    void pageIsForOneUser()
    {
        if (::getuid() != 0)
            QSKIP("needs another user");
        QProcess other;
        const QString url = m_server->baseUrl();
        other.start(s("setpriv"),
                    {s("--reuid=65534"), s("--clear-groups"), s("curl"), s("-sk"), s("--noproxy"), s("*"),
                     s("-w%{http_code} "), url + s("/"), url + s("/state"), url + s("/screenshots/0"),
                     url + s("/task")});
        QVERIFY(other.waitForFinished());
        const QByteArray output = other.readAllStandardOutput();
        QVERIFY2(output.count("403 ") == 3 && output.contains("404 "), output.constData());
    }

    void uploadsAreLimited_data()
    {
        addColumns<bool, bool>("onDisk", "screenshots");
        QTest::newRow("minutes in memory") << false << false;
        QTest::newRow("screenshots in memory") << false << true;
        QTest::newRow("minutes on disk") << true << false;
        QTest::newRow("screenshots on disk") << true << true;
    }

    void uploadsAreLimited()
    {
        QFETCH(bool, onDisk);
        QFETCH(bool, screenshots);
        const QTemporaryDir folder;
        Server::Options options;
        options.dataFolder = onDisk ? folder.path() : QString();
        (onDisk ? options.limits.disk : options.limits.memory) = 20000;
        options.recordRequests = false;
        restart(options);
        const QByteArray jpeg = "\xFF\xD8\xFF" + QByteArray(1000, 'x');
        const QJsonObject minute = report(7, 0, QString(500, QLatin1Char('x')));
        const QByteArray upload =
            uploadBody(screenshots ? with(minute, "file", QString::fromLatin1(jpeg.toBase64())) : minute);
        const QString path = screenshots ? s("/api_screenshot") : kReports;
        int kept = 0;
        while (kept < 100 && !m_calls->post(path, upload).body.startsWith(kRefused))
            ++kept;
        QVERIFY(kept > 2 && kept < 100);
        QCOMPARE(m_server->reports().size() + m_server->screenshots().size(), kept);
        if (onDisk)
            restart(options);
        QVERIFY(m_calls->post(path, upload).body.startsWith(kRefused));
    }

    void outageSparesThePage()
    {
        for (const char *mode : {"unavailable", "dropped", "none"}) {
            m_calls->post(s("/control/set-outage"), QByteArray("mode=") + mode + andToken());
            QCOMPARE(m_calls->get(s("/api_teams"), asAnna()).status,
                     mode[0] == 'u'       ? 503
                         : mode[0] == 'd' ? 0
                                          : 200);
            QCOMPARE(m_calls->get(s("/")).status, 200);
        }
    }

    void textsStayTexts()
    {
        const QString evil = s("<script>\"x\"&'%1</script>");
        m_server->edit([&evil](World &world) {
            world.addTeam({evil, evil});
            Task task;
            task.id = task.title = task.details.text = evil;
            world.addTask(evil, task);
            world.setVersions({evil});
            world.users.append({evil, s("the-password")});
        });
        QJsonObject minute = report(1, 0, QString(5000, QLatin1Char('x')));
        for (const char *key : {"email", "team_id", "version"})
            minute = with(minute, key, evil);
        QCOMPARE(m_calls->post(kReports, uploadBody(minute)).body, kAccepted);
        for (const QByteArray &page :
             {m_calls->get(s("/task"), {{s("id"), evil}}).body, m_calls->get(s("/monitor/")).body}) {
            QVERIFY(page.contains("&lt;script&gt;&quot;x&quot;&amp;'%1&lt;"));
            QVERIFY(!page.contains("<script>"));
        }
        const auto reply = m_calls->startGet(s("/state"));
        const Answer answer = ServiceCalls::finish(*reply);
        QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/json; charset=utf-8"));
        QCOMPARE(reply->rawHeader("X-Content-Type-Options"), QByteArray("nosniff"));
        QVERIFY(reply->rawHeader("Content-Security-Policy").contains("script-src 'self';"));
        QCOMPARE(answer.object().value(s("users")).toArray().last().toObject().value(s("login")).toString(),
                 evil);
        QVERIFY(!answer.body.contains("the-password") && !answer.body.contains(QByteArray(300, 'x')));
    }

    void seeds_data()
    {
        addColumns<QByteArray, QString>("tasks", "deadlinesOrProblem");
        QTest::newRow("relative times")
            << QByteArray(R"({"id":1,"title":"x","deadline":"-30m"},{"id":2,"title":"x","deadline":"+25h"},)"
                          R"({"id":3,"title":"x","deadline":"+2d"},{"id":4,"title":"x"})")
            << "28.02 23:15 01.03 00:45 01.03 23:45 ";
        QTest::newRow("misspelt") << QByteArray(R"({"id":"1","title":"x","deadlin":"+1h"})") << "«deadlin»";
        QTest::newRow("no time") << QByteArray(R"({"id":"1","title":"x","deadline":"01.02.2024"})")
                                 << "teams[0].tasks[0].deadline";
        QTest::newRow("same id") << QByteArray(R"({"id":"1","title":"x"},{"id":"1","title":"y"})")
                                 << "дважды";
        QTest::newRow("not JSON") << QByteArray("\n\n{") << "строка 3";
    }

    void seeds()
    {
        QFETCH(QByteArray, tasks);
        QFETCH(QString, deadlinesOrProblem);
        const QByteArray seed =
            R"({"users":[{"login":"a","password":"b"}],"teams":[{"id":"1","name":"t","tasks":[)" + tasks
            + "]}]}";
        QString found;
        const auto world = worldFromSeed(seed, QDateTime(QDate(2024, 2, 28), QTime(23, 45)), &found);
        for (const Task &task : world ? world->teams.first().tasks : QVector<Task>())
            found += task.deadline.toString(s("dd.MM hh:mm "));
        QVERIFY2(world ? found == deadlinesOrProblem : found.contains(deadlinesOrProblem), qPrintable(found));
    }

    void programServesAndEnds_data()
    {
        addColumns<int>("ending");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
    }

    void programServesAndEnds()
    {
        QFETCH(int, ending);
        const QTemporaryDir folder;
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
        QVERIFY(QFile::exists(folder.filePath(s("seed.json"))));
        QCOMPARE(QFile::permissions(folder.filePath(s("reports.jsonl"))) & 0x077, QFile::Permissions());
    }

private:
    void restart(const Server::Options &options)
    {
        m_calls.reset();
        m_server = std::make_unique<Server>(options);
        QVERIFY(m_server->start());
        m_calls = std::make_unique<ServiceCalls>(m_server->baseUrl());
    }
    QByteArray andToken() const { return "&token=" + m_server->controlToken(); }
    QByteArray state() { return m_calls->get(s("/state")).body; }

    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
