#include "clientroom.h"
#include "files.h"
#include "realinput.h"
#include "rows.h"
#include "virtualdisplay.h"

#include <QSharedMemory>
#include <QSystemSemaphore>
#include <QTcpSocket>

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <pty.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using localservice::Fault;
using Client = std::unique_ptr<QProcess>;

namespace {

constexpr int kPatience = 40000; // ms
constexpr int kCrowd = 5;
const QString kStranger = s("12345");
const QString kLoginTitle = s("Авторизация");
const QString kMainTitle = s("^Orvana$");
const QString kBoxTitle = s("^Orvana Team Monitor$");
const QString kQuestionTitle = s("^Ошибка$");
const QString kLock = s("SingleAppLockOrvana Team Monitor");

bool appears(const QString &title, int count = 1)
{
    return QTest::qWaitFor([&] { return windowsNamed(title).size() == count; }, kPatience);
}

// Into the first window of that title.
bool press(const QString &title, const QStringList &keys)
{
    return appears(title) && activateWindow(windowsNamed(title).constFirst())
        && std::all_of(keys.begin(), keys.end(), pressKeys);
}

bool type(const QString &text)
{
    return xdotool(s("type"), {s("--delay"), s("15"), text});
}

bool endedWith(QProcess &client, int code)
{
    return QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, kPatience)
        && client.exitStatus() == QProcess::NormalExit && client.exitCode() == code;
}

bool endsInOrder(QProcess &client, int number = SIGTERM)
{
    ::kill(static_cast<pid_t>(client.processId()), number);
    return endedWith(client, 0);
}

bool opensAndEnds(QProcess &client)
{
    return appears(kMainTitle) && endsInOrder(client);
}

} // namespace

// The real executable on a desktop of its own, worked with keys as by a person, and what
// the machine around it does to it.
class TestProgram final : public QObject
{
    Q_OBJECT

private slots:
    // In a folder that other users can read.
    void init()
    {
        m_room = std::make_unique<ClientRoom>(localservice::Server::Options(), s("/tmp"));
        m_environment = m_room->environment();
    }

    void cleanup()
    {
        if (QTest::currentTestFailed())
            qWarning("%s", output().constData());
        m_room.reset();
    }

    void logsInByKeyboard()
    {
        const Client declined = start();
        QVERIFY(press(kLoginTitle, {s("Escape")}));
        QVERIFY(endedWith(*declined, 0));
        const Client client = start();
        QVERIFY(press(kLoginTitle, {}) && type(s("anna@orvana.example")));
        QVERIFY(press(kLoginTitle, {s("Tab")}) && type(s("orvana")) && pressKeys(s("Return")));
        QTRY_VERIFY_WITH_TIMEOUT(!m_room->server.requestsTo(s("/api_teams_tasks")).isEmpty(), kPatience);
        QVERIFY(appears(kLoginTitle, 0));
        QVERIFY(opensAndEnds(*client));
        QVERIFY(contentsOf(m_room->stored(s("config.ini"))).contains("lastLogin=anna@orvana.example"));
    }

    void cleanForgetsEverything()
    {
        m_room->leaveUser(false);
        // Only as the first argument, and only in small letters.
        for (const QStringList &arguments : {texts({"x", "--clean"}), texts({"--Clean"})})
            QVERIFY(opensAndEnds(*start(arguments)));
        QVERIFY(QFile::exists(m_room->path(s(".orvana"))));
        QVERIFY(endedWith(*start(texts({"--clean", "x"})), 0));
        QVERIFY(!QFile::exists(m_room->path(s(".orvana"))));
    }

    void watcherMissing_data()
    {
        addColumns<QStringList, int>("keys", "number");
        QTest::newRow("accepted") << texts({"Return"}) << 0;
        QTest::newRow("declined") << texts({"Tab", "Return"}) << 0;
        QTest::newRow("terminated") << QStringList() << SIGTERM;
        QTest::newRow("hung up") << QStringList() << SIGHUP;
    }

