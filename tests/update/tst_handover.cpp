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
    void init();
    void cleanup();
    void updateButton_data();
    void updateButton();
    void forcedUpdate_data();
    void forcedUpdate();
    void pendingAtStart_data();
    void pendingAtStart();

private:
    QString file(const QString &name) const { return m_box->filePath(name); }

    // A program that notes its arguments, then does what the script says.
    void standIn(const QString &name, const QString &script = {})
    {
        QFile program(file(name));
        QVERIFY(program.open(QIODevice::WriteOnly));
        program.write(QStringLiteral("#!/bin/sh\n%2\necho \"$@\" >> '%1.called'\n").arg(file(name), script).toUtf8());
        program.close();
        program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QString callsOf(const QString &name) const
    {
        QFile calls(file(name) + QStringLiteral(".called"));
        return calls.open(QIODevice::ReadOnly) ? QString::fromUtf8(calls.readAll()).trimmed() : QString();
    }

    std::unique_ptr<QTemporaryDir> m_box;
    QByteArray m_path;
    QStringList m_opened;
};

void TestHandover::init()
{
    m_box = std::make_unique<QTemporaryDir>();
    m_path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(m_box->path()) + ":/usr/bin:/bin");
    m_opened.clear();
    for (const char *scheme : {"http", "https"})
        QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), this, "takeUrl");
}

void TestHandover::cleanup()
{
    qputenv("PATH", m_path);
    m_box.reset();
}

void TestHandover::updateButton_data()
{
    QTest::addColumn<QStringList>("versions");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<bool>("opensPage");
    QTest::addColumn<QString>("started");
    QTest::newRow("no entry") << QStringList() << false << false << "";
    QTest::newRow("one entry") << QStringList {QStringLiteral("1.2.0")} << true << true << "";
    QTest::newRow("two entries") << QStringList {QStringLiteral("1.2.0"), QStringLiteral("1.3.0")} << true << false
                                 << "-k ORTM-update";
    QTest::newRow("three entries") << QStringList {QStringLiteral("2"), QStringLiteral("3"), QStringLiteral("4")}
                                   << true << false << "-k ORTM-update";
}

void TestHandover::updateButton()
{
    QFETCH(QStringList, versions);
    QFETCH(bool, closes);
    QFETCH(bool, opensPage);
    QFETCH(QString, started);
    standIn(QStringLiteral("gksudo"));
    standIn(QStringLiteral("ORTM-update"));
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
    QTRY_COMPARE(callsOf(QStringLiteral("gksudo")), started);
    QCOMPARE(m_opened, opensPage ? QStringList {bench.server().baseUrl() + QStringLiteral("/monitor/")} : QStringList());
    QVERIFY(callsOf(QStringLiteral("ORTM-update")).isEmpty());
}

void TestHandover::forcedUpdate_data()
{
    QTest::addColumn<bool>("forced");
    QTest::addColumn<QString>("output");
    QTest::addColumn<bool>("asks");
    QTest::addColumn<bool>("quits");
    QTest::newRow("nothing asked for") << false << "echo 17" << false << false;
    QTest::newRow("updater gone") << true << "" << true << false;
    QTest::newRow("updater runs") << true << "echo 17" << true << true;
}

void TestHandover::forcedUpdate()
{
    QFETCH(bool, forced);
    QFETCH(QString, output);
    QFETCH(bool, asks);
    QFETCH(bool, quits);
    standIn(QStringLiteral("pidof"), output);
    WindowBench bench;
    QVERIFY(bench.signIn());
    bench.openWindow();
    OrvanaUpdate::instance()->init(bench.orvana());
    const QString state = bench.orvana()->storageDirectory().filePath(QStringLiteral("update.json"));
    QSignalSpy quitting(qApp, &QCoreApplication::aboutToQuit);
    {
        QSettings updater(state, QSettings::IniFormat);
        updater.setValue(QStringLiteral("forceUpdate"), forced);
    }
    if (quits) {
        // The window's own one-second timer has to notice.
        QTimer::singleShot(TestClient::waitLimit, qApp, [] { QCoreApplication::exit(1); });
        QCOMPARE(QCoreApplication::exec(), 0);
        QCOMPARE(quitting.count(), 1);
    } else {
        bench.form->checkNeedCloseToUpdate();
        QVERIFY(!OrvanaUpdate::instance()->isForceUpdate());
        QVERIFY(!QSettings(state, QSettings::IniFormat).value(QStringLiteral("forceUpdate")).toBool());
    }
    QCOMPARE(callsOf(QStringLiteral("pidof")).startsWith(QStringLiteral("ORTM-update")), asks);
}

void TestHandover::pendingAtStart_data()
{
    QTest::addColumn<QString>("script"); // null: there is no updater
    QTest::addColumn<bool>("leaves");
    QTest::newRow("present") << "" << true;
    QTest::newRow("slow") << "sleep 1" << true;
    QTest::newRow("absent") << QString() << false;
}

void TestHandover::pendingAtStart()
{
    QFETCH(QString, script);
    QFETCH(bool, leaves);
    if (!script.isNull())
        standIn(QStringLiteral("ORTM-update"), script);
    const QString storage = file(QStringLiteral(".orvana"));
    QVERIFY(QDir().mkpath(storage));
    QSettings(storage + QStringLiteral("/update.json"), QSettings::IniFormat)
        .setValue(QStringLiteral("updateAtStartup"), true);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ORVANA_STORAGE_ROOT"), m_box->path());
    environment.insert(QStringLiteral("TMPDIR"), m_box->path());
    QProcess client;
    client.setProcessEnvironment(environment);
    client.start(QStringLiteral(ORVANA_EXECUTABLE), QStringList());
    if (leaves) {
        QVERIFY(client.waitForFinished(TestClient::waitLimit));
        QCOMPARE(client.exitCode(), 0);
        QTRY_COMPARE(callsOf(QStringLiteral("ORTM-update")), QStringLiteral("--install-only"));
        QVERIFY(!QFile::exists(storage + QStringLiteral("/log.log")));
    } else {
        QTRY_VERIFY(QFile::exists(storage + QStringLiteral("/log.log")));
        client.kill();
        QVERIFY(client.waitForFinished(TestClient::waitLimit));
    }
}

QTEST_MAIN(TestHandover)
#include "tst_handover.moc"
