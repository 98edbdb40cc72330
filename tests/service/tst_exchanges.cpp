#include "base/buildvalues.h"
#include "base/timetexts.h"
#include "files.h"
#include "offlineclient.h"
#include "rows.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QByteArray kAccepted = R"({"status":"ok"})";

// Holds a file as a file server does: for now nobody else can open it. A limit on open
// files would hit the threads of Qt's network too, which end the program without them.
class Lease final
{
    Q_DISABLE_COPY_MOVE(Lease)

public:
    explicit Lease(const QString &path)
        : m_handle(open(QFile::encodeName(path).constData(), O_RDWR | O_CLOEXEC))
        , m_before(signal(SIGIO, SIG_IGN)) // says that somebody wants to open it
        , m_isHeld(fcntl(m_handle, F_SETLEASE, F_WRLCK) == 0)
    { }
    ~Lease()
    {
        close(m_handle);
        signal(SIGIO, m_before);
    }

    bool isHeld() const { return m_isHeld; }

private:
    int m_handle;
    void (*m_before)(int);
    bool m_isHeld;
};

} // namespace

// What is asked and sent, and when.
class TestExchanges final : public QObject
{
    Q_OBJECT

private slots:
    void uploads_data()
    {
        addRows({{R"(https://service.invalid|minute|{"status":"ok"})", "accepted"},
                 {"https://service.invalid|picture|ok", "accepted"},
                 {"https://service.invalid|picture|ok\n", "waits"},
                 {R"(https://service.invalid|picture|{"status":"ok"})", "waits"},
                 {R"(HTTPS://Service.INVALID:443/Team Work/ж|minute|{"status":"ok"})", "accepted"},
                 {"https://задачи.рф|picture|ok", "accepted"}});
    }

