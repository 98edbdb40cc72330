#include "localservice/server.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using localservice::Fault;

namespace {

constexpr int kPatience = 40000; // ms
constexpr int kCrowd = 5;
const QString kStranger = QStringLiteral("12345");
const QString kMainTitle = QStringLiteral("^Orvana$");
const QString kBoxTitle = QStringLiteral("^Orvana Team Monitor$");
const QString kUser = QStringLiteral("anna@orvana.example");
const QMap<QString, QString> kFast{
    {QStringLiteral("LD_PRELOAD"), QStringLiteral("/usr/$LIB/faketime/libfaketime.so.1")},
    {QStringLiteral("FAKETIME"), QStringLiteral("+0 x40")},
    // A sanitizer's library wants to be the first that is loaded.
    {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0:detect_leaks=0")}};

QStringList windowsNamed(const QString &title)
{
    QProcess tool;
    tool.start(QStringLiteral("xdotool"),
               {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"), title});
    tool.waitForFinished(kPatience);
    return QString::fromLatin1(tool.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void dismiss(const QString &window)
{
    QProcess::execute(QStringLiteral("xdotool"),
                      {QStringLiteral("windowactivate"), QStringLiteral("--sync"), window,
                       QStringLiteral("key"), QStringLiteral("Return")});
}

// A virtual X server that the test may kill.
class Display final
{
public:
    bool start()
    {
        m_server.start(QStringLiteral("Xvfb"),
                       {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
                        QStringLiteral("tcp"), QStringLiteral("-noreset")});
        return QTest::qWaitFor([this] { return m_server.canReadLine(); }, kPatience);
    }
    QString name() { return QLatin1Char(':') + QString::fromLatin1(m_server.readLine()).trimmed(); }
    void kill()
    {
        m_server.kill();
        m_server.waitForFinished();
    }

private:
    QProcess m_server;
};

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
    void outlivesItsTerminal_data();
    void outlivesItsTerminal();
    void watcher_data();
    void watcher();

private:
    using Client = std::unique_ptr<QProcess>;

    QString storage() const { return m_box->filePath(QStringLiteral(".orvana")); }
    QString sessionFile() const
    {
        return storage() + QLatin1Char('/') + kUser + QStringLiteral("/session.ini");
    }
    int waiting() const
    {
        return QDir(storage() + QLatin1Char('/') + kUser + QStringLiteral("/activity"))
            .entryList({QStringLiteral("json*")}, QDir::Files)
            .size();
    }
    void rememberUser(bool active) const;
    Client start(const QMap<QString, QString> &more = {}, const QStringList &wrapper = {}) const;
    static bool ended(QProcess &client)
    {
        return QTest::qWaitFor([&] { return client.state() == QProcess::NotRunning; }, kPatience);
    }

    std::unique_ptr<QTemporaryDir> m_box;
    std::unique_ptr<localservice::Server> m_server;
    std::unique_ptr<QTcpServer> m_watcher;
};

void TestProgramFaults::init()
{
    // Where another user may look, too.
    m_box = std::make_unique<QTemporaryDir>(QStringLiteral("/tmp/orvana-test.XXXXXX"));
    m_server = std::make_unique<localservice::Server>();
    QVERIFY(m_server->start());
    m_watcher = std::make_unique<QTcpServer>();
    QVERIFY(m_watcher->listen(QHostAddress::LocalHost));
    QSettings config(m_box->filePath(QStringLiteral("orvanx.conf")), QSettings::IniFormat);
    config.setValue(QStringLiteral("watcher-port"), m_watcher->serverPort());
}

void TestProgramFaults::cleanup()
{
    m_server.reset();
    m_watcher.reset();
    m_box.reset();
}

// Logged in, with a task chosen, as an earlier run left it.
void TestProgramFaults::rememberUser(bool active) const
{
    QVERIFY(QDir().mkpath(storage() + QLatin1Char('/') + kUser));
    QSettings config(storage() + QStringLiteral("/config.ini"), QSettings::IniFormat);
    config.setValue(QStringLiteral("lastLogin"), kUser);
    QSettings session(sessionFile(), QSettings::IniFormat);
    session.setValue(QStringLiteral("password"), QStringLiteral("orvana"));
    session.setValue(QStringLiteral("logged"), true);
    session.setValue(QStringLiteral("active"), active);
    session.setValue(QStringLiteral("teamID"), QStringLiteral("17"));
    session.setValue(QStringLiteral("taskID"), QStringLiteral("1702"));
}

TestProgramFaults::Client TestProgramFaults::start(const QMap<QString, QString> &more,
                                                   const QStringList &wrapper) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ORVANA_SERVICE_URL"), m_server->baseUrl());
    environment.insert(QStringLiteral("ORVANA_STORAGE_ROOT"), m_box->path());
    environment.insert(QStringLiteral("ORVANA_CONFIG"), m_box->filePath(QStringLiteral("orvanx.conf")));
    environment.insert(QStringLiteral("TMPDIR"), m_box->path());
    for (auto it = more.cbegin(); it != more.cend(); ++it)
        environment.insert(it.key(), it.value());
    auto client = std::make_unique<QProcess>();
    client->setProcessEnvironment(environment);
    client->setWorkingDirectory(m_box->path());
    client->setStandardOutputFile(QProcess::nullDevice());
    client->setStandardErrorFile(QProcess::nullDevice());
    const QStringList command = wrapper + QStringList{QStringLiteral(ORVANA_EXECUTABLE)};
    client->start(command.first(), command.mid(1));
    return client;
}

void TestProgramFaults::displayDies()
{
    rememberUser(true);
    m_server->setFault(QStringLiteral("/api_active2"), Fault::answer(503));
    QMap<QString, QString> fast = kFast;
    int kept = 0;
    {
        Display display;
        QVERIFY(display.start());
        fast.insert(QStringLiteral("DISPLAY"), display.name());
        const Client client = start(fast);
        QTRY_VERIFY_WITH_TIMEOUT(waiting() >= 2, kPatience);
        display.kill();
        QVERIFY(ended(*client));
        QVERIFY2(client->exitStatus() == QProcess::NormalExit, "it ends by itself");
        kept = waiting();
    }
    QDirIterator written(storage(),
                         {QStringLiteral("json*"), QStringLiteral("*.log"), QStringLiteral("tasks.ini")},
                         QDir::Files, QDirIterator::Subdirectories);
    while (written.hasNext())
        QVERIFY2(!(QFile::permissions(written.next()) & 0x0077), qPrintable(written.filePath()));
    QCOMPARE(QFile::permissions(storage()) & 0x0fff, QFile::Permissions(0x0700));
    QVERIFY(kept >= 2);
    m_server->clearFaults();
    Display another;
    QVERIFY(another.start());
    fast.insert(QStringLiteral("DISPLAY"), another.name());
    const Client client = start(fast);
    QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().size() > kept, kPatience);
    client->terminate();
    QVERIFY(ended(*client));
    QCOMPARE(client->exitCode(), 0);
}

void TestProgramFaults::allAtOnce()
{
    rememberUser(false);
    std::vector<Client> clients;
    for (int i = 0; i < kCrowd; ++i)
        clients.push_back(start());
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kBoxTitle).size(), kCrowd - 1, kPatience);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kMainTitle).size(), 1, kPatience);
    // As if the one that runs had gone on meanwhile.
    {
        QSettings session(sessionFile(), QSettings::IniFormat);
        session.setValue(QStringLiteral("taskID"), QStringLiteral("1703"));
    }
    const QStringList boxes = windowsNamed(kBoxTitle);
    for (const QString &box : boxes)
        dismiss(box);
    const auto running = [&clients] {
        return std::count_if(clients.cbegin(), clients.cend(),
                             [](const Client &client) { return client->state() == QProcess::Running; });
    };
    QTRY_COMPARE_WITH_TIMEOUT(running(), 1, kPatience);
    QFile stored(sessionFile());
    QVERIFY(stored.open(QIODevice::ReadOnly));
    QVERIFY2(stored.readAll().contains("taskID=1703"), "those that were refused leave the session alone");
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
    const QString tool = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
    if (geteuid() != 0 || tool.isEmpty())
        QSKIP("becoming another user needs root and setpriv");
    rememberUser(false);
    const QByteArray box = QFile::encodeName(m_box->path());
    QVERIFY(::chmod(box.constData(), 01777) == 0);
    const QTemporaryDir home(QStringLiteral("/tmp/orvana-test.XXXXXX"));
    QVERIFY(::chown(QFile::encodeName(home.path()).constData(), kStranger.toUInt(), kStranger.toUInt()) == 0);
    const QMap<QString, QString> own{{QStringLiteral("TMPDIR"), home.path()},
                                     {QStringLiteral("HOME"), home.path()},
                                     {QStringLiteral("XDG_CONFIG_HOME"), home.path()},
                                     {QStringLiteral("XDG_RUNTIME_DIR"), home.path()}};
    const QStringList asStranger{tool, QStringLiteral("--reuid=") + kStranger,
                                 QStringLiteral("--regid=") + kStranger, QStringLiteral("--clear-groups")};
    const Client second = start(own, asStranger);
    QTRY_COMPARE_WITH_TIMEOUT(windowsNamed(kBoxTitle).size(), 1, kPatience);
    dismiss(windowsNamed(kBoxTitle).constFirst());
    QVERIFY(ended(*second));
    QCOMPARE(second->exitCode(), 1);
    QVERIFY(!QFile::exists(storage() + QStringLiteral("/log.log")));
}

