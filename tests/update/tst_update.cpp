#include "files.h"
#include "offlineclient.h"
#include "rows.h"
#include "update/orvanaupdate.h"

#include <csignal>

#include <sys/resource.h>

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
        QFile::remove(client.path(kFile));
        QVERIFY(!update()->isForceUpdate());
    }

    // A request that cannot be cleared counts as cleared, and hides none that comes later.
    void requestThatStays()
    {
        OfflineClient client;
        const QByteArray request = "forceUpdate=true\nupdateAtStartup=false\n";
        writeAsUpdater(client, request);
        update()->init(client.get());
        QVERIFY(update()->isForceUpdate());
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit none = {0, limit.rlim_max};
        std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &none);
        update()->setForceUpdate(false);
        setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(client.stored(kFile, s("forceUpdate")).toBool());
        QVERIFY(!update()->isForceUpdate());
        writeAsUpdater(client, request);
        update()->addUpdateInfo("[]");
        QVERIFY(update()->isForceUpdate());
        QVERIFY(client.stored(kFile, s("forceUpdate")).toBool());
    }

    void movesTheUpdater()
    {
        const QString before = QDir::currentPath();
        // What lies there ("folder": one that cannot be removed), what was delivered and what is there then.
        const char *const rows[][4] = {{"older", "", "older", ""},
                                       {"", "newer", "newer", "Обновление успешно установлено"},
                                       {"older", "newer", "newer", ""},
                                       {"older", "folder", "older", ""},
                                       {"folder", "newer", "", ""}};
        for (const auto &[present, delivered, expected, told] : rows) {
            const QTemporaryDir working;
            QVERIFY(QDir::setCurrent(working.path()));
            OfflineClient client;
            const QString target = working.filePath(s("ORTM-update"));
            const QString source = client.path(s("update/ORTM-update"));
            for (const auto &[path, what] :
                 {std::pair(target, s(present)), std::pair(source, s(delivered))}) {
                if (!what.isEmpty())
                    QVERIFY(writeFile(what == s("folder") ? path + s("/a") : path, what.toLatin1()));
            }
            if (QFileInfo(source).isFile())
                QFile::setPermissions(source, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            update()->init(client.get());
            update()->updateOrvanaUpdateModule();
            QDir::setCurrent(before);
            QCOMPARE(contentsOf(target), QByteArray(expected));
            // It stays where it was only when it could not be moved.
            QCOMPARE(QFile::exists(source), s(present) == s("folder") || s(delivered) == s("folder"));
            QVERIFY(!QFile::exists(target + s(".new")));
            QVERIFY(s(expected) != s("newer") || QFileInfo(target).isExecutable());
            QCOMPARE(client.notices().take().join(QLatin1Char(' ')), s(told));
        }
    }
};

QTEST_MAIN(TestUpdate)

#include "tst_update.moc"