    void watcherMissing()
    {
        QFETCH(QStringList, keys);
        QFETCH(int, number);
        m_room->watcher.close();
        m_room->leaveUser(false);
        const Client client = start();
        QVERIFY(press(kQuestionTitle, keys));
        if (number != 0)
            QVERIFY(endsInOrder(*client, number));
        else
            QVERIFY(keys.size() == 1 ? opensAndEnds(*client) : endedWith(*client, 0));
    }

    // Without a watcher, or with a broken one, the minutes are still reported.
    void resumesTracking_data()
    {
        addColumns<QByteArray, int, int>("says", "active", "number"); // repeatedly
        QTest::newRow("input") << QByteArray("a") << 10 << SIGTERM;
        QTest::newRow("silent") << QByteArray() << 0 << SIGINT;
        QTest::newRow("flood of garbage") << QByteArray(4 * 1024 * 1024, '\xff') << 10 << SIGTERM;
        QTest::newRow("ends") << QByteArray("x") << 0 << SIGTERM;
    }

    void resumesTracking()
    {
        QFETCH(QByteArray, says);
        QFETCH(int, active);
        QFETCH(int, number);
        const Client client = startTracking();
        QTRY_VERIFY_WITH_TIMEOUT(m_room->watcher.hasPendingConnections(), kPatience);
        QTcpSocket *peer = m_room->watcher.nextPendingConnection();
        QTimer speech;
        connect(&speech, &QTimer::timeout, peer, [peer, says] {
            if (peer->bytesToWrite() == 0)
                peer->write(says);
        });
        speech.start(20);
        QVERIFY(reports(2));
        if (active == 0 && !says.isEmpty()) {
            speech.stop();
            peer->abort();
            QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().constLast().active == 0, kPatience);
        }
        QVERIFY(reports(2));
        const localservice::ActivityReport report = m_room->server.reports().constLast();
        QCOMPARE(texts({"1702", "17"}), (QStringList{report.taskId, report.teamId}));
        QVERIFY2(active == 0 ? report.active == 0 : report.active > active / 2,
                 qPrintable(QString::number(report.active)));
        QVERIFY2(!m_room->watcher.hasPendingConnections(), "it is asked once");
        QVERIFY(endsInOrder(*client, number));
        QVERIFY(log().contains("Exit Orvana Team Monitor OK"));
        const QByteArray session = contentsOf(m_room->ofUser(s("session.ini")));
        QVERIFY2(session.contains("active=true") && session.contains("taskID=1702"),
                 "the next start resumes");
        QVERIFY(QFile::exists(m_room->ofUser(s("tasks.ini"))));
    }

    // By the program for scripts and by keys of the whole desktop, one of which the window manager has.
    void isReached()
    {
        QSettings config(m_room->path(s("orvanx.conf")), QSettings::IniFormat);
        config.setValue(s("start-shortcut"), s("Ctrl+Alt+P"));
        config.setValue(s("stop-shortcut"), s("Alt+Tab"));
        config.sync();
        const auto says = [this](const QStringList &arguments) -> QString {
            QProcess tool;
            tool.setProcessEnvironment(m_environment);
            tool.start(s(ORVANA_CONTROL_EXECUTABLE), arguments);
            tool.waitForFinished();
            return s("%1 ").arg(tool.exitCode()) + QString::fromUtf8(tool.readAll());
        };
        QCOMPARE(says({s("status")}), s("1 "));
        QCOMPARE(says({s("status"), s("start")}), s("2 "));
        const Client killed = start();
        QVERIFY(appears(kLoginTitle));
        QCOMPARE(says({s("start")}), s("3 "));
        killed->kill();
        QVERIFY(killed->waitForFinished());
        QCOMPARE(says({s("status")}), s("1 "));
        m_room->leaveUser(false);
        const Client client = start();
        QVERIFY(appears(kMainTitle) && pressKeys(s("ctrl+alt+p")));
        QTRY_VERIFY(says({s("--json"), s("status")}).contains(s("\"running\":true")));
        QVERIFY(output().contains("stop-shortcut Alt+Tab can't be had"));
        QCOMPARE(says({s("stop")}), s("0 Таймер остановлен.\n"));
        QVERIFY(endsInOrder(*client));
        QVERIFY(!QFile::exists(m_room->stored(s("control"))));
    }

    // The desktop's log may end before the client does, stand still, or hang up.
    void outlivesItsTerminal_data()
    {
        // What a shell does with the client and a descriptor that nobody reads.
        addRows({{"exec $0 > >(exec true) 2>&1", ""},
                 {"exec $0 <&- >&- 2>&-", ""},
                 {"exec > >(exec tail -f /dev/null --pid=$$) 2>&1; head -c 64000 /dev/zero; exec $0", ""},
                 {"exec 2> >(timeout 1 cat >/dev/null; exec tail -f /dev/null --pid=$$); exec $0", ""},
                 {"exec $0 >&$1 2>&$1", "terminal"},
                 {"exec $0 1>&$1 2>&1", "journal"},
                 {"exec nohup $0", "hangs up"}});
    }

    void outlivesItsTerminal()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        // Garbage takes three times its size. It comes when nobody reads any more.
        Fault longLine = Fault::answer(200, QByteArray(64 * 1024, '\xff'));
        longLine.delay = std::chrono::milliseconds(1100);
        m_room->server.setFault(s("/api_get_active"), longLine);
        int ends[2] = {-1, -1};
        if (result == s("terminal"))
            QCOMPARE(::openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
        else if (result == s("journal"))
            QCOMPARE(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        const Client client = startTracking({QString::number(ends[1])}, {s("bash"), s("-c"), input});
        QVERIFY(reports(2));
        if (result == s("hangs up"))
            ::kill(static_cast<pid_t>(client->processId()), SIGHUP);
        QVERIFY(reports(2));
        QVERIFY(endsInOrder(*client));
        QVERIFY2(ends[1] < 0 || !(::fcntl(ends[1], F_GETFL) & O_NONBLOCK), "others' writing is left alone");
        ::close(ends[0]);
        ::close(ends[1]);
    }

    void displayDies()
    {
        VirtualDisplay display;
        m_room->server.setFault(s("/api_active2"), Fault::answer(503));
        const Client client = startTracking({}, {s("env"), s("DISPLAY=") + display.name()});
        QTRY_VERIFY_WITH_TIMEOUT(m_room->waiting() >= 2, kPatience);
        // As if they had changed since the last minute.
        QVERIFY(QFile::remove(m_room->ofUser(s("tasks.ini"))));
        display.kill();
        QVERIFY2(endedWith(*client, 1), "it ends by itself");
        QVERIFY(QFile::exists(m_room->ofUser(s("tasks.ini"))));
        QVERIFY(m_room->waiting() >= 2);
    }

    void allAtOnce()
    {
        m_room->leaveUser(false);
        std::vector<Client> clients;
        for (int i = 0; i < kCrowd; ++i) {
            // Some from sessions of their own, which share no more than the storage folder.
            if (i > kCrowd / 2) {
                m_environment.insert(s("TMPDIR"), m_room->path(s("session%1").arg(i)));
                QVERIFY(QDir().mkdir(m_environment.value(s("TMPDIR"))));
            }
            clients.push_back(start());
        }
        QVERIFY(appears(kBoxTitle, kCrowd - 1) && appears(kMainTitle));
        // As if the running one had continued meanwhile.
        const QString session = m_room->ofUser(s("session.ini"));
        QSettings(session, QSettings::IniFormat).setValue(s("taskID"), s("1703"));
        const QStringList boxes = windowsNamed(kBoxTitle);
        for (const QString &box : boxes)
            QVERIFY(activateWindow(box) && pressKeys(s("Return")));
        const auto runs = [](const Client &client) { return client->state() == QProcess::Running; };
        QTRY_COMPARE_WITH_TIMEOUT(std::count_if(clients.cbegin(), clients.cend(), runs), 1, kPatience);
        QVERIFY2(contentsOf(session).contains("taskID=1703"), "those that were refused leave it alone");
        for (const Client &client : clients)
            QVERIFY(runs(client) ? endsInOrder(*client) : client->exitCode() == 1);
    }

    void storageIsALink()
    {
        const QTemporaryDir elsewhere;
        const QString config = elsewhere.filePath(s("config.ini"));
        const QByteArray damaged = "[General]\nlastLogin=@Variant(\n";
        QVERIFY(writeFile(config, damaged) && QFile::link(elsewhere.path(), m_room->path(s(".orvana"))));
        QVERIFY(isRefused(*start()));
        QCOMPARE(contentsOf(config), damaged);
        QCOMPARE(QDir(elsewhere.path()).entryList(QDir::Files | QDir::Hidden), texts({"config.ini"}));
    }

    void anotherUser()
    {
        const QString tool = QStandardPaths::findExecutable(s("setpriv"));
        if (geteuid() != 0 || tool.isEmpty())
            QSKIP("becoming another user needs root and setpriv");
        m_room->leaveUser(false);
        const QTemporaryDir home(s("/tmp/orvana-test.XXXXXX"));
        QVERIFY(::chmod(QFile::encodeName(m_room->path()).constData(), 01777) == 0);
        QVERIFY(QProcess::execute(s("chown"), {kStranger + QLatin1Char(':') + kStranger, home.path()}) == 0);
        const QStringList asStranger{tool, s("--reuid=") + kStranger, s("--regid=") + kStranger,
                                     s("--clear-groups")};
        for (const char *name : {"TMPDIR", "HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"})
            m_environment.insert(s(name), home.path());
        QVERIFY(isRefused(*start({}, asStranger)));
        QVERIFY(log().isNull());

        // With a folder of one's own, but one lock for all.
        m_environment.insert(s("TMPDIR"), m_room->path());
        const Client first = start();
        QVERIFY(appears(kMainTitle));
        m_environment.insert(s("ORVANA_STORAGE_ROOT"), home.path());
        m_environment.insert(s("ORVANA_CONFIG"), s("/dev/null"));
        QVERIFY(isRefused(*start({}, asStranger)));
        first->kill();
        QVERIFY(first->waitForFinished());
        const Client heir = start({}, asStranger);
        QVERIFY(appears(kQuestionTitle) && endsInOrder(*heir));
    }

    void lockNobodyHolds_data()
    {
        QTest::addColumn<QString>("hindrance");
        for (const char *hindrance :
             {"semaphore never given", "semaphore taken meanwhile", "other's segment"})
            QTest::newRow(hindrance) << s(hindrance);
    }

    void lockNobodyHolds()
    {
        QFETCH(QString, hindrance);
        m_room->leaveUser(false);
        const QByteArray before = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(m_room->path()));
        const QString keyFile = QSharedMemory(kLock).nativeKey();
        const bool isNeverGiven = hindrance.endsWith(s("given"));
        QSystemSemaphore semaphore(kLock, isNeverGiven ? 0 : 1, QSystemSemaphore::Create);
        qputenv("TMPDIR", before);
        int segment = -1;
        if (hindrance.endsWith(s("segment"))) {
            QVERIFY(writeFile(keyFile, QByteArray()));
            segment = ::shmget(::ftok(QFile::encodeName(keyFile).constData(), 'Q'), 4096, IPC_CREAT | 0600);
            QVERIFY(segment >= 0 && ::shmat(segment, nullptr, 0));
        }
        const Client client = start();
        QVERIFY(appears(kMainTitle));
        QVERIFY(!hindrance.endsWith(s("meanwhile")) || semaphore.acquire());
        QVERIFY(endsInOrder(*client));
        ::shmctl(segment, IPC_RMID, nullptr);
    }

    void logFile()
    {
        constexpr qint64 limit = 104857600;
        m_room->leaveUser(false);
        for (const qint64 size : {limit, limit + 1}) {
            QFile file(m_room->stored(s("log.log")));
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.resize(size));
            file.close();
            QVERIFY(opensAndEnds(*start()));
            const bool isKept = size == limit;
            QCOMPARE(file.size() > size, isKept);
            QVERIFY(file.open(QIODevice::ReadOnly) && file.seek(isKept ? size : 0));
            const QString first = QString::fromUtf8(file.readLine());
            const QRegularExpression expected(
                s("^Message\\(0\\) at \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ: \"Orvana Team Monitor "
                  "\\d+\\.\\d+\\.\\d+ started\\. "
                  "Build date: [A-Z][a-z]{2} [ \\d]\\d \\d{4}, \\d\\d:\\d\\d:\\d\\d\"\n$"));
            QVERIFY2(expected.match(first).hasMatch(), qPrintable(first));
            QCOMPARE(file.permissions() & 0x077, QFile::Permissions());
        }
        QVERIFY2(output().contains("\"\n\r"), "standard output ends its lines the other way round");
    }

    void withoutXServer()
    {
        m_environment.insert(s("XDG_SESSION_TYPE"), s("wayland"));
        m_environment.remove(s("QT_QPA_PLATFORM"));
        QVERIFY(endedWith(*start({s("--clean")}), 0));
        m_environment.insert(s("DISPLAY"), s(":987"));
        QVERIFY(endedWith(*start({s("--clean")}), 1));
        QVERIFY(output().contains(s("Нет доступа к X-серверу").toUtf8()));
        QVERIFY(endedWith(*start({s("--clean"), s("-platform"), s("offscreen")}), 0));
    }

    void misconfigured_data()
    {
        addRows({{"", "orvanx.conf can't be read: "},
                 {"[Service]\nverify-certificates=true\n",
                  "Service/verify-certificates=true is no key of this program"},
                 {"verify-certificates=true, ", "is neither true nor false and counts as true"},
                 {"journal=perhaps\n", "journal=perhaps is neither true nor false and counts as true"},
                 {"start-shortcut=Ctrl+Alt\n", "start-shortcut=Ctrl+Alt is no key with its modifiers"},
                 {"stop-shortcut=Ctrl+A, Ctrl+B\n", "Ctrl+B is no key with its modifiers"},
                 {"start-shortcut=Ctrl+,\nstop-shortcut=F8\n", ""},
                 {"watcher-port=70000\n", "watcher-port=70000 is no port"},
                 {"verify-certificates: true\n", "verify-certificates: true is no setting"},
                 {"; a\n#b=c\n\n[General]\nverify-certificates=True\nservice-url=x\n", ""}});
    }

    void misconfigured()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const QString path = m_room->path(s("orvanx.conf"));
        QVERIFY(input.isEmpty() ? QFile::remove(path) : writeFile(path, input.toUtf8()));
        QVERIFY(endedWith(*start({s("--clean")}), 0));
        QCOMPARE(output().contains("Message(1)"), !result.isEmpty());
        QVERIFY(output().contains(result.toUtf8()));
    }

