#include "localservice/server.h"
#include "servicecalls.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace localservice;

namespace {

const QString pyotr = QStringLiteral("пётр+test@orvana.example");
const QString oddPassword = QStringLiteral("a+b&c=d% #;/\"я");
const QByteArray invalidCredentials = "{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}";

QJsonObject with(QJsonObject object, const QString &key, const QJsonValue &value)
{
    object.insert(key, value);
    return object;
}

} // namespace

class TestLocalService final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void credentials_data();
    void credentials();
    void recordsRequestsExactly();
    void listsWhatTheUserSees();
    void taskDetails();
    void reports_data();
    void reports();
    void totalsGrow();
    void screenshots();
    void deadlineRequests_data();
    void deadlineRequests();

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<ServiceCalls> m_calls;
};

void TestLocalService::init()
{
    m_server = std::make_unique<Server>();
    QString error;
    QVERIFY2(m_server->start(&error), qPrintable(error));
    m_calls = std::make_unique<ServiceCalls>(m_server->baseUrl());
}

void TestLocalService::cleanup()
{
    m_calls.reset();
    m_server.reset();
}

void TestLocalService::credentials_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("plain") << anna() << "orvana" << true;
    QTest::newRow("odd characters") << pyotr << oddPassword << true;
    QTest::newRow("wrong password") << anna() << "Orvana" << false;
    QTest::newRow("plus is not a blank")
        << pyotr << QString(oddPassword).replace(QLatin1Char('+'), QLatin1Char(' ')) << false;
    QTest::newRow("other user's password") << pyotr << "orvana" << false;
    QTest::newRow("empty") << ""
                           << "" << false;
}

void TestLocalService::credentials()
{
    QFETCH(QString, login);
    QFETCH(QString, password);
    QFETCH(bool, accepted);
    const Fields fields = as(login, password, {{QStringLiteral("task_id"), QStringLiteral("1701")}});
    for (const char *path : {"/api_teams", "/api_teams_tasks", "/api_get_task", "/api_get_active"}) {
        const Answer answer = m_calls->get(QLatin1String(path), fields);
        QCOMPARE(answer.status, 200);
        QVERIFY2((answer.body != invalidCredentials) == accepted, path);
    }
    const Fields form = fields + Fields{{QStringLiteral("dl_date"), QStringLiteral("2030-01-02")}};
    QCOMPARE(m_calls->post(QStringLiteral("/api_task_deadline_request"), form).body,
             accepted ? QByteArray("{\"status\":\"ok\"}") : invalidCredentials);
    QCOMPARE(m_server->deadlineRequests().size(), accepted ? 1 : 0);
}

void TestLocalService::recordsRequestsExactly()
{
    const QString odd = QStringLiteral("a b+c%41&d=е;/\"");
    m_calls->get(QStringLiteral("/api_teams"),
                 {{QStringLiteral("x"), odd}, {QStringLiteral("y"), QString()}});
    m_calls->get(QStringLiteral("/api_teams?p=1+2%2B3&q&=v"));
    m_calls->post(QStringLiteral("/nowhere"), Fields{{QStringLiteral("m"), odd}});

    const QVector<RecordedRequest> requests = m_server->requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(requests.at(0).path, QStringLiteral("/api_teams"));
    QCOMPARE(requests.at(0).target, "/api_teams?x=a%20b%2Bc%2541%26d%3D%D0%B5%3B%2F%22&y=");
    QCOMPARE(requests.at(0).queryPairs,
             (Pairs{{QStringLiteral("x"), odd}, {QStringLiteral("y"), QString()}}));
    QCOMPARE(requests.at(1).query, "p=1+2%2B3&q&=v");
    QCOMPARE(requests.at(1).queryPairs,
             (Pairs{{QStringLiteral("p"), QStringLiteral("1 2+3")},
                    {QStringLiteral("q"), {}},
                    {{}, QStringLiteral("v")}}));
    QCOMPARE(requests.at(2).method, "POST");
    QCOMPARE(requests.at(2).body, "m=a%20b%2Bc%2541%26d%3D%D0%B5%3B%2F%22");
    QCOMPARE(requests.at(2).formValue(QStringLiteral("m")), odd);
    QCOMPARE(requests.at(2).contentType, "application/x-www-form-urlencoded");
    QCOMPARE(requests.at(2).headers.value("host"), m_server->baseUrl().mid(8).toLatin1());
    QCOMPARE(m_server->requestsTo(QStringLiteral("/nowhere")).size(), 1);
    m_server->clearRequests();
    QVERIFY(m_server->requests().isEmpty());
}

