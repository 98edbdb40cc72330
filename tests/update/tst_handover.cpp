#include "rows.h"
#include "windowbench.h"

#include "update/orvanaupdate.h"

#include <QDesktopServices>
#include <QProcess>
#include <QSettings>

// The hand-over to the updater, with stand-ins for the programs it goes through.
class TestHandover final : public QObject
{
    Q_OBJECT

public slots:
    void takeUrl(const QUrl &url) { m_opened.append(url.toString()); }

private slots:
    void init()
    {
        m_box = std::make_unique<QTemporaryDir>();
        m_path = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(m_box->path()) + ":/usr/bin:/bin");
        m_opened.clear();
        for (const char *scheme : {"http", "https"})
            QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), this, "takeUrl");
    }

    void cleanup()
    {
        qputenv("PATH", m_path);
        m_box.reset();
    }

    void updateButton_data()
    {
        addColumns<QStringList, bool, bool, QString>("versions", "closes", "opensPage", "started");
        QTest::newRow("no entry") << QStringList() << false << false << "";
        QTest::newRow("one entry") << QStringList{s("1.2.0")} << true << true << "";
        QTest::newRow("two entries") << QStringList{s("1.2.0"), s("1.3.0")} << true << false
                                     << "-k ORTM-update";
        QTest::newRow("three entries")
            << QStringList{s("2"), s("3"), s("4")} << true << false << "-k ORTM-update";
    }

    void updateButton()
    {
        QFETCH(QStringList, versions);
        QFETCH(bool, closes);
        QFETCH(bool, opensPage);
        QFETCH(QString, started);
        standIn(s("gksudo"));
        standIn(s("ORTM-update"));
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.openWindow();
        OrvanaUpdate::instance()->init(bench.orvana());
        bench.server().edit([&](localservice::World &world) { world.setVersions(versions); });
        QSignalSpy available(bench.orvana(), &Orvana::updateAvailable);
        bench.orvana()->requestCheckUpdate();
        QVERIFY(available.wait(TestClient::waitLimit));
        QCOMPARE(available.constLast().constFirst().toBool(), !versions.isEmpty());

        NotificationForm popup(QString(), UpdateAvailable, QString(), bench.form.get());
        popup.onPbUpdateClicked();
        QCOMPARE(popup.isClosing(), closes);
        QTRY_COMPARE(callsOf(s("gksudo")), started);
        QCOMPARE(m_opened,
                 opensPage ? QStringList{bench.server().baseUrl() + s("/monitor/")} : QStringList());
        QVERIFY(callsOf(s("ORTM-update")).isEmpty());
    }

    void forcedUpdate_data()
    {
        addColumns<bool, QString, bool, bool>("forced", "output", "asks", "quits");
        QTest::newRow("nothing asked for") << false << "echo 17" << false << false;
        QTest::newRow("updater gone") << true << "" << true << false;
        QTest::newRow("updater runs") << true << "echo 17" << true << true;
    }

    void forcedUpdate()
    {
        QFETCH(bool, forced);
        QFETCH(QString, output);
        QFETCH(bool, asks);
        QFETCH(bool, quits);
        standIn(s("pidof"), output);
        WindowBench bench;
        QVERIFY(bench.signIn());
        bench.openWindow();
        OrvanaUpdate::instance()->init(bench.orvana());
        const QString state = bench.orvana()->storageDirectory().filePath(s("update.json"));
        QSignalSpy quitting(qApp, &QCoreApplication::aboutToQuit);
        {
            QSettings updater(state, QSettings::IniFormat);
            updater.setValue(s("forceUpdate"), forced);
        }
        if (quits) {
            // The window's own one-second timer has to notice.
            QTimer::singleShot(TestClient::waitLimit, qApp, [] { QCoreApplication::exit(1); });
            QCOMPARE(QCoreApplication::exec(), 0);
            QCOMPARE(quitting.count(), 1);
        } else {
            bench.form->checkNeedCloseToUpdate();
            QVERIFY(!OrvanaUpdate::instance()->isForceUpdate());
            QVERIFY(!QSettings(state, QSettings::IniFormat).value(s("forceUpdate")).toBool());
        }
        QCOMPARE(callsOf(s("pidof")).startsWith(s("ORTM-update")), asks);
    }

    void pendingAtStart_data()
    {
        addColumns<QString, bool>("script", "leaves"); // null: there is no updater
        QTest::newRow("present") << "" << true;
        QTest::newRow("slow") << "sleep 1" << true;
        QTest::newRow("absent") << QString() << false;
    }

    void pendingAtStart()
    {
        QFETCH(QString, script);
        QFETCH(bool, leaves);
        if (!script.isNull())
            standIn(s("ORTM-update"), script);
        const QString storage = file(s(".orvana"));
        QVERIFY(QDir().mkpath(storage));
        QSettings(storage + s("/update.json"), QSettings::IniFormat).setValue(s("updateAtStartup"), true);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(s("ORVANA_STORAGE_ROOT"), m_box->path());
        environment.insert(s("TMPDIR"), m_box->path());
        QProcess client;
        client.setProcessEnvironment(environment);
        client.start(s(ORVANA_EXECUTABLE), QStringList());
        if (leaves) {
            QVERIFY(client.waitForFinished(TestClient::waitLimit));
            QCOMPARE(client.exitCode(), 0);
            QTRY_COMPARE(callsOf(s("ORTM-update")), s("--install-only"));
            QVERIFY(!QFile::exists(storage + s("/log.log")));
        } else {
            QTRY_VERIFY(QFile::exists(storage + s("/log.log")));
            client.kill();
            QVERIFY(client.waitForFinished(TestClient::waitLimit));
        }
    }

private:
    QString file(const QString &name) const { return m_box->filePath(name); }

    // A program that notes its arguments, then does what the script says.
    void standIn(const QString &name, const QString &script = {})
    {
        QFile program(file(name));
        QVERIFY(program.open(QIODevice::WriteOnly));
        program.write(s("#!/bin/sh\n%2\necho \"$@\" >> '%1.called'\n").arg(file(name), script).toUtf8());
        program.close();
        program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QString callsOf(const QString &name) const
    {
        QFile calls(file(name) + s(".called"));
        return calls.open(QIODevice::ReadOnly) ? QString::fromUtf8(calls.readAll()).trimmed() : QString();
    }

    std::unique_ptr<QTemporaryDir> m_box;
    QByteArray m_path;
    QStringList m_opened;
};

QTEST_MAIN(TestHandover)
#include "tst_handover.moc"
