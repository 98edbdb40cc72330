#include "offlineclient.h"
#include "rows.h"
#include "update/orvanaupdate.h"

#include <QDir>
#include <QtTest>

namespace {

const QString kFile = s("update.json");

OrvanaUpdate *update()
{
    return OrvanaUpdate::instance();
}

// As another process does: a new file is moved over the old one.
void writeAsUpdater(const OfflineClient &client, const QByteArray &lines)
{
    QFile file(client.path(s("update.json.new")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\n" + lines);
    file.close();
    QFile::remove(client.path(kFile));
    QVERIFY(file.rename(client.path(kFile)));
}

void write(const QString &path, const QByteArray &text)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

} // namespace

class TestUpdate final : public QObject
{
    Q_OBJECT

private slots:
    void startsWithDefaults()
    {
        const OfflineClient client;
        update()->init(client.get());
        QVERIFY(!update()->isUpdateAtStartup() && !update()->wasUpdated() && !update()->isForceUpdate());
        QVERIFY(update()->updateList().isEmpty());
        QCOMPARE(update()->availableUpdateVersion(), QString());
    }

    void sharesItsFileWithTheUpdater()
    {
        OfflineClient client;
        writeAsUpdater(client, "updateAtStartup=true\nwasUpdated=true\n");
        update()->init(client.get());
        QVERIFY(update()->isUpdateAtStartup() && update()->wasUpdated());
        // While the client runs, again and again.
        for (int round = 0; round < 3; ++round) {
            QVERIFY(!update()->isForceUpdate());
            writeAsUpdater(client, "forceUpdate=true\nnote=" + QByteArray::number(round) + '\n');
            QVERIFY(update()->isForceUpdate());
            update()->setForceUpdate(false);
            QVERIFY(!update()->isForceUpdate());
            QCOMPARE(client.stored(kFile, s("forceUpdate")).toString(), s("false"));
            // What the updater keeps there is not lost.
            QCOMPARE(client.stored(kFile, s("note")).toInt(), round);
        }
        update()->setWasUpdated(true);
        QCOMPARE(client.stored(kFile, s("wasUpdated")).toString(), s("true"));
        QFile::remove(client.path(kFile));
        QVERIFY(!update()->isForceUpdate());
    }

    void keepsDescriptions_data()
    {
        addColumns<QByteArray, QVariantList>("body", "list");
        const QVariantMap entry{{s("version"), s("1.2")}, {s("файл"), true}};
        QTest::newRow("none") << QByteArray("[]") << QVariantList();
        QTest::newRow("one") << QByteArray(R"([{"version":"1.2","файл":true}])") << QVariantList{entry};
        QTest::newRow("two") << QByteArray(R"([{"version":"1.2","файл":true},["@x",null]])")
                             << QVariantList{entry, QVariantList{s("@x"), QVariant()}};
        QTest::newRow("cut at a NUL") << QByteArray("[\0]", 3) << QVariantList();
        for (const char *body : {"", "{}", "\"x\"", "[", "<html>"})
            QTest::newRow(body) << QByteArray(body) << QVariantList();
    }

    void keepsDescriptions()
    {
        QFETCH(QByteArray, body);
        QFETCH(QVariantList, list);
        const OfflineClient client;
        update()->init(client.get());
        update()->addUpdateInfo(R"([{"version":"0"},{"version":"1"},{"version":"2"}])");
        update()->addUpdateInfo(body);
        QCOMPARE(update()->updateList(), list);
        QCOMPARE(client.stored(kFile, s("updateInfo")).toList(), list);
    }

    void movesTheUpdater_data()
    {
        addColumns<QByteArray, QByteArray, QByteArray, bool>(
            "delivered", "present", "expected",
            "told"); // null: nothing was; // null: none; "folder": one that cannot be removed
        const QByteArray older("older");
        const QByteArray newer("newer");
        const QByteArray none("none");
        QTest::newRow("nothing delivered") << QByteArray() << older << older << false;
        QTest::newRow("nothing at all") << QByteArray() << QByteArray() << none << false;
        QTest::newRow("first") << newer << QByteArray() << newer << true;
        QTest::newRow("replaced") << newer << older << newer << false;
        QTest::newRow("in the way") << newer << QByteArray("folder") << none << false;
    }

    void movesTheUpdater()
    {
        QFETCH(QByteArray, delivered);
        QFETCH(QByteArray, present);
        QFETCH(QByteArray, expected);
        QFETCH(bool, told);
        const QString before = QDir::currentPath();
        const QTemporaryDir working;
        QVERIFY(QDir::setCurrent(working.path()));
        const QString target = working.filePath(s("ORTM-update"));

        OfflineClient client;
        const QString source = client.path(s("update/ORTM-update"));
        if (!delivered.isNull()) {
            write(source, delivered);
            QFile::setPermissions(source, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        if (present == "folder")
            write(target + s("/a"), QByteArray());
        else if (!present.isNull())
            write(target, present);
        update()->init(client.get());
        update()->updateOrvanaUpdateModule();
        QDir::setCurrent(before);

        QCOMPARE(contents(target), expected);
        // It stays where it was only when it could not be moved.
        QCOMPARE(QFile::exists(source), !delivered.isNull() && present == "folder");
        if (expected == delivered)
            QVERIFY(QFileInfo(target).isExecutable());
        QCOMPARE(client.popups().take(),
                 told ? QStringList{s("Обновление успешно установлено")} : QStringList());
    }
};

QTEST_MAIN(TestUpdate)

#include "tst_update.moc"
