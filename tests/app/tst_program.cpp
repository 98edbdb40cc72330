#include "knownuser.h"
#include "localservice/server.h"
#include "rows.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include <csignal>
#include <memory>

using localservice::Fault;

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
    void init()
    {
        m_box = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<localservice::Server>();
        QVERIFY(m_server->start());
        m_watcher = std::make_unique<QTcpServer>();
        QVERIFY(m_watcher->listen(QHostAddress::LocalHost));
        QSettings config(m_box->filePath(s("orvanx.conf")), QSettings::IniFormat);
        config.setValue(s("watcher-port"), m_watcher->serverPort());
    }

    void cleanup()
    {
        m_server.reset();
        m_watcher.reset();
        m_box.reset();
    }

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
        type(s("wrong"));
        press(s("Return"));
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestsTo(s("/api_teams")).size(), 1, kPatience);
        press(s("ctrl+a"));
        type(s("orvana"));
        // The button is off until the refusal has arrived.
        QVERIFY(QTest::qWaitFor(
            [&] {
                press(s("Return"));
                return !windowNamed(kMainTitle).isEmpty();
            },
            kPatience));
        QTRY_VERIFY_WITH_TIMEOUT(windowNamed(kLoginTitle).isEmpty(), kPatience);
        QTRY_VERIFY_WITH_TIMEOUT(!m_server->requestsTo(s("/api_teams_tasks")).isEmpty(), kPatience);
        run->process.terminate();
        QVERIFY(endedWith(*run, 0));
        QCOMPARE(QSettings(file(s("config.ini")), QSettings::IniFormat).value(s("lastLogin")),
                 QVariant(s("anna@orvana.example")));
    }

    void secondInstanceIsRefused()
    {
        leaveKnownUser(m_box->path(), false);
        const auto first = start();
        QVERIFY(waitForWindow(kMainTitle));
        const auto second = start();
        QVERIFY(waitForWindow(s("^Orvana Team Monitor$")));
        press(s("Return"));
        QVERIFY(endedWith(*second, 1));
        QCOMPARE(first->process.state(), QProcess::Running);
        first->process.terminate();
        QVERIFY(ended(*first));
    }

    void cleanForgetsEverything()
    {
        leaveKnownUser(m_box->path(), false);
        // Only as the first argument, and only in small letters.
        for (const QStringList &arguments : {texts({"x", "--clean"}), texts({"--Clean"})}) {
            const auto run = start(arguments);
            QVERIFY(waitForWindow(kMainTitle));
            run->process.terminate();
            QVERIFY(endedWith(*run, 0));
        }
        QVERIFY(QFileInfo::exists(storage()));
        QVERIFY(endedWith(*start(texts({"--clean", "x"})), 0));
        QVERIFY(!QFileInfo::exists(storage()));
    }

    void watcherMissing()
    {
        m_watcher->close();
        leaveKnownUser(m_box->path(), false);
        for (const bool goesOn : {true, false}) {
            const auto run = start();
            activate(s("^Ошибка$"));
            if (!goesOn)
                press(s("Tab"));
            press(s("Return"));
            if (goesOn) {
                QVERIFY(waitForWindow(kMainTitle));
                run->process.terminate();
            }
            QVERIFY(endedWith(*run, 0));
        }
    }

    void terminatedLikeTheExitAction()
    {
        leaveKnownUser(m_box->path(), true);
        for (const int number : {SIGTERM, SIGINT}) {
            const auto run = start();
            QVERIFY(waitForWindow(kMainTitle));
            kill(static_cast<pid_t>(run->process.processId()), number);
            QVERIFY(endedWith(*run, 0));
            QFile log(file(s("log.log")));
            QVERIFY(log.open(QIODevice::ReadOnly));
            QVERIFY(log.readAll().contains("Exit Orvana Team Monitor OK"));
            const QSettings session(userFile(s("session.ini")), QSettings::IniFormat);
            QVERIFY2(session.value(s("active")).toBool(), "the next start goes on tracking");
            QCOMPARE(session.value(s("taskID")).toString(), s("1702"));
        }
    }

    void restartResumesTracking()
    {
        leaveKnownUser(m_box->path(), true);
        const auto run = start({}, s("x20"));
        QVERIFY(waitForWindow(kMainTitle));
        QTRY_VERIFY_WITH_TIMEOUT(m_watcher->hasPendingConnections(), kPatience);
        QTcpSocket *client = m_watcher->nextPendingConnection();
        QTimer input;
        connect(&input, &QTimer::timeout, client, [client] { client->write("a"); });
        input.start(50);
        QTRY_VERIFY_WITH_TIMEOUT(m_server->reports().size() >= 3, kPatience);
        const localservice::ActivityReport report = m_server->reports().constLast();
        QCOMPARE(report.taskId, s("1702"));
        QCOMPARE(report.teamId, s("17"));
        QCOMPARE(report.active, 10);
        QVERIFY(QFile::exists(userFile(s("tasks.ini"))));
        run->process.kill();
        QVERIFY(ended(*run));
    }

    void logFile()
    {
        constexpr qint64 limit = 104857600;
        leaveKnownUser(m_box->path(), false);
        for (const qint64 size : {limit, limit + 1}) {
            QFile log(file(s("log.log")));
            QVERIFY(log.open(QIODevice::WriteOnly | QIODevice::Truncate) && log.resize(size));
            log.close();
            const auto run = start();
            QVERIFY(waitForWindow(kMainTitle));
            run->process.terminate();
            QVERIFY(endedWith(*run, 0));
            run->output += run->process.readAll();
            const bool isKept = size == limit;
            QCOMPARE(log.size() > size, isKept);
            QVERIFY(log.open(QIODevice::ReadOnly) && log.seek(isKept ? size : 0));
            const QString first = QString::fromUtf8(log.readLine());
            const QRegularExpression expected(
                s("^Message\\(0\\) at \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ: \"Orvana Team Monitor "
                  "1\\.1\\.0 started\\. "
                  "Build date: [A-Z][a-z]{2} [ \\d]\\d \\d{4}, \\d\\d:\\d\\d:\\d\\d\"\n$"));
            QVERIFY2(expected.match(first).hasMatch(), qPrintable(first));
            QVERIFY2(run->output.contains("\"\n\r"), "standard output ends its lines the other way round");
            QCOMPARE(log.permissions() & 0x077, QFile::Permissions());
        }
    }

    void foreignStorageIsRefused()
    {
        QTemporaryDir elsewhere;
        for (const bool isLink : {true, false}) {
            QVERIFY(isLink ? QFile::link(elsewhere.path(), storage())
                           : QFile(storage()).open(QIODevice::WriteOnly));
            const auto run = start();
            activate(s("^Orvana Team Monitor$"));
            press(s("Return"));
            QVERIFY(endedWith(*run, 1));
            QVERIFY(QDir(elsewhere.path()).isEmpty());
            QVERIFY(QFile::remove(storage()));
        }
    }

