#include "files.h"
#include "offlineclient.h"
#include "rows.h"
#include "update/orvanaupdate.h"

namespace {

const QString kFile = s("update.json");

OrvanaUpdate *update()
{
    return OrvanaUpdate::instance();
}

// As another process does: a new file is moved over the old one.
void writeAsUpdater(const OfflineClient &client, const QByteArray &lines)
{
    const QString fresh = client.path(s("update.json.new"));
    QVERIFY(writeFile(fresh, "[General]\n" + lines));
    QFile::remove(client.path(kFile));
    QVERIFY(QFile::rename(fresh, client.path(kFile)));
}

} // namespace

class TestUpdate final : public QObject
{
    Q_OBJECT

private slots:
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

    void movesTheUpdater()
    {
        const QString before = QDir::currentPath();
        // What lies there ("folder": one that cannot be removed), what was delivered and what is there then.
        const char *const rows[][4] = {{"older", "", "older", ""},
                                       {"", "", "", ""},
                                       {"", "newer", "newer", "Обновление успешно установлено"},
                                       {"older", "newer", "newer", ""},
                                       {"folder", "newer", "", ""}};
        for (const auto &[present, delivered, expected, told] : rows) {
            const QTemporaryDir working;
            QVERIFY(QDir::setCurrent(working.path()));
            const QString target = working.filePath(s("ORTM-update"));
            OfflineClient client;
            const QString source = client.path(s("update/ORTM-update"));
            if (delivered[0]) {
                QVERIFY(writeFile(source, delivered));
                QFile::setPermissions(source, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            }
            if (s(present) == s("folder"))
                QVERIFY(writeFile(target + s("/a"), QByteArray()));
            else if (present[0])
                QVERIFY(writeFile(target, present));
            update()->init(client.get());
            update()->updateOrvanaUpdateModule();
            QDir::setCurrent(before);
            QCOMPARE(contentsOf(target), QByteArray(expected));
            // It stays where it was only when it could not be moved.
            QCOMPARE(QFile::exists(source), s(present) == s("folder"));
            if (s(expected) == s("newer"))
                QVERIFY(QFileInfo(target).isExecutable());
            QCOMPARE(client.popups().take().join(QLatin1Char(' ')), s(told));
        }
    }
};

QTEST_MAIN(TestUpdate)

#include "tst_update.moc"
