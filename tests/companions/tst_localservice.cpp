#include "files.h"
#include "localservice/server.h"
#include "rows.h"

#include <unistd.h>

using namespace localservice;

namespace {

const QString kReports = s("/api_active2");
const QByteArray kAccepted = "{\"status\":\"ok\"}";

// A minute of Anna's as clients send it; `past` in seconds.
QString upload(int active, int past, const QString &task, const char *file = "")
{
    const QString json = s(R"([{"email":"anna@orvana.example","team_id":"17","task_id":"%3","active":"%1",)"
                           R"("past":"%2","file":"%4"}])");
    return s("data=") + s(QUrl::toPercentEncoding(json.arg(active).arg(past).arg(task, s(file))).constData());
}

} // namespace

// What a developer relies on who tries the client by hand, and what keeps others out.
class TestLocalService final : public QObject
{
    Q_OBJECT

private slots:
    void init() { restart({}); }

    void whatIsReceivedSurvivesARestart()
    {
        const QString task = s("1704");
        const QTemporaryDir folder;
        Server::Options options;
        options.dataFolder = folder.path();
        restart(options);
        const auto totals = [this] {
            return get(s("/api_get_active?login=anna%40orvana.example&password=orvana&task_id=1704"));
        };
        const QByteArray before = totals();
        for (const QString &minute :
             {upload(7, 0, task), upload(0, 0, task), upload(1, 0, s("1701")), upload(9, 172800, task)})
            QCOMPARE(post(kReports, minute), kAccepted);
        const QByteArray after = totals();
        const auto gained = [&](const char *total) {
            return QJsonDocument::fromJson(after).object().value(s(total)).toInt()
                - QJsonDocument::fromJson(before).object().value(s(total)).toInt();
        };
        QVERIFY(gained("today_total") == 3 && gained("today_active") == 2 && gained("today_task") == 2);
        const QString old = figures(QDateTime::currentDateTime().addDays(-2), "yyyy-MM-dd");
        for (const auto &[query, count] :
             {std::pair(QString(), 4), {s("?user=peter"), 0}, {s("?day=") + old, 1}}) {
            const QJsonObject shown = QJsonDocument::fromJson(get(s("/minutes") + query)).object();
            QCOMPARE(shown.value(s("count")).toInt(), count);
            const QJsonObject last = shown.value(s("minutes")).toArray().last().toObject();
            QVERIFY(count == 0
                    || (last.value(s("active")).toInt() == 9
                        && last.value(s("made")).toString().startsWith(old)));
        }
        for (const char *file : {"/9j/4A==", "/9j/4A==", "no JPEG"})
            post(s("/api_screenshot"), upload(0, 0, task, file));
        const QVector<Screenshot> pictures = m_server->screenshots();
        QCOMPARE(pictures.size(), 2);
        QVERIFY(pictures[0].path != pictures[1].path && contentsOf(pictures[0].path) == "\xFF\xD8\xFF\xE0");
        restart(options);
        QCOMPARE(totals(), after);
        // Until the disk has no more room, also after the next start.
        const auto fill = [&] { return post(kReports, upload(7, 0, QString(3000, QLatin1Char('x')))); };
        options.limits.disk = 20000;
        restart(options);
        int kept = 0;
        while (kept < 20 && fill() == kAccepted)
            ++kept;
        QVERIFY(kept > 0);
        restart(options);
        QVERIFY(fill().contains("error"));
    }

    // A form of the page, perhaps with a header, in which PORT is the service's own: what the state then
    // says, or the status of the refusal.
    void changes_data()
    {
        addRows({{"add-task?team=17&title=%D0%AF%20%26%20%D1%8F&important=on&deadline=2030-01-02T03:04",
                  "'deadline':'2030-01-02 03:04:00','id':'21924','importance':1,'title':'Я & я'}"},
                 {"set-deadline?task=1702&deadline=завтра", "400"},
                 {"remove-task?task=nobody", "400"},
                 {"add-team?name=New", "{'id':'2193','name':'New','tasks':[]}"},
                 {"set-outage?mode=dropped Origin: https://127.0.0.1:PORT", "'outage':'dropped'"},
                 {"set-outage?mode=dropped Host: localhost:PORT", "'outage':'dropped'"},
                 {"set-outage?mode=dropped&token=0", "403"},
                 {"set-outage?mode=dropped Origin: null", "403"},
                 {"set-outage?mode=dropped Referer: https://site.example/https://127.0.0.1:PORT/", "403"},
                 {"set-outage?mode=dropped Host: site.example:PORT", "403"}});
    }
    void changes()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const QString action = input.section(QLatin1Char('?'), 0, 0);
        const QString form = input.section(QLatin1Char('?'), 1).section(QLatin1Char(' '), 0, 0);
        const QString header =
            input.section(QLatin1Char(' '), 1).replace(s("PORT"), QString::number(m_server->port()));
        const QString token =
            form.contains(s("token")) ? QString() : s("&token=") + s(m_server->controlToken().constData());
        const QByteArray expected = result.toUtf8().replace('\'', '"');
        const QByteArray before = get(s("/state"));
        post(s("/control/") + action, form + token, {s("-H"), header});
        const bool isRefused = result.size() == 3;
        QCOMPARE(m_status, isRefused ? result.toInt() : 204);
        const QByteArray after = get(s("/state"));
        QVERIFY2(isRefused ? after == before : after.contains(expected) && !before.contains(expected),
                 after.constData());
    }

    void pageIsForOneUser()
    {
        if (::getuid() != 0)
            QSKIP("needs another user");
        for (const QString &page : {s("/"), s("/state"), s("/screenshots/0")}) {
            ask(page, {}, texts({"--reuid=65534", "--clear-groups"}));
            QCOMPARE(m_status, 403);
        }
    }

    void textsStayTexts()
    {
        m_server->edit([](World &world) { world.setVersions({s("<script>\"x\"&'%1</script>")}); });
        const QByteArray page = get(s("/monitor/"));
        QVERIFY(page.contains("&lt;script&gt;&quot;x&quot;&amp;'%1&lt;") && !page.contains("<script>"));
        QVERIFY(ask(s("/state"), {s("-i")}).contains("script-src 'self';"));
    }

private:
    void restart(const Server::Options &options)
    {
        m_server = std::make_unique<Server>(options);
        QVERIFY(m_server->start());
    }

    // The body of the answer; also notes its status.
    QByteArray ask(const QString &path, const QStringList &options, const QStringList &asUser = {})
    {
        const QStringList curl = texts({"curl", "-sk", "--noproxy", "*", "-w", "\n%{http_code}"});
        QProcess process;
        process.start(s(asUser.isEmpty() ? "env" : "setpriv"),
                      asUser + curl + options + QStringList{m_server->baseUrl() + path});
        process.waitForFinished();
        const QByteArray output = process.readAllStandardOutput();
        const int end = output.lastIndexOf('\n');
        m_status = output.mid(end + 1).toInt();
        return output.left(end);
    }
    QByteArray get(const QString &path) { return ask(path, {}); }
    QByteArray post(const QString &path, const QString &form, const QStringList &options = {})
    {
        return ask(path, options + QStringList{s("--data-raw"), form});
    }

    std::unique_ptr<Server> m_server;
    int m_status = 0;
};

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