void TestLocalService::listsWhatTheUserSees()
{
    const QJsonArray teams = m_calls->get(QStringLiteral("/api_teams_tasks"), asAnna()).array();
    QCOMPARE(teams.size(), 3);
    int tasks = 0;
    int overdue = 0;
    int blocking = 0;
    int open = 0;
    for (const QJsonValue &team : teams) {
        const QJsonArray list = team.toObject().value(QStringLiteral("tasks")).toArray();
        for (const QJsonValue &task : list) {
            const QString given = task.toObject().value(QStringLiteral("deadline")).toString();
            const QDateTime deadline = QDateTime::fromString(given, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
            QVERIFY(given.isEmpty() || deadline.isValid());
            ++tasks;
            open += given.isEmpty() ? 1 : 0;
            overdue += deadline.isValid() && deadline < QDateTime::currentDateTime() ? 1 : 0;
            blocking +=
                task.toObject().value(QStringLiteral("block")).toString() != QLatin1String("0") ? 1 : 0;
        }
    }
    QCOMPARE(tasks, 12);
    QCOMPARE(overdue, 2);
    QCOMPARE(blocking, 1);
    QCOMPARE(open, 2);

    m_server->edit([](World &world) {
        world.removeTeam(QStringLiteral("17"));
        world.addTask(QStringLiteral("2192"), {QStringLiteral("a/b=c"), QStringLiteral("Новая")});
    });
    const QJsonArray other = m_calls->get(QStringLiteral("/api_teams_tasks"), as(pyotr, oddPassword)).array();
    QCOMPARE(other.size(), 1);
    QCOMPARE(other.first()
                 .toObject()
                 .value(QStringLiteral("tasks"))
                 .toArray()
                 .last()
                 .toObject()
                 .value(QStringLiteral("id")),
             QJsonValue(QStringLiteral("a/b=c")));
}

void TestLocalService::taskDetails()
{
    const auto ask = [this](const QString &id) {
        return m_calls
            ->get(QStringLiteral("/api_get_task"), as(pyotr, oddPassword, {{QStringLiteral("task_id"), id}}))
            .object();
    };
    const QJsonObject found = ask(QStringLiteral("1701"));
    QCOMPARE(found.value(QStringLiteral("status")).toString(), QStringLiteral("ok"));
    const QJsonObject task = found.value(QStringLiteral("message")).toObject();
    QCOMPARE(task.value(QStringLiteral("files")).toArray().size(), 3);
    const QJsonObject text = task.value(QStringLiteral("texts")).toArray().first().toObject();
    QCOMPARE(text.value(QStringLiteral("keywords")).toArray().size(), 3);
    // Unknown, and of a team that the user does not belong to.
    for (const char *id : {"1", "", "4101"}) {
        const QJsonObject refused = ask(QLatin1String(id));
        QCOMPARE(refused.value(QStringLiteral("status")).toString(), QStringLiteral("fail"));
        QCOMPARE(refused.value(QStringLiteral("message")).toString(), QStringLiteral("Задача не найдена"));
    }
}

void TestLocalService::reports_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("acceptedTask");
    const QString cyrillic = QStringLiteral("задача № 1");
    const QByteArray json = QJsonDocument(QJsonArray{report(3, 0, cyrillic)}).toJson(QJsonDocument::Compact);
    const QString taskKey = QStringLiteral("task_id");

    QTest::newRow("plain") << uploadBody(report(10)) << "1701";
    QTest::newRow("encoded twice over") << uploadBody(json) << cyrillic;
    QTest::newRow("old minute") << uploadBody(report(0, 4294967295)) << "1701";
    QTest::newRow("percent signs and plus")
        << uploadBody(with(report(1), taskKey, QStringLiteral("%41+&=#"))) << "%41+&=#";
    QTest::newRow("encoded once") << "data=" + QUrl::toPercentEncoding(QString::fromUtf8(json)) << "";
    QTest::newRow("no data") << QByteArray("date=1") << "";
    QTest::newRow("empty body") << QByteArray() << "";
    QTest::newRow("not JSON") << uploadBody(QByteArray("[{\"email\":")) << "";
    QTest::newRow("object without list")
        << uploadBody(QJsonDocument(report(1)).toJson(QJsonDocument::Compact)) << "";
    QTest::newRow("two at once") << uploadBody(
        QJsonDocument(QJsonArray{report(1), report(2)}).toJson(QJsonDocument::Compact))
                                 << "";
    QTest::newRow("eleven slices") << uploadBody(report(11)) << "";
    QTest::newRow("negative age") << uploadBody(report(1, -1)) << "";
    QTest::newRow("age is not a number")
        << uploadBody(with(report(1), QStringLiteral("past"), QStringLiteral("soon"))) << "";
    QTest::newRow("unknown person") << uploadBody(
        with(report(1), QStringLiteral("email"), QStringLiteral("nobody")))
                                    << "";
    QTest::newRow("nested deeply") << uploadBody(QByteArray(100000, '[')) << "";
}

