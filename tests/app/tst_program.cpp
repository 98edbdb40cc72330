#include "clientroom.h"
#include "files.h"
#include "realinput.h"
#include "rows.h"

#include <QTcpSocket>

#include <csignal>
#include <memory>

namespace {

constexpr int kPatience = 40000; // ms
const QString kLoginTitle = s("Авторизация");
const QString kMainTitle = s("^Orvana$");

} // namespace

// The real executable on a desktop of its own, worked with keys as by a person.
class TestProgram final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_room = std::make_unique<ClientRoom>(); }
    void cleanup() { m_room.reset(); }

    void logsInByKeyboard()
    {
        auto run = start();
        activate(kLoginTitle);
        press(s("Escape"));
        QVERIFY(endedWith(*run, 0));
        run = start();
        activate(kLoginTitle);
        type(s("anna@orvana.example"));
        press(s("Tab"));
        type(s("orvana"));
        press(s("Return"));
        QTRY_VERIFY_WITH_TIMEOUT(!m_room->server.requestsTo(s("/api_teams_tasks")).isEmpty(), kPatience);
        QTRY_VERIFY_WITH_TIMEOUT(windowsNamed(kLoginTitle).isEmpty(), kPatience);
        QVERIFY(opensAndEnds(*run));
        QCOMPARE(QSettings(m_room->stored(s("config.ini")), QSettings::IniFormat).value(s("lastLogin")),
                 QVariant(s("anna@orvana.example")));
    }

    void cleanForgetsEverything()
    {
        m_room->leaveUser(false);
        // Only as the first argument, and only in small letters.
        for (const QStringList &arguments : {texts({"x", "--clean"}), texts({"--Clean"})}) {
            const auto run = start(arguments);
            QVERIFY(opensAndEnds(*run));
        }
        QVERIFY(QFileInfo::exists(m_room->path(s(".orvana"))));
        QVERIFY(endedWith(*start(texts({"--clean", "x"})), 0));
        QVERIFY(!QFileInfo::exists(m_room->path(s(".orvana"))));
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
        const auto run = start();
        activate(s("^Ошибка$"));
        for (const QString &key : keys)
            press(key);
        if (keys.isEmpty())
            kill(static_cast<pid_t>(run->process.processId()), number);
        QVERIFY(keys.size() == 1 ? opensAndEnds(*run) : endedWith(*run, 0));
    }

    void resumesTracking_data()
    {
        addColumns<int>("number");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
    }

    void resumesTracking()
    {
        QFETCH(int, number);
        m_room->leaveUser(true);
        const auto run = start({}, s("+0 x20"));
        QTRY_VERIFY_WITH_TIMEOUT(m_room->watcher.hasPendingConnections(), kPatience);
        QTcpSocket *client = m_room->watcher.nextPendingConnection();
        QTimer input;
        connect(&input, &QTimer::timeout, client, [client] { client->write("a"); });
        input.start(50);
        QTRY_VERIFY_WITH_TIMEOUT(m_room->server.reports().size() >= 3, kPatience);
        const localservice::ActivityReport report = m_room->server.reports().constLast();
        QCOMPARE(texts({"1702", "17"}), (QStringList{report.taskId, report.teamId}));
        QCOMPARE(report.active, 10);
        kill(static_cast<pid_t>(run->process.processId()), number);
        QVERIFY(endedWith(*run, 0));
        QVERIFY(contentsOf(m_room->stored(s("log.log"))).contains("Exit Orvana Team Monitor OK"));
        const QSettings session(m_room->ofUser(s("session.ini")), QSettings::IniFormat);
        QVERIFY2(session.value(s("active")).toBool(), "the next start resumes");
        QCOMPARE(session.value(s("taskID")).toString(), s("1702"));
        QVERIFY(QFile::exists(m_room->ofUser(s("tasks.ini"))));
    }

    void logFile()
    {
        constexpr qint64 limit = 104857600;
        m_room->leaveUser(false);
        for (const qint64 size : {limit, limit + 1}) {
            QFile log(m_room->stored(s("log.log")));
            QVERIFY(log.open(QIODevice::WriteOnly | QIODevice::Truncate) && log.resize(size));
            log.close();
            const auto run = start();
            QVERIFY(opensAndEnds(*run));
            const bool isKept = size == limit;
            QCOMPARE(log.size() > size, isKept);
            QVERIFY(log.open(QIODevice::ReadOnly) && log.seek(isKept ? size : 0));
            const QString first = QString::fromUtf8(log.readLine());
            const QRegularExpression expected(
                s("^Message\\(0\\) at \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ: \"Orvana Team Monitor "
                  "\\d+\\.\\d+\\.\\d+ started\\. "
                  "Build date: [A-Z][a-z]{2} [ \\d]\\d \\d{4}, \\d\\d:\\d\\d:\\d\\d\"\n$"));
            QVERIFY2(expected.match(first).hasMatch(), qPrintable(first));
            QVERIFY2(run->output.contains("\"\n\r"), "standard output ends its lines the other way round");
            QCOMPARE(log.permissions() & 0x077, QFile::Permissions());
        }
    }

    void misconfigured_data()
    {
        addColumns<QByteArray, QString>("config", "said");
        QTest::newRow("missing") << QByteArray() << s("orvanx.conf can't be read: ");
        QTest::newRow("below a section") << QByteArray("[Service]\nverify-certificates=true\n")
                                         << s("Service/verify-certificates=true is no key of this program");
        QTest::newRow("no boolean")
            << QByteArray("verify-certificates=yes\n")
            << s("verify-certificates=yes is neither true nor false and counts as true");
        QTest::newRow("list") << QByteArray("verify-certificates=true, \n")
                              << s("is neither true nor false and counts as true");
        QTest::newRow("no port") << QByteArray("watcher-port=70000\n") << s("watcher-port=70000 is no port");
        QTest::newRow("no settings") << QByteArray("verify-certificates: true\n")
                                     << s("verify-certificates: true is no setting");
        QTest::newRow("valid") << QByteArray(
            "; a\n#b=c\n\n[General]\nverify-certificates=True\nservice-url=x\n")
                               << QString();
    }

    void misconfigured()
    {
        QFETCH(QByteArray, config);
        QFETCH(QString, said);
        const QString path = m_room->path(s("orvanx.conf"));
        QVERIFY(config.isEmpty() ? QFile::remove(path) : writeFile(path, config));
        const auto run = start(texts({"--clean"}));
        QVERIFY(endedWith(*run, 0));
        const QString output = QString::fromUtf8(run->output);
        QCOMPARE(output.contains(s("Message(1)")), !said.isEmpty());
        QVERIFY2(output.contains(said), qPrintable(output));
    }

    void foreignStorageIsRefused()
    {
        const QTemporaryDir elsewhere;
        const QByteArray damaged = "[General]\nlastLogin=@Variant(\n";
        const QString config = elsewhere.filePath(s("config.ini"));
        const QString storage = m_room->path(s(".orvana"));
        QVERIFY(writeFile(config, damaged));
        for (const bool isLink : {true, false}) {
            QVERIFY(isLink ? QFile::link(elsewhere.path(), storage) : writeFile(storage, QByteArray()));
            const auto run = start();
            activate(s("^Orvana Team Monitor$"));
            press(s("Return"));
            QVERIFY(endedWith(*run, 1));
            QVERIFY(QFile::remove(storage));
        }
        QCOMPARE(contentsOf(config), damaged);
        QCOMPARE(QDir(elsewhere.path()).entryList(QDir::Files | QDir::Hidden), texts({"config.ini"}));
    }