private:
    struct Run
    {
        QProcess process;
        QByteArray output;
        ~Run()
        {
            if (QTest::currentTestFailed())
                qWarning("%s", QByteArray(output + process.readAll()).constData());
        }
    };

    QString storage() const { return m_box->filePath(s(".orvana")); }
    QString file(const QString &name) const { return storage() + QLatin1Char('/') + name; }
    QString userFile(const QString &name) const { return file(s("anna@orvana.example/") + name); }

    std::unique_ptr<Run> start(const QStringList &arguments = {}, const QString &speed = QString())
    {
        auto run = std::make_unique<Run>();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(s("ORVANA_SERVICE_URL"), m_server->baseUrl());
        environment.insert(s("ORVANA_STORAGE_ROOT"), m_box->path());
        environment.insert(s("ORVANA_CONFIG"), m_box->filePath(s("orvanx.conf")));
        environment.insert(s("TMPDIR"), m_box->path());
        run->process.setProcessChannelMode(QProcess::MergedChannels);
        run->process.setWorkingDirectory(m_box->path());
        Run *raw = run.get();
        connect(&run->process, &QProcess::readyRead, this, [raw] { raw->output += raw->process.readAll(); });
        if (!speed.isEmpty()) {
            // Not through the wrapper program: it would stand between us and the process.
            environment.insert(s("LD_PRELOAD"), s("/usr/$LIB/faketime/libfaketime.so.1"));
            environment.insert(s("FAKETIME"), s("+0 ") + speed);
            // A sanitizer's library wants to be the first that is loaded.
            environment.insert(s("ASAN_OPTIONS"), s("verify_asan_link_order=0"));
        }
        run->process.setProcessEnvironment(environment);
        run->process.start(s(ORVANA_EXECUTABLE), arguments);
        return run;
    }

    static bool ended(Run &run)
    {
        return run.process.state() == QProcess::NotRunning || run.process.waitForFinished(kPatience);
    }
    static bool endedWith(Run &run, int code)
    {
        return ended(run) && run.process.exitStatus() == QProcess::NormalExit
            && run.process.exitCode() == code;
    }

    static QByteArray xdotool(const QStringList &arguments)
    {
        QProcess tool;
        tool.start(s("xdotool"), arguments);
        if (!tool.waitForFinished(kPatience))
            tool.kill();
        return tool.readAllStandardOutput().trimmed();
    }

    static QString windowNamed(const QString &title)
    {
        return QString::fromLatin1(
            xdotool({s("search"), s("--onlyvisible"), s("--name"), title}).split('\n').constFirst());
    }

    static bool waitForWindow(const QString &title)
    {
        return QTest::qWaitFor([&] { return !windowNamed(title).isEmpty(); }, kPatience);
    }

    static void activate(const QString &title)
    {
        QVERIFY(waitForWindow(title));
        xdotool({s("windowactivate"), s("--sync"), windowNamed(title)});
    }
    static void type(const QString &text) { xdotool({s("type"), s("--delay"), s("15"), text}); }
    static void press(const QString &keys) { xdotool({s("key"), keys}); }

    std::unique_ptr<QTemporaryDir> m_box;
    std::unique_ptr<localservice::Server> m_server;
    std::unique_ptr<QTcpServer> m_watcher;
};

QTEST_GUILESS_MAIN(TestProgram)
#include "tst_program.moc"