void TestLocalService::reports()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, acceptedTask);
    const Answer answer = m_calls->post(QStringLiteral("/api_active2"), body);
    QCOMPARE(answer.status, 200);
    if (acceptedTask.isEmpty()) {
        QVERIFY2(answer.body.startsWith("{\"status\":\"error\","), answer.body.constData());
        QVERIFY(m_server->reports().isEmpty());
    } else {
        QCOMPARE(answer.body, "{\"status\":\"ok\"}");
        QCOMPARE(m_server->reports().size(), 1);
        QCOMPARE(m_server->reports().first().taskId, acceptedTask);
    }
    QCOMPARE(m_server->requests().first().body, body);
}

void TestLocalService::totalsGrow()
{
    constexpr qint64 day = 86400;
    QTemporaryDir folder;
    Server::Options options;
    options.dataFolder = folder.path();
    const auto totals = [](ServiceCalls &calls) {
        const Fields query = asAnna({{QStringLiteral("task_id"), QStringLiteral("1704")}});
        const QJsonObject reply = calls.get(QStringLiteral("/api_get_active"), query).object();
        return QVector<int>{reply.value(QStringLiteral("today_total")).toInt(),
                            reply.value(QStringLiteral("today_active")).toInt(),
                            reply.value(QStringLiteral("today_task")).toInt()};
    };
    QVector<int> before;
    {
        Server server(options);
        QVERIFY(server.start());
        ServiceCalls calls(server.baseUrl());
        before = totals(calls);
        const QString task = QStringLiteral("1704");
        calls.post(QStringLiteral("/api_active2"), uploadBody(report(7, 0, task)));
        calls.post(QStringLiteral("/api_active2"), uploadBody(report(0, 0, task)));
        calls.post(QStringLiteral("/api_active2"), uploadBody(report(1, 0)));
        calls.post(QStringLiteral("/api_active2"), uploadBody(report(9, 2 * day, task)));
        QCOMPARE(totals(calls), (QVector<int>{before[0] + 3, before[1] + 2, before[2] + 2}));
    }
    QFile stored(folder.filePath(QStringLiteral("reports.jsonl")));
    QVERIFY(stored.open(QIODevice::Append));
    stored.write("{\"arrived\": torn\n");
    stored.close();
    Server again(options);
    QVERIFY(again.start());
    ServiceCalls calls(again.baseUrl());
    QCOMPARE(totals(calls), (QVector<int>{before[0] + 3, before[1] + 2, before[2] + 2}));
    QCOMPARE(again.reports().size(), 4);
}