private:
    struct Run
    {
        QProcess process;
        QByteArray output;
        ~Run()
        {
            if (QTest::currentTestFailed())
                qWarning("%s", output.constData());
        }
    };

    std::unique_ptr<Run> start(const QStringList &arguments = {}, const QString &time = QString())
    {
        auto run = std::make_unique<Run>();
        run->process.setProcessChannelMode(QProcess::MergedChannels);
        run->process.setWorkingDirectory(m_room->path());
        Run *raw = run.get();
        connect(&run->process, &QProcess::readyRead, this, [raw] { raw->output += raw->process.readAll(); });
        run->process.setProcessEnvironment(m_room->environment(time));
        run->process.start(s(ORVANA_EXECUTABLE), arguments);
        return run;
    }

    static bool endedWith(Run &run, int code)
    {
        const bool ended =
            run.process.state() == QProcess::NotRunning || run.process.waitForFinished(kPatience);
        run.output += run.process.readAll();
        return ended && run.process.exitStatus() == QProcess::NormalExit && run.process.exitCode() == code;
    }

    static bool waitForWindow(const QString &title)
    {
        return QTest::qWaitFor([&] { return !windowsNamed(title).isEmpty(); }, kPatience);
    }
    static bool opensAndEnds(Run &run)
    {
        const bool opens = waitForWindow(kMainTitle);
        run.process.terminate();
        return opens && endedWith(run, 0);
    }

    static void activate(const QString &title)
    {
        QVERIFY(waitForWindow(title));
        QVERIFY(activateWindow(windowsNamed(title).constFirst()));
    }
    static void type(const QString &text) { QVERIFY(xdotool(s("type"), {s("--delay"), s("15"), text})); }
    static void press(const QString &keys) { QVERIFY(pressKeys(keys)); }

    std::unique_ptr<ClientRoom> m_room;
};

QTEST_GUILESS_MAIN(TestProgram)
#include "tst_program.moc"
