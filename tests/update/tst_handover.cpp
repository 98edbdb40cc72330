#include "clientroom.h"
#include "files.h"
#include "texts.h"
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
        m_path = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(m_box->path()) + ":/usr/bin:/bin");
        m_catcher = std::make_unique<UrlCatcher>();
    }

    void cleanup()
    {
        qputenv("PATH", m_path);
        m_box.reset();
        m_catcher.reset();
    }

    void updateButton()
    {
        standIn(s("gksudo"));
        standIn(s("ORTM-update"));
        WindowBench bench;
        QVERIFY(bench.openFor(QString()));
        OrvanaUpdate::instance()->init(bench.orvana());
        const auto press = [&](const QStringList &versions) {
            bench.server().edit([&](localservice::World &world) { world.setVersions(versions); });
            QSignalSpy available(bench.orvana(), &Orvana::updateAvailable);
            bench.orvana()->requestCheckUpdate();
            QVERIFY(available.wait(TestClient::waitLimit));
            NotificationForm popup(QString(), UpdateAvailable, QString(), bench.form.get());
            popup.onPbUpdateClicked();
            QCOMPARE(popup.isClosing(), !versions.isEmpty());
        };
        press({});
        QVERIFY(m_catcher->opened.isEmpty());
        press({s("1.2.0")});
        QCOMPARE(m_catcher->opened, QStringList{bench.server().baseUrl() + s("/monitor/")});
        QVERIFY(callsOf(s("gksudo")).isEmpty());
        press({s("1.2.0"), s("1.3.0")});
        QTRY_COMPARE(callsOf(s("gksudo")), s("-k ORTM-update"));
        QCOMPARE(m_catcher->opened.size(), 1);
        QVERIFY(callsOf(s("ORTM-update")).isEmpty());
    }

    void forcedUpdate()
    {
        WindowBench bench;
        QVERIFY(bench.openFor(QString()));
        OrvanaUpdate::instance()->init(bench.orvana());
        const QString state = bench.orvana()->storageDirectory().filePath(s("update.json"));
        const auto force = [&state](bool forced) {
            QSettings(state, QSettings::IniFormat).setValue(s("forceUpdate"), forced);
        };
        standIn(s("pidof"), s("echo 17"));
        force(false);
        bench.form->checkNeedCloseToUpdate();
        QVERIFY(callsOf(s("pidof")).isEmpty());
        // The updater is gone: it asked in vain.
        standIn(s("pidof"));
        force(true);
        bench.form->checkNeedCloseToUpdate();
        QVERIFY(callsOf(s("pidof")).startsWith(s("ORTM-update")));
        QVERIFY(!QSettings(state, QSettings::IniFormat).value(s("forceUpdate")).toBool());
        // Nobody knows, and the window must not stand still for long.
        standIn(s("pidof"), s("exec sleep 60"));
        force(true);
        QElapsedTimer time;
        time.start();
        bench.form->checkNeedCloseToUpdate();
        QVERIFY2(time.elapsed() < 15000, qPrintable(QString::number(time.elapsed())));
        QVERIFY(!QSettings(state, QSettings::IniFormat).value(s("forceUpdate")).toBool());
        // It runs; the window's own one-second timer has to notice.
        standIn(s("pidof"), s("echo 17"));
        force(true);
        QTimer::singleShot(TestClient::waitLimit, qApp, [] { QCoreApplication::exit(1); });
        QCOMPARE(QCoreApplication::exec(), 0);
    }

    void pendingAtStart()
    {
        const ClientRoom room;
        room.leaveUser(false);
        QSettings(room.stored(s("update.json")), QSettings::IniFormat).setValue(s("updateAtStartup"), true);
        QProcess client;
        client.setProcessEnvironment(room.environment());
        // It prints when the client and its pipes are gone.
        const QString gone = file(s("gone"));
        standIn(s("ORTM-update"), s("until [ -e '%1' ]; do sleep 0.1; done; echo; echo >&2").arg(gone));
        client.start(s(ORVANA_EXECUTABLE), QStringList());
        QVERIFY(client.waitForFinished(TestClient::waitLimit));
        QCOMPARE(client.exitCode(), 0);
        QVERIFY(writeFile(gone, QByteArray()));
        QTRY_COMPARE(callsOf(s("ORTM-update")), s("--install-only"));
        QVERIFY(!QFile::exists(room.stored(s("log.log"))));
        // Without an updater the client starts.
        QVERIFY(QFile::remove(file(s("ORTM-update"))));
        client.start(s(ORVANA_EXECUTABLE), QStringList());
        QTRY_VERIFY(QFile::exists(room.stored(s("log.log"))));
        client.kill();
        QVERIFY(client.waitForFinished(TestClient::waitLimit));
    }

    // Other programs get what the client got from its user, and none of its streams.
    void startsWhatTheUserWould()
    {
        const QString got = file(s("got"));
        for (const char *name : {"user", "gksudo", "xdg-open"})
            standIn(
                s(name),
                s("{ umask; env | grep -v ^_= | sort; grep Sig[BI] /proc/self/status; cd /proc/$$; ls fd; "
                  "readlink fd/[012]; } >'%1'")
                    .arg(got));
        WindowBench bench;
        QVERIFY(bench.openFor(QString()));
        m_catcher.reset();
        qunsetenv("QT_XCB_GL_INTEGRATION"); // of the sandbox
        QProcess user;
        user.setStandardInputFile(QProcess::nullDevice());
        user.setStandardOutputFile(QProcess::nullDevice());
        user.setStandardErrorFile(QProcess::nullDevice());
        user.start(file(s("user")), QStringList());
        QVERIFY(user.waitForFinished());
        const auto report = [&got] {
            return QString::fromLocal8Bit(contentsOf(got)).split(QLatin1Char('\n'));
        };
        const QStringList expected = report();
        setOwnSurroundings();
        bench.orvana()->openUrl(s("https://site.example/"));
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
    QString file(const QString &name) const { return m_box->filePath(name); }

    // A program that notes its arguments, then does what the script says.
    void standIn(const QString &name, const QString &script = {})
    {
        const QString text = s("#!/bin/sh\n%2\necho \"$@\" >> '%1.called'\n").arg(file(name), script);
        QVERIFY(writeFile(file(name), text.toUtf8()));
        QFile::setPermissions(file(name), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QString callsOf(const QString &name) const
    {
        return QString::fromUtf8(contentsOf(file(name) + s(".called"))).trimmed();
    }

    std::unique_ptr<QTemporaryDir> m_box;
    QByteArray m_path;
    std::unique_ptr<UrlCatcher> m_catcher;
};

QTEST_MAIN(TestHandover)
#include "tst_handover.moc"
