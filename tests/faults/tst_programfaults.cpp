#include "clientroom.h"
#include "files.h"
#include "realinput.h"
#include "sessionmanager.h"
#include "virtualdisplay.h"

#include <QDirIterator>
#include <QSharedMemory>
#include <QSystemSemaphore>
#include <QTcpSocket>
#include <QtTest>

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

namespace {

constexpr int kPatience = 40000; // ms
constexpr int kCrowd = 5;
const QString kStranger = s("12345");
const QString kMainTitle = s("^Orvana$");
const QString kBoxTitle = s("^Orvana Team Monitor$");
const QString kIcon = s("_NET_WM_ICON");
const QString kFast = s("+0 x40");
const QString kLock = s("SingleAppLockOrvana Team Monitor");

enum Outlet { OfShell, Pipe, Terminal, Socket };
enum SessionsEnd { Asked, Broken };
enum Hindrance { Semaphore, Segment, SemaphoreAndSignal, SemaphoreAtEnd };

void dismiss(const QString &window)
{
    QVERIFY(activateWindow(window) && pressKeys(s("Return")));
}

class Program final : public QProcess
{
public:
    int output = -1; // in place of its standard output...
    int errors = -1; // ...and errors

protected:
    void setupChildProcess() override
    {
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
    }
};

// One to read from and one that is written to. Nobody reads.
void openOutlet(Outlet outlet, int ends[2])
{
    if (outlet == Pipe) {
        QVERIFY(::pipe2(ends, O_CLOEXEC) == 0 && ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0);
    } else if (outlet == Terminal) {
        QVERIFY(::openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr) == 0);
    } else if (outlet == Socket) {
        QVERIFY(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    }
}

QByteArray drained(int descriptor)
{
    QByteArray all;
    char piece[4096];
    for (ssize_t size = 0; (size = ::read(descriptor, piece, sizeof piece)) > 0;)
        all.append(piece, static_cast<int>(size));
    return all;
}

} // namespace

Q_DECLARE_METATYPE(Outlet)
Q_DECLARE_METATYPE(Hindrance)
Q_DECLARE_METATYPE(SessionsEnd)

// What the machine around the real executable does to it.
class TestProgramFaults final : public QObject
{
    Q_OBJECT

private slots:
    // In a folder that other users can read.
    void init() { m_room = std::make_unique<ClientRoom>(localservice::Server::Options(), s("/tmp")); }

    void cleanup() { m_room.reset(); }

