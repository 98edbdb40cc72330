#include "clientroom.h"
#include "files.h"
#include "urlcatcher.h"
#include "windowbench.h"

#include "base/programstart.h"
#include "update/orvanaupdate.h"

#include <sys/stat.h>

// The hand-over to the updater, with stand-ins for the programs it goes through.
class TestHandover final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        // Qt takes a blank in a browser's path for the end of it.
        m_box = std::make_unique<QTemporaryDir>(QDir::tempPath() + s("/box.XXXXXX"));
        qputenv("PATH", QFile::encodeName(m_box->path()) + ":/usr/bin:/bin");
        m_bench = std::make_unique<WindowBench>();
        QVERIFY(m_bench->openFor(QString()));
        OrvanaUpdate::instance()->init(m_bench->orvana());
    }

    void cleanup() { m_bench.reset(); }

    void updateButton()
    {
        const UrlCatcher desktop;
        standIn(s("gksudo"));
        const auto press = [this](const QStringList &versions) {
            m_bench->server().edit([&](localservice::World &world) { world.setVersions(versions); });
            QSignalSpy available(m_bench->orvana(), &Orvana::updateAvailable);
            m_bench->orvana()->requestCheckUpdate();
            QVERIFY(available.wait(TestClient::waitLimit));
            NotificationForm popup(QString(), UpdateAvailable, QString(), m_bench->form.get());
            popup.onPbUpdateClicked();
            QCOMPARE(popup.isClosing(), !versions.isEmpty());
        };
        press({});
        QVERIFY(desktop.opened.isEmpty());
        press({s("1.2.0")});
        QCOMPARE(desktop.opened, QStringList{m_bench->server().baseUrl() + s("/monitor/")});
        QVERIFY(callsOf(s("gksudo")).isEmpty());
        press({s("1.2.0"), s("1.3.0")});
        QTRY_COMPARE(callsOf(s("gksudo")), s("-k ORTM-update"));
        QCOMPARE(desktop.opened.size(), 1);
    }

    void forcedUpdate()
    {
        const QString state = m_bench->orvana()->storageDirectory().filePath(s("update.json"));
        const auto force = [&](const char *pidof, bool isForced = true) {
            standIn(s("pidof"), s(pidof));
            QSettings(state, QSettings::IniFormat).setValue(s("forceUpdate"), isForced);
        };
        const auto isDropped = [&] {
            m_bench->form->checkNeedCloseToUpdate();
            return !QSettings(state, QSettings::IniFormat).value(s("forceUpdate")).toBool();
        };
        force("echo 17", false);
        QVERIFY(isDropped() && callsOf(s("pidof")).isEmpty());
        // The updater is gone: it asked in vain.
        force("");
        QVERIFY(isDropped() && callsOf(s("pidof")).startsWith(s("ORTM-update")));
        // Nobody knows, and the window must not stand still for long.
        force("exec sleep 60");
        QElapsedTimer time;
        time.start();
        QVERIFY(isDropped());
        QVERIFY2(time.elapsed() < 15000, qPrintable(QString::number(time.elapsed())));
        // It runs; the window's own one-second timer has to notice.
        force("echo 17");
        QTimer::singleShot(TestClient::waitLimit, qApp, [] { QCoreApplication::exit(1); });
        QCOMPARE(QCoreApplication::exec(), 0);
    }

    void pendingAtStart()
    {
        const ClientRoom room;
        room.leaveUser(false);
        QSettings(room.stored(s("update.json")), QSettings::IniFormat).setValue(s("updateAtStartup"), true);
        standIn(s("ORTM-update"));
        QProcess client;
        client.setProcessEnvironment(room.environment());
        client.start(s(ORVANA_EXECUTABLE), QStringList());
        QVERIFY(client.waitForFinished(TestClient::waitLimit));
        QCOMPARE(client.exitCode(), 0);
        QTRY_COMPARE(callsOf(s("ORTM-update")), s("--install-only"));
        QVERIFY(!QFile::exists(room.stored(s("log.log"))));
        // Without an updater the client starts.
        QVERIFY(QFile::remove(m_box->filePath(s("ORTM-update"))));
        client.start(s(ORVANA_EXECUTABLE), QStringList());
        QTRY_VERIFY(QFile::exists(room.stored(s("log.log"))));
        client.kill();
        QVERIFY(client.waitForFinished(TestClient::waitLimit));
    }

    // Other programs get what the client got from its user, and none of its streams.
    void startsWhatTheUserWould()
    {
        const QString got = m_box->filePath(s("got"));
        for (const char *name : {"user", "gksudo", "xdg-open"})
            standIn(
                s(name),
                s("{ umask; env | grep -v ^_= | sort; grep Sig[BI] /proc/self/status; cd /proc/$$; ls fd; "
                  "readlink fd/[012]; } >'%1'")
                    .arg(got));
        const auto report = [&got] {
            return QString::fromLocal8Bit(contentsOf(got)).split(QLatin1Char('\n'));
        };
        qunsetenv("QT_XCB_GL_INTEGRATION"); // of the sandbox
        QCOMPARE(QProcess::execute(s("sh"), {s("-c"), s("exec user <>/dev/null >&0 2>&0")}), 0);
        const QStringList expected = report();
        setOwnSurroundings();
        m_bench->orvana()->openUrl(s("https://site.example/"));
        QTRY_COMPARE(callsOf(s("xdg-open")), s("https://site.example/"));
        // Qt lets every program that it opens ignore broken pipes.
        const QRegularExpression others(s("^(?!SigIgn)"));
        QCOMPARE(report().filter(others), expected.filter(others));
        QVERIFY(startProgram(s("gksudo"), {s("-k")}));
        QTRY_COMPARE(callsOf(s("gksudo")), s("-k"));
        QCOMPARE(report(), expected);
        QVERIFY(qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION"));
        QCOMPARE(umask(S_IRWXG | S_IRWXO), S_IRWXG | S_IRWXO);
    }

private:
    // A program that does what the script says, then notes its arguments.
    void standIn(const QString &name, const QString &script = {})
    {
        const QString path = m_box->filePath(name);
        const QString text = s("#!/bin/sh\n%2\necho \"$@\" >> '%1.called'\n").arg(path, script);
        QVERIFY(writeFile(path, text.toUtf8()));
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QString callsOf(const QString &name) const
    {
        return QString::fromUtf8(contentsOf(m_box->filePath(name + s(".called")))).trimmed();
    }

    std::unique_ptr<QTemporaryDir> m_box;
    std::unique_ptr<WindowBench> m_bench;
};

QTEST_MAIN(TestHandover)
#include "tst_handover.moc"