private:
    Client start(const QStringList &arguments = {}, const QStringList &wrapper = {}) const
    {
        auto client = std::make_unique<QProcess>();
        client->setProcessEnvironment(m_environment);
        client->setWorkingDirectory(m_room->path());
        client->setProcessChannelMode(QProcess::MergedChannels);
        client->setStandardOutputFile(m_room->path(s("output")), QIODevice::Append);
        const QStringList command = wrapper + QStringList{s(ORVANA_EXECUTABLE)} + arguments;
        client->start(command.first(), command.mid(1));
        return client;
    }

    // With the timer running and a fast clock.
    Client startTracking(const QStringList &arguments = {}, const QStringList &wrapper = {})
    {
        m_room->leaveUser(true);
        m_environment = m_room->environment(s("+0 x40"));
        return start(arguments, wrapper);
    }

    // Whether this many more arrive.
    bool reports(int count) const
    {
        const int enough = m_room->server.reports().size() + count;
        return QTest::qWaitFor([&] { return m_room->server.reports().size() >= enough; }, kPatience);
    }

    static bool isRefused(QProcess &client)
    {
        return press(kBoxTitle, {s("Return")}) && endedWith(client, 1);
    }

    QByteArray output() const { return contentsOf(m_room->path(s("output"))); }
    QByteArray log() const { return contentsOf(m_room->stored(s("log.log"))); }

    std::unique_ptr<ClientRoom> m_room;
    QProcessEnvironment m_environment;
};

QTEST_GUILESS_MAIN(TestProgram)
#include "tst_program.moc"
