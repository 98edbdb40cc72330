#include "files.h"
#include "offlineclient.h"
#include "otheruser.h"
#include "rows.h"
#include "tracking/controlserver.h"
#include "tracking/trackingloop.h"

#include <QLocalSocket>
#include <QTimer>

#include <sys/socket.h>
#include <sys/stat.h>

namespace {

// In the folder of the socket, where a stranger can be led to.
const sockaddr_un kAddress = ControlSocket::addressOf(ControlSocket::kName).value();

// A socket that has sent the request, or -1.
int call(const QByteArray &request, uid_t user = geteuid())
{
    const AsUser asUser(user);
    const int peer = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isMade = asUser.changed()
        && ::connect(peer, reinterpret_cast<const sockaddr *>(&kAddress), sizeof kAddress) == 0;
    return isMade && ::send(peer, request.constData(), size_t(request.size()), MSG_NOSIGNAL) > 0 ? peer : -1;
}

// Empty when nobody listens.
QString answerTo(const QByteArray &request)
{
    const int peer = call(request);
    char answer[1024];
    ssize_t size = -1;
    const bool hasEnded = QTest::qWaitFor([&] {
        size = ::recv(peer, answer, sizeof answer, MSG_DONTWAIT);
        return size >= 0 || errno != EAGAIN;
    });
    ::close(peer);
    return QString::fromUtf8(answer, hasEnded && size > 0 ? static_cast<int>(size) : 0);
}

} // namespace

class TestControl final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_client = std::make_unique<OfflineClient>(s("user"));
        m_client->session()->addTeamsData({Team{s("17"), s("Редакция")}});
        m_client->session()->addTasksData({Task{s("1702"), s("Новости\u2028\x1b[2J«2»"), {}, {}, {}}}, s("17"));
        m_client->get()->changeTask(s("17"), s("1702"));
        m_loop = std::make_unique<TrackingLoop>(m_client->get());
        QVERIFY(QDir::setCurrent(m_client->path(QString())));
        m_server = std::make_unique<ControlServer>(m_client->get());
        connect(m_server.get(), &ControlServer::startRequested, m_loop.get(),
                &TrackingLoop::onStartTimerShortcut_activated);
        connect(m_server.get(), &ControlServer::stopRequested, m_loop.get(),
                &TrackingLoop::onStopTimerShortcut_activated);
    }
    void cleanup()
    {
        QDir::setCurrent(s("/"));
        m_server.reset();
        m_loop.reset();
    }

    // The last answer to requests one after another; "-" drops the task, "!" the user.
    void answers_data()
    {
        addRows(
            {{"start", "0 Таймер запущен."},
             {"start/start", "0 Таймер уже запущен."},
             {"toggle/toggle", "0 Таймер остановлен."},
             {"-/toggle", "3 Задача не выбрана: выберите её в окне программы."},
             {"!/stop", "0 Таймер уже остановлен."},
             {"-/status", "0 Таймер остановлен. Задача не выбрана. Сегодня: 00:00:00, активного: 00:00:00."},
             {"start/status",
              "0 Таймер запущен. Задача «Новости  [2J«2»», команда «Редакция». "
              "Сегодня: 00:00:00, активного: 00:00:00."},
             {"!/start --json",
              "3 {\"message\":\"Вход не выполнен: войдите в окне программы.\",\"running\":false,"
              "\"signed_in\":false}"},
             {"start --json",
              "0 {\"message\":\"Таймер запущен.\",\"running\":true,\"signed_in\":true,"
              "\"task\":\"Новости  [2J«2»\",\"task_id\":\"1702\",\"team\":\"Редакция\","
              "\"team_id\":\"17\",\"today\":\"00:00:00\",\"today_active\":\"00:00:00\"}"},
             {"starting............................................................................",
              "2 Программа не знает такого запроса."}});
    }
    void answers()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        QString answer;
        for (const QString &request : input.split(QLatin1Char('/'))) {
            if (request == s("-"))
                m_client->get()->changeTask(s("17"), QString());
            else if (request == s("!"))
                m_client->session()->setLogged(false);
            else
                answer = answerTo(request.toUtf8() + '\n');
        }
        QCOMPARE(answer, result + QLatin1Char('\n'));
    }

    void costsNothing_data()
    {
        addColumns<QByteArray, uid_t, bool>("request", "user", "isClosed");
        QTest::newRow("stranger") << QByteArray("start\n") << uid_t(12345) << false;
        QTest::newRow("silent") << QByteArray("start") << geteuid() << false;
        QTest::newRow("gave up") << QByteArray("start\n") << geteuid() << true;
    }
    void costsNothing()
    {
        QFETCH(QByteArray, request);
        QFETCH(uid_t, user);
        QFETCH(bool, isClosed);
        if (const AsUser asUser(user); !asUser.changed())
            QSKIP("becoming another user needs root");
        ::chmod(".", 0711);
        ::chmod(ControlSocket::kName, 0666);
        for (int i = 0; i < 30; ++i) {
            const int peer = call(request, user);
            QVERIFY(peer >= 0 && (!isClosed || ::close(peer) == 0));
            QCOMPARE(answerTo("stop\n"), s("0 Таймер уже остановлен.\n"));
        }
        QTRY_VERIFY(m_server->findChildren<QLocalSocket *>().size() <= 8);
    }

    void place_data()
    {
        addColumns<QByteArray, bool>("lies", "isReached");
        QTest::newRow("stale") << QByteArray("socket") << true;
        QTest::newRow("running client's") << QByteArray("unlocked socket") << false;
        QTest::newRow("file") << QByteArray("file") << false;
        QTest::newRow("taken away") << QByteArray() << true;
    }
    void place()
    {
        QFETCH(QByteArray, lies);
        QFETCH(bool, isReached);
        const QString name = s(ControlSocket::kName);
        QVERIFY(QFile::remove(name));
        const int other = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (lies.endsWith("socket"))
            QCOMPARE(::bind(other, reinterpret_cast<const sockaddr *>(&kAddress), sizeof kAddress), 0);
        QVERIFY(!lies.startsWith("unlocked") || QFile::remove(s("lock")));
        QVERIFY(lies != "file" || writeFile(name, "x"));
        auto *upkeep = m_server->findChild<QTimer *>();
        QSignalSpy upkept(upkeep, &QTimer::timeout);
        upkeep->start(0);
        QVERIFY(upkept.wait());
        QCOMPARE(!answerTo("status\n").isEmpty(), isReached);
        m_server.reset();
        QCOMPARE(QFile::exists(name), !isReached);
        ::close(other);
    }

private:
    std::unique_ptr<OfflineClient> m_client;
    std::unique_ptr<TrackingLoop> m_loop;
    std::unique_ptr<ControlServer> m_server;
};

QTEST_GUILESS_MAIN(TestControl)
#include "tst_control.moc"