// The desktop's log may end before the client does, stand still, or hang up.
void TestProgramFaults::outlivesItsTerminal_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("hangsUp");
    QTest::newRow("output closed") << QStringLiteral("exec \"$0\" > >(exec true) 2>&1") << false;
    QTest::newRow("output never read") << QStringLiteral(
        "exec > >(exec tail -f /dev/null --pid=$$) 2>&1; head -c 64000 /dev/zero; exec \"$0\"")
                                       << false;
    QTest::newRow("only errors never read") << QStringLiteral(
        "exec 2> >(exec tail -f /dev/null --pid=$$); head -c 64000 /dev/zero >&2; exec \"$0\"")
                                            << false;
    QTest::newRow("hangs up") << QStringLiteral("exec nohup \"$0\"") << true;
}

void TestProgramFaults::outlivesItsTerminal()
{
    QFETCH(QString, command);
    QFETCH(bool, hangsUp);
    rememberUser(true);
    const Client client = start(kFast, {QStringLiteral("bash"), QStringLiteral("-c"), command});
    QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().size() >= 2, kPatience);
    if (hangsUp)
        ::kill(static_cast<pid_t>(client->processId()), SIGHUP);
    const int before = m_server->reports().size();
    QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().size() >= before + 2, kPatience);
    client->terminate();
    QVERIFY(ended(*client));
    QCOMPARE(client->exitStatus(), QProcess::NormalExit);
    QCOMPARE(client->exitCode(), 0);
}