void TestLocalService::screenshots()
{
    QByteArray jpeg("\xFF\xD8\xFF\xE0", 4);
    for (int i = 0; i < 3000000; ++i) {
        jpeg.append(static_cast<char>(i * 7 + i / 251));
    }
    const QJsonObject shot = with(report(0), QStringLiteral("fileName"), QStringLiteral("/tmp/снимок.jpg"));
    const auto upload = [&](ServiceCalls &calls, const QJsonObject &object) {
        return calls.post(QStringLiteral("/api_screenshot"), uploadBody(object)).body;
    };
    const QString file = QStringLiteral("file");
    const QString encoded = QString::fromLatin1(jpeg.toBase64());
    QCOMPARE(upload(*m_calls, with(shot, file, encoded)), "ok");
    QCOMPARE(upload(*m_calls, shot), "ok");
    QVERIFY(upload(*m_calls, with(shot, file, QStringLiteral("AAAA"))).startsWith("{\"status\":\"error\","));
    QCOMPARE(m_server->screenshots().size(), 2);
    QCOMPARE(m_server->screenshots().at(0).jpeg, jpeg);
    QCOMPARE(m_server->screenshots().at(0).fileName, QStringLiteral("/tmp/снимок.jpg"));
    QVERIFY(m_server->screenshots().at(1).jpeg.isEmpty());

    QTemporaryDir folder;
    Server::Options options;
    options.dataFolder = folder.path();
    Server storing(options);
    QVERIFY(storing.start());
    ServiceCalls calls(storing.baseUrl());
    QCOMPARE(upload(calls, with(shot, file, encoded)), "ok");
    QCOMPARE(upload(calls, with(shot, file, encoded)), "ok");
    QVERIFY(storing.screenshots().at(0).path != storing.screenshots().at(1).path);
    for (const Screenshot &stored : storing.screenshots()) {
        QFile picture(stored.path);
        QVERIFY(picture.open(QIODevice::ReadOnly));
        QVERIFY(picture.readAll() == jpeg);
    }
}

void TestLocalService::deadlineRequests_data()
{
    QTest::addColumn<Fields>("fields");
    QTest::addColumn<QString>("status");
    const auto asked = [](const char *task, const char *date, const char *time) {
        Fields fields{{QStringLiteral("task_id"), QLatin1String(task)},
                      {QStringLiteral("dl_date"), QLatin1String(date)}};
        if (time) {
            fields.append({QStringLiteral("dl_time"), QLatin1String(time)});
        }
        return fields + Fields{{QStringLiteral("message"), QStringLiteral("не успею: 100% + \"ещё\" & %41")}};
    };
    QTest::newRow("date and time") << asked("1702", "2030-02-28", "18:30") << "ok";
    QTest::newRow("date alone") << asked("1702", "2030-02-28", nullptr) << "ok";
    QTest::newRow("no such day") << asked("1702", "2030-02-30", nullptr) << "fail";
    QTest::newRow("no such time") << asked("1702", "2030-02-28", "25:00") << "fail";
    QTest::newRow("empty time") << asked("1702", "2030-02-28", "") << "fail";
    QTest::newRow("unknown task") << asked("0", "2030-02-28", nullptr) << "fail";
}

void TestLocalService::deadlineRequests()
{
    QFETCH(Fields, fields);
    QFETCH(QString, status);
    const QJsonObject reply =
        m_calls->post(QStringLiteral("/api_task_deadline_request"), asAnna(fields)).object();
    QCOMPARE(reply.value(QStringLiteral("status")).toString(), status);
    QCOMPARE(reply.contains(QStringLiteral("message")), status != QLatin1String("ok"));
    QCOMPARE(m_server->deadlineRequests().size(), status == QLatin1String("ok") ? 1 : 0);
    if (!m_server->deadlineRequests().isEmpty()) {
        QCOMPARE(m_server->deadlineRequests().first().message,
                 QStringLiteral("не успею: 100% + \"ещё\" & %41"));
    }
}

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
