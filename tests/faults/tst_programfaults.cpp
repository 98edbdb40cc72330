#include "clientroom.h"
#include "files.h"
#include "realinput.h"
#include "virtualdisplay.h"

#include <QtTest>

#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using localservice::Fault;

namespace {

constexpr int kPatience = 40000; // ms
constexpr int kCrowd = 5;
const QString kStranger = s("12345");
const QString kMainTitle = s("^Orvana$");
const QString kBoxTitle = s("^Orvana Team Monitor$");

void dismiss(const QString &window)
{
    QVERIFY(activateWindow(window) && pressKeys(s("Return")));
}

} // namespace

// What the machine around the real executable does to it.
class TestProgramFaults final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void displayDies();
    void allAtOnce();
    void anotherUser();
    void nobodyReadsTheOutput();

private:
    using Client = std::unique_ptr<QProcess>;

    Client start(const QProcessEnvironment &environment, const QStringList &wrapper = {}) const;
    static bool ended(QProcess &client)
    {
        return QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, kPatience);
    }

    std::unique_ptr<ClientRoom> m_room;
};

void TestProgramFaults::init()
{
    // Where another user may look, too.
    m_room = std::make_unique<ClientRoom>(localservice::Server::Options(), s("/tmp"));
}

void TestProgramFaults::cleanup()
{
    m_room.reset();
}

TestProgramFaults::Client TestProgramFaults::start(const QProcessEnvironment &environment,
                                                   const QStringList &wrapper) const
{
    auto client = std::make_unique<QProcess>();
    client->setProcessEnvironment(environment);
    client->setWorkingDirectory(m_room->path());
    client->setStandardOutputFile(QProcess::nullDevice());
    client->setStandardErrorFile(QProcess::nullDevice());
    const QStringList command = wrapper + QStringList{s(ORVANA_EXECUTABLE)};
    client->start(command.first(), command.mid(1));
    return client;
}

void TestProgramFaults::displayDies()
{
    m_room->leaveUser(true);
    m_room->server.setFault(s("/api_active2"), Fault::answer(503));
    QProcessEnvironment fast = m_room->environment(s("+0 x40"));
    int kept = 0;
    {
        VirtualDisplay display;
        fast.insert(s("DISPLAY"), display.name());
        const Client client = start(fast);
        QTRY_VERIFY_WITH_TIMEOUT(m_room->waiting() >= 2, kPatience);
        display.kill();
        QVERIFY(ended(*client));
        QVERIFY2(client->exitStatus() == QProcess::NormalExit, "it ends by itself");
        kept = m_room->waiting();
    }
    QVERIFY(kept >= 2);
    m_room->server.clearFaults();
    const VirtualDisplay another;
    fast.insert(s("DISPLAY"), another.name());
    const Client client = start(fast);
    QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() > kept, kPatience);
    client->terminate();
    QVERIFY(ended(*client));
    QCOMPARE(client->exitCode(), 0);
}

void TestProgramFaults::allAtOnce()
{
    m_room->leaveUser(false);
    std::vector<Client> clients;
    for (int i = 0; i < kCrowd; ++i)
        clients.push_back(start(m_room->environment()));
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kBoxTitle).size(), kCrowd - 1, kPatience);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kMainTitle).size(), 1, kPatience);
    // As if the one that runs had gone on meanwhile.
    {
        QSettings session(m_room->ofUser(s("session.ini")), QSettings::IniFormat);
        session.setValue(s("taskID"), s("1703"));
    }
    const QStringList boxes = windowsNamed(kBoxTitle);
    for (const QString &box : boxes)
        dismiss(box);
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
        client->terminate();
        QVERIFY(ended(*client));
        QCOMPARE(client->exitCode(), 0);
    }
}

void TestProgramFaults::anotherUser()
{
    const QString tool = QStandardPaths::findExecutable(s("setpriv"));
    if (geteuid() != 0 || tool.isEmpty())
        QSKIP("becoming another user needs root and setpriv");
    m_room->leaveUser(false);
    const QByteArray box = QFile::encodeName(m_room->path());
    QVERIFY(::chmod(box.constData(), 01777) == 0);
    const QTemporaryDir home(s("/tmp/orvana-test.XXXXXX"));
    QVERIFY(::chown(QFile::encodeName(home.path()).constData(), kStranger.toUInt(), kStranger.toUInt()) == 0);
    QProcessEnvironment own = m_room->environment();
    for (const char *name : {"TMPDIR", "HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"})
        own.insert(s(name), home.path());
    const QStringList asStranger{tool, s("--reuid=") + kStranger, s("--regid=") + kStranger,
                                 s("--clear-groups")};
    const Client second = start(own, asStranger);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kBoxTitle).size(), 1, kPatience);
    dismiss(windowsNamed(kBoxTitle).constFirst());
    QVERIFY(ended(*second));
    QCOMPARE(second->exitCode(), 1);
    QVERIFY(!QFile::exists(m_room->stored(s("log.log"))));
}

// The desktop's log may end before the client does.
void TestProgramFaults::nobodyReadsTheOutput()
{
    m_room->leaveUser(false);
    const QStringList shell{s("bash"), s("-c"), s("exec \"$0\" > >(exec true) 2>&1")};
    const Client client = start(m_room->environment(), shell);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kMainTitle).size(), 1, kPatience);
    client->terminate();
    QVERIFY(ended(*client));
    QCOMPARE(client->exitStatus(), QProcess::NormalExit);
    QCOMPARE(client->exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestProgramFaults)

#include "tst_programfaults.moc"