// Without a watcher, or with a mad one, the minutes are reported all the same.
void TestProgramFaults::watcher_data()
{
    QTest::addColumn<QByteArray>("says"); // again and again
    QTest::addColumn<bool>("ends");
    QTest::addColumn<int>("active");
    QTest::newRow("silent") << QByteArray() << false << 0;
    QTest::newRow("garbage") << QByteArray("\0\xff%n{\"", 6) << false << 10;
    QTest::newRow("flood") << QByteArray(4 * 1024 * 1024, 'x') << false << 10;
    QTest::newRow("ends") << QByteArray("x") << true << 0;
}

void TestProgramFaults::watcher()
{
    QFETCH(QByteArray, says);
    QFETCH(bool, ends);
    QFETCH(int, active);
    rememberUser(true);
    const Client client = start(kFast);
    QTRY_VERIFY_WITH_TIMEOUT(m_watcher->hasPendingConnections(), kPatience);
    QTcpSocket *peer = m_watcher->nextPendingConnection();
    QTimer speech;
    connect(&speech, &QTimer::timeout, peer, [peer, says] {
        if (peer->bytesToWrite() == 0)
            peer->write(says);
    });
    speech.start(20);
    QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().size() >= 2, kPatience);
    if (ends) {
        speech.stop();
        peer->abort();
        QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().constLast().active == 0, kPatience);
    }
    const int before = m_server->reports().size();
    QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().size() >= before + 2, kPatience);
    const int reported = m_server->reports().constLast().active;
    QVERIFY2(active == 0 ? reported == 0 : reported > active / 2, qPrintable(QString::number(reported)));
    QVERIFY2(!m_watcher->hasPendingConnections(), "it is asked once");
    client->terminate();
    QVERIFY(ended(*client));
    QCOMPARE(client->exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestProgramFaults)

#include "tst_programfaults.moc"