    void uploads()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const QStringList parts = input.split(QLatin1Char('|'));
        const bool isPicture = parts.at(1) == s("picture");
        // Answered at once, or after a restart with another base URL.
        for (const bool isLater : {false, true}) {
            OfflineClient client;
            client.restart(parts.at(0).toUtf8());
            client.login(s("user"));
            client.session()->setCurrentTaskID(s("\"\\ж") + QChar(0) + QChar(0xd800));
            if (isPicture)
                client->sendScreenshotActivity(QImage(8, 8, QImage::Format_RGB32));
            else
                client->sendTaskActivity(3);
            const QDir cache(client.path(s("user/activity")));
            const auto files = [&cache] { return cache.entryList(QDir::Files | QDir::Hidden).size(); };
            const int before = isPicture ? 2 : 1;
            QCOMPARE(files(), before);
            auto requests = client.takeRequests();
            if (isLater) {
                client.answer(requests.last(), QByteArray(), QNetworkReply::TimeoutError);
                client.restart("https://another.invalid/x");
                client->sendCachedActivity();
                requests = client.takeRequests();
            }
            QCOMPARE(requests.size(), 1);
            client.answer(requests.last(), parts.at(2).toUtf8());
            QCOMPARE(files(), result == s("accepted") ? 0 : before);
            QCOMPARE(client->pendingActivityRequests(), 0);
        }
    }

    void addresses()
    {
        const QString config = qEnvironmentVariable("ORVANA_CONFIG");
        // The environment's, the configured one and what is used.
        const char *const rows[][3] = {{"https://a.invalid/x//", "", "https://a.invalid/x"},
                                       {"", "https://b.invalid/", "https://b.invalid"},
                                       {"http://a.invalid", "http://b.invalid", "http://a.invalid"},
                                       {"", "", ORVANA_BUILTIN_SERVICE_URL}};
        for (const auto &[environment, configured, used] : rows) {
            QVERIFY(writeFile(config, QByteArray("service-url=") + configured + '\n'));
            OfflineClient client;
            client.restart(environment);
            QVERIFY(QFile::remove(config));
            QCOMPARE(client->serviceUrl(), s(used));
        }
    }

    void fetchesDetailsAhead()
    {
        OfflineClient client(s("user"));
        client.load(texts({"2192:90", "1:1 2", "2:2 3 4 5 6"}));
        // Each task once, whatever becomes of each.
        QCOMPARE(answerDetails(client, texts({"1", "2"})), texts({"1", "2", "3", "4", "5", "6"}));
        // The next list asks for what is missing and for what is new.
        client.load(texts({"1:1 2 3 7"}));
        QCOMPARE(answerDetails(client), texts({"1", "2", "7"}));
        client.load(texts({"1:1 2 3 7"}));
        client->requestTaskInfo(s("0"));
        QVERIFY(client.takeRequests().isEmpty());
        // Tasks without details are remembered as such, those of the exempt team too.
        client.session()->save();
        QVERIFY(client.storedKeys(s("user/taskInfo.ini")).contains(s("90")));

        constexpr int queued = 1000;
        QStringList ids;
        for (int i = 1; i <= 1200; ++i)
            ids.append(QString::number(1000 + i));
        const QStringList list{s("1:") + ids.join(QLatin1Char(' '))};
        for (const auto &asked : {ids.mid(0, queued), ids.mid(queued), ids.mid(0, queued)}) {
            client.load(list);
            QCOMPARE(answerDetails(client, ids), asked);
        }
        // What is queued for one user is not asked for another.
        client.load(list);
        const auto underWay = client.takeRequests();
        client.login(s("other"));
        for (const auto &request : underWay)
            client.answer(request, "");
        QVERIFY(client.takeRequests().isEmpty());
    }

    // A record that cannot be read just now is sent later; one that is too large stops no other one.
    void unreadableRecord()
    {
        OfflineClient client(s("user"));
        const auto answerAll = [&client](const QByteArray &body, QNetworkReply::NetworkError error) {
            for (auto all = client.takeRequests(); !all.isEmpty(); all = client.takeRequests()) {
                for (const auto &request : all)
                    client.answer(request, body, error);
                client.runQueued();
                client.runQueued(); // after one that is set aside
            }
        };
        client->sendTaskActivity(1);
        answerAll("", QNetworkReply::TimeoutError);
        const QDir cache(client.path(s("user/activity")));
        const QString first = cache.filePath(cache.entryList({s("json*")}).first());
        client->sendTaskActivity(2);
        answerAll("", QNetworkReply::TimeoutError);
        QVERIFY(QFile::resize(first, 300 * 1024 * 1024));
        {
            const QStringList names = cache.entryList({s("json*")});
            const Lease lease(cache.filePath(names.first()));
            const Lease another(cache.filePath(names.last()));
            QVERIFY(lease.isHeld() && another.isHeld());
            for (int i = 0; i < 2; ++i)
                client->sendCachedActivity();
            QVERIFY(client.takeRequests().isEmpty());
        }
        QCOMPARE(client.records(), 2);
        client->sendTaskActivity(3);
        answerAll(kAccepted, QNetworkReply::NoError);
        // What is too large is set aside and no longer waits.
        QCOMPARE(client->backlog().count, 0);
        QCOMPARE(client->pendingActivityRequests(), 0);
        QCOMPARE(client.records(), 1);
        QVERIFY(QFile::exists(first));
    }

    void diskRefuses()
    {
        constexpr int day = 24 * 60;
        OfflineClient client(s("user"));
        const QString folder = client.path(s("user/activity"));
        // Counts the minutes while something lies in the place of the folder.
        const auto refuse = [&](int minutes) {
            QVERIFY(QDir(folder).removeRecursively() && writeFile(folder, "in the way"));
            for (int i = 0; i < minutes; ++i)
                client->sendTaskActivity(i);
            QVERIFY(QFile::remove(folder));
            QCOMPARE(client.notices().take(),
                     texts({"Не удалось сохранить отчёт об активности на диск. Проверьте свободное место."}));
        };
        refuse(day + 1);
        QCOMPARE(client->backlog().count, day);
        // The oldest is lost; the others are stored at the end.
        client.restart();
        QCOMPARE(client.records(), day);
        for (const QFileInfo &record : QDir(folder).entryInfoList({s("json*")}))
            QVERIFY(!contentsOf(record.filePath()).contains("\"active\":\"0\""));
        // A second full disk is reported as well.
        for (int i = 0; i < 2; ++i) {
            refuse(1);
            client->sendTaskActivity(2);
            QCOMPARE(client.records(), 2);
        }
    }

    void backlogWords()
    {
        const QDateTime oldest(QDate(2026, 2, 3), QTime(14, 5));
        QString words;
        for (const int count : {1, 4, 5, 10, 12, 20, 21, 102, 111})
            words += backlogText(count, oldest, oldest.addSecs(60)).section(QLatin1Char(' '), 0, 2) + s("; ");
        QCOMPARE(words,
                 s("1 отчёт ждёт; 4 отчёта ждут; 5 отчётов ждут; 10 отчётов ждут; 12 отчётов ждут; "
                   "20 отчётов ждут; 21 отчёт ждёт; 102 отчёта ждут; 111 отчётов ждут; "));
        QVERIFY(backlogText(2, oldest, oldest).endsWith(s(" отправки с 14:05")));
    }

private:
    // Answers all requests for details, few of which are under way at a time; returns for
    // which tasks they were.
    static QStringList answerDetails(OfflineClient &client, const QStringList &failing = {})
    {
        QStringList asked;
        for (auto requests = client.takeRequests(); !requests.isEmpty(); requests = client.takeRequests()) {
            if (requests.size() > 4)
                return {s("too many at a time")};
            for (const auto &request : requests) {
                const QString id = request->property("task_id").toString();
                asked.append(id);
                const QByteArray details = "{\"status\":\"ok\",\"message\":{\"id\":" + id.toUtf8() + "}}";
                client.answer(request, failing.contains(id) ? QByteArray("garbage") : details,
                              id == failing.value(0) ? QNetworkReply::TimeoutError : QNetworkReply::NoError);
            }
        }
        return asked;
    }
};

QTEST_MAIN(TestExchanges)

#include "tst_exchanges.moc"