    void displayDies()
    {
        m_room->leaveUser(true);
        m_room->server.setFault(s("/api_active2"), Fault::answer(503));
        QProcessEnvironment fast = m_room->environment(kFast);
        int kept = 0;
        {
            VirtualDisplay display;
            fast.insert(s("DISPLAY"), display.name());
            const Client client = start(fast);
            QTRY_VERIFY_WITH_TIMEOUT(m_room->waiting() >= 2, kPatience);
            // As if they had changed since the last minute.
            QVERIFY(QFile::remove(m_room->ofUser(s("tasks.ini"))));
            display.kill();
            QVERIFY(ended(*client));
            QVERIFY(QFile::exists(m_room->ofUser(s("tasks.ini"))));
            QVERIFY2(client->exitStatus() == QProcess::NormalExit, "it ends by itself");
            kept = m_room->waiting();
        }
        const QString storage = m_room->path(s(".orvana"));
        QDirIterator written(storage, texts({"json*", "*.log", "tasks.ini"}), QDir::Files,
                             QDirIterator::Subdirectories);
        while (written.hasNext())
            QVERIFY2(!(QFile::permissions(written.next()) & 0x0077), qPrintable(written.filePath()));
        QCOMPARE(QFile::permissions(storage) & 0x0fff, QFile::Permissions(0x0700));
        QVERIFY(kept >= 2);
        m_room->server.clearFaults();
        const VirtualDisplay another;
        fast.insert(s("DISPLAY"), another.name());
        const Client client = start(fast);
        QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() > kept, kPatience);
        QVERIFY(endsInOrder(*client));
    }

    void sessionEnds_data()
    {
        QTest::addColumn<QString>("window");
        QTest::addColumn<SessionsEnd>("how");
        QTest::newRow("popup on the screen") << s("^Dialog$") << Asked;
        QTest::newRow("question on the screen") << s("^Ошибка$") << Asked;
        QTest::newRow("manager dies") << kMainTitle << Broken;
    }

    void sessionEnds()
    {
        QFETCH(QString, window);
        QFETCH(SessionsEnd, how);
        m_room->leaveUser(true);
        if (window == s("^Ошибка$"))
            m_room->watcher.close();
        SessionManager manager;
        QProcessEnvironment environment = m_room->environment();
        environment.insert(s("SESSION_MANAGER"), manager.address());
        const Client client = start(environment);
        QTRY_VERIFY_WITH_TIMEOUT(!windowsNamed(window).isEmpty(), kPatience);
        QTRY_COMPARE_WITH_TIMEOUT(manager.agreed, 1, kPatience);
        const QString session = m_room->ofUser(s("session.ini"));
        QVERIFY(QFile::remove(session));
        if (how == Asked) {
            manager.askToEnd();
            QTRY_COMPARE_WITH_TIMEOUT(manager.agreed + manager.refused, 2, kPatience);
            QVERIFY(manager.refused == 0 && manager.questions == 0);
            QVERIFY(QFile::exists(session));
            manager.end();
        } else {
            manager.breakConnection();
        }
        QVERIFY(ended(*client));
        QCOMPARE(client->exitStatus(), QProcess::NormalExit);
        QVERIFY(!manager.isStartedAgain);
        const QSettings saved(session, QSettings::IniFormat);
        QVERIFY2(saved.value(s("active")).toBool() && saved.value(s("taskID")).toString() == s("1702"),
                 "the next start resumes");
    }

    void allAtOnce()
    {
        m_room->leaveUser(false);
        std::vector<Client> clients;
        for (int i = 0; i < kCrowd; ++i) {
            // Some from sessions of their own, which share no more than the storage folder.
            QProcessEnvironment session = m_room->environment();
            if (i % 2 == 1) {
                session.insert(s("TMPDIR"), m_room->path(s("session%1").arg(i)));
                QVERIFY(QDir().mkdir(session.value(s("TMPDIR"))));
            }
            clients.push_back(start(session));
        }
        QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kBoxTitle).size(), kCrowd - 1, kPatience);
        QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kMainTitle).size(), 1, kPatience);
        // As if the running one had continued meanwhile.
        {
            QSettings session(m_room->ofUser(s("session.ini")), QSettings::IniFormat);
            session.setValue(s("taskID"), s("1703"));
        }
        QStringList icons;
        const QStringList windows = windowsNamed(kBoxTitle) + windowsNamed(kMainTitle);
        for (const QString &window : windows)
            icons.append(propertyOf(window, kIcon));
        QVERIFY(icons.size() == kCrowd && icons.count(icons.constLast()) == kCrowd);
        for (int i = 0; i < kCrowd - 1; ++i)
            dismiss(windows.at(i));
        const auto running = [&clients] {
            return std::count_if(clients.cbegin(), clients.cend(),
                                 [](const Client &client) { return client->state() == QProcess::Running; });
        };
        QTRY_COMPARE_WITH_TIMEOUT(running(), 1, kPatience);
        QVERIFY2(contentsOf(m_room->ofUser(s("session.ini"))).contains("taskID=1703"),
                 "those that were refused leave the session alone");
        for (const Client &client : clients) {
            if (client->state() == QProcess::NotRunning) {
                QCOMPARE(client->exitCode(), 1);
                continue;
            }
            QVERIFY(endsInOrder(*client));
        }
    }

    void anotherUser()
    {
        const QString tool = QStandardPaths::findExecutable(s("setpriv"));
        if (geteuid() != 0 || tool.isEmpty())
            QSKIP("becoming another user needs root and setpriv");
        m_room->leaveUser(false);
        const QByteArray box = QFile::encodeName(m_room->path());
        QVERIFY(::chmod(box.constData(), 01777) == 0);
        const QTemporaryDir home(s("/tmp/orvana-test.XXXXXX"));
        QVERIFY(::chown(QFile::encodeName(home.path()).constData(), kStranger.toUInt(), kStranger.toUInt())
                == 0);
        QProcessEnvironment own = m_room->environment();
        for (const char *name : {"TMPDIR", "HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"})
            own.insert(s(name), home.path());
        const QStringList asStranger{tool, s("--reuid=") + kStranger, s("--regid=") + kStranger,
                                     s("--clear-groups")};
        const auto isRefused = [&] {
            const Client second = start(own, asStranger);
            QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kBoxTitle).size(), 1, kPatience);
            dismiss(windowsNamed(kBoxTitle).constFirst());
            QVERIFY(ended(*second));
            QCOMPARE(second->exitCode(), 1);
        };
        isRefused();
        QVERIFY(!QFile::exists(m_room->stored(s("log.log"))));

        // With a folder of one's own, but one lock for all.
        own.insert(s("ORVANA_STORAGE_ROOT"), home.path());
        own.insert(s("TMPDIR"), m_room->path());
        own.insert(s("ORVANA_CONFIG"), s("/dev/null"));
        const Client first = start(m_room->environment());
        QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kMainTitle).size(), 1, kPatience);
        isRefused();
        first->kill();
        QVERIFY(ended(*first));
        const Client heir = start(own, asStranger);
        QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(s("^Ошибка$")).size(), 1, kPatience);
        QVERIFY(endsInOrder(*heir));
    }

    void lockNobodyHolds_data()
    {
        QTest::addColumn<Hindrance>("hindrance");
        QTest::newRow("semaphore never given") << Semaphore;
        QTest::newRow("ended while it waits") << SemaphoreAndSignal;
        QTest::newRow("semaphore taken meanwhile") << SemaphoreAtEnd;
        QTest::newRow("another program's segment") << Segment;
    }

    void lockNobodyHolds()
    {
        QFETCH(Hindrance, hindrance);
        m_room->leaveUser(false);
        const QByteArray before = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(m_room->path()));
        const QSharedMemory named(kLock);
        const bool isGiven = hindrance == Segment || hindrance == SemaphoreAtEnd;
        QSystemSemaphore semaphore(kLock, isGiven ? 1 : 0, QSystemSemaphore::Create);
        qputenv("TMPDIR", before);
        int segment = -1;
        if (hindrance == Segment) {
            QVERIFY(writeFile(named.nativeKey(), QByteArray()));
            const key_t key = ::ftok(QFile::encodeName(named.nativeKey()).constData(), 'Q');
            segment = ::shmget(key, 4096, IPC_CREAT | 0600);
            QVERIFY(segment >= 0 && ::shmat(segment, nullptr, 0));
        }
        const Client client = start(m_room->environment());
        if (hindrance == SemaphoreAndSignal)
            QTRY_VERIFY_WITH_TIMEOUT(contentsOf(m_room->stored(s("log.log"))).contains("started."),
                                     kPatience);
        else
            QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kMainTitle).size(), 1, kPatience);
        if (hindrance == SemaphoreAtEnd)
            QVERIFY(semaphore.acquire());
        QVERIFY(endsInOrder(*client));
        QVERIFY(contentsOf(m_room->stored(s("log.log"))).contains("Exit Orvana Team Monitor OK"));
        ::shmctl(segment, IPC_RMID, nullptr);
    }

    // The desktop's log may end before the client does, stand still, or hang up.
    void outlivesItsTerminal_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<Outlet>("outlet");
        QTest::addColumn<bool>("hangsUp");
        const QString plain = s("exec \"$0\"");
        QTest::newRow("output closed") << s("exec \"$0\" > >(exec true) 2>&1") << OfShell << false;
        QTest::newRow("nothing open") << s("exec \"$0\" <&- >&- 2>&-") << OfShell << false;
        QTest::newRow("output never read")
            << s("exec > >(exec tail -f /dev/null --pid=$$) 2>&1; head -c 64000 /dev/zero; exec \"$0\"")
            << OfShell << false;
        QTest::newRow("output read late") << plain << Pipe << false;
        QTest::newRow("errors read for a second")
            << s("exec 2> >(timeout 1 cat >/dev/null; exec tail -f /dev/null --pid=$$); exec \"$0\"")
            << OfShell << false;
        QTest::newRow("terminal never read") << plain << Terminal << false;
        QTest::newRow("journal never read") << plain << Socket << false;
        QTest::newRow("hangs up") << s("exec nohup \"$0\"") << OfShell << true;
    }

    void outlivesItsTerminal()
    {
        QFETCH(QString, command);
        QFETCH(Outlet, outlet);
        QFETCH(bool, hangsUp);
        constexpr int longest = 64 * 1024; // of what a pipe takes
        m_room->leaveUser(true);
        // Garbage takes three times its size.
        Fault longLine = Fault::answer(200, QByteArray(longest, outlet == Socket ? '\xff' : 'x'));
        longLine.delay = std::chrono::milliseconds(1100);
        m_room->server.setFault(s("/api_get_active"), longLine);
        int ends[2] = {-1, -1};
        openOutlet(outlet, ends);
        const Client client = start(m_room->environment(kFast), {s("bash"), s("-c"), command},
                                    outlet == Socket ? -1 : ends[1], outlet == Pipe ? -1 : ends[1]);
        QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() >= 2, kPatience);
        QByteArray output = drained(outlet == Pipe ? ends[0] : -1);
        if (hangsUp)
            ::kill(static_cast<pid_t>(client->processId()), SIGHUP);
        const int before = m_room->server.reports().size();
        QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() >= before + 2, kPatience);
        QVERIFY(endsInOrder(*client));
        if (outlet == Pipe) {
            output += drained(ends[0]);
            const QStringList lines = QString::fromUtf8(output).split(s("\n\r"), Qt::SkipEmptyParts);
            QVERIFY2(lines.filter(s("Message(")).size() == lines.size()
                         && output.count("Message(") == lines.size(),
                     "no line is lost in part");
            QVERIFY(std::any_of(lines.cbegin(), lines.cend(),
                                [](const QString &line) { return line.size() > longest; }));
        }
        QVERIFY2(outlet == OfShell || !(::fcntl(ends[1], F_GETFL) & O_NONBLOCK),
                 "others' writing is left alone");
        ::close(ends[0]);
        ::close(ends[1]);
    }

    // Without a watcher, or with a broken one, the minutes are still reported.
    void watcher_data()
    {
        QTest::addColumn<QByteArray>("says"); // repeatedly
        QTest::addColumn<bool>("ends");
        QTest::addColumn<int>("active");
        QTest::newRow("silent") << QByteArray() << false << 0;
        QTest::newRow("garbage") << QByteArray("\0\xff%n{\"", 6) << false << 10;
        QTest::newRow("flood") << QByteArray(4 * 1024 * 1024, 'x') << false << 10;
        QTest::newRow("ends") << QByteArray("x") << true << 0;
    }

    void watcher()
    {
        QFETCH(QByteArray, says);
        QFETCH(bool, ends);
        QFETCH(int, active);
        m_room->leaveUser(true);
        const Client client = start(m_room->environment(kFast));
        QTRY_VERIFY_WITH_TIMEOUT(m_room->watcher.hasPendingConnections(), kPatience);
        QTcpSocket *peer = m_room->watcher.nextPendingConnection();
        QTimer speech;
        connect(&speech, &QTimer::timeout, peer, [peer, says] {
            if (peer->bytesToWrite() == 0)
                peer->write(says);
        });
        speech.start(20);
        QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() >= 2, kPatience);
        if (ends) {
            speech.stop();
            peer->abort();
            QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().constLast().active == 0, kPatience);
        }
        const int before = m_room->server.reports().size();
        QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() >= before + 2, kPatience);
        const int reported = m_room->server.reports().constLast().active;
        QVERIFY2(active == 0 ? reported == 0 : reported > active / 2, qPrintable(QString::number(reported)));
        QVERIFY2(!m_room->watcher.hasPendingConnections(), "it is asked once");
        QVERIFY(endsInOrder(*client));
    }

private:
    using Client = std::unique_ptr<Program>;

    Client start(const QProcessEnvironment &environment, const QStringList &wrapper = {}, int output = -1,
                 int errors = -1) const
    {
        auto client = std::make_unique<Program>();
        client->output = output;
        client->errors = errors;
        client->setProcessEnvironment(environment);
        client->setWorkingDirectory(m_room->path());
        client->setStandardOutputFile(QProcess::nullDevice());
        client->setStandardErrorFile(QProcess::nullDevice());
        const QStringList command = wrapper + QStringList{s(ORVANA_EXECUTABLE)};
        client->start(command.first(), command.mid(1));
        return client;
    }
    static bool ended(QProcess &client)
    {
        return QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, kPatience);
    }

    static bool endsInOrder(QProcess &client)
    {
        client.terminate();
        return ended(client) && client.exitStatus() == QProcess::NormalExit && client.exitCode() == 0;
    }

    std::unique_ptr<ClientRoom> m_room;
};

QTEST_GUILESS_MAIN(TestProgramFaults)

#include "tst_programfaults.moc"
