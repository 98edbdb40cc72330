#include "files.h"
#include "testclient.h"

#include "app/loghandler.h"
#include "update/orvanaupdate.h"

#include <QImage>
#include <QProcess>

#include <algorithm>

#include <sys/mount.h>
#include <unistd.h>

namespace {

constexpr int kPage = 4096;
constexpr int kMostPages = 14; // more than a minute with all that belongs to it needs
const QString kDiskFull = s("Не удалось сохранить отчёт об активности на диск. Проверьте свободное место.");
const QString kNoPicture = s("Сделать снимок экрана не удалось. Свяжитесь с техподдержкой.");

QImage picture()
{
    QImage image(64, 64, QImage::Format_RGB32);
    image.fill(Qt::red);
    return image;
}

// Leaves this many pages of the small disk free.
class Filler final
{
public:
    explicit Filler(int pagesLeft)
        : m_file(qEnvironmentVariable("SMALL_DISK") + s("/filler"))
    {
        const bool open = m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        const QByteArray page(kPage, 'x');
        while (open && m_file.write(page) == page.size()) { }
        m_file.resize(std::max<qint64>(0, (m_file.size() / kPage - pagesLeft) * kPage));
    }
    ~Filler() { m_file.remove(); }
    Q_DISABLE_COPY_MOVE(Filler)

private:
    QFile m_file;
};

bool lockDisk(bool readOnly)
{
    const unsigned long flags = MS_REMOUNT | (readOnly ? static_cast<unsigned long>(MS_RDONLY) : 0UL);
    return ::mount("tmpfs", QFile::encodeName(qEnvironmentVariable("SMALL_DISK")).constData(), "tmpfs", flags,
                   nullptr)
        == 0;
}

} // namespace

// The disk refuses, and the storage directory changes hands while the client works.
class TestDiskFaults final : public QObject
{
    Q_OBJECT

private slots:
    void fullAtEachWrite_data()
    {
        QTest::addColumn<int>("pages");
        for (int pages = 0; pages <= kMostPages; ++pages)
            QTest::addRow("%d pages left", pages) << pages;
    }

    void fullAtEachWrite()
    {
        QFETCH(int, pages);
        TestClient client;
        QVERIFY(client.logIn());
        OrvanaUpdate::instance()->init(client.orvana.get());
        minute(client, 1, s("before"));
        QTRY_COMPARE(received(client).size(), 1);
        {
            const Filler filler(pages);
            minute(client, 2, s("full"));
            client.orvana->sendScreenshotActivity(picture());
            OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"9\"}]");
            minute(client, 3, s("full"));
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            const QStringList notices = client.notices.all();
            QVERIFY(notices.count(kDiskFull) <= 1 && notices.count(kNoPicture) <= 1);
            QVERIFY(received(client).size() == 3 || notices.contains(kDiskFull));
            // What is on the disk is the old or the new, never half of it.
            for (const char *name : {"session.ini", "tasks.ini"}) {
                const QByteArray stored =
                    contentsOf(client.cacheFolder().filePath(s("../") + QString::fromLatin1(name)));
                QVERIFY2(stored.startsWith("[General]\n") && stored.endsWith('\n'), stored.constData());
            }
        }
        // The list is the same: only that it was refused brings it to the disk.
        minute(client, 4, s("full"));
        QTRY_COMPARE(received(client), QList<int>({1, 2, 3, 4}));
        QTRY_VERIFY(client.records().isEmpty() && client.pictures().isEmpty());
        QCOMPARE(storedTitle(client), s("full"));
    }

    void deletesWhenFull()
    {
        TestClient client;
        QVERIFY(client.logIn());
        client.server.stop();
        client.orvana->sendScreenshotActivity(picture());
        for (int i = 0; i < 5; ++i)
            client.orvana->sendTaskActivity(i);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QCOMPARE(client.records().size(), 6);
        const Filler filler(0);
        QVERIFY(client.server.start());
        client.orvana->sendCachedActivity();
        QTRY_VERIFY(client.records().isEmpty() && client.pictures().isEmpty());
        QCOMPARE(received(client).size(), 5);
    }

    void readOnly()
    {
        TestClient client;
        QVERIFY(client.logIn());
        client.server.stop();
        client.orvana->sendTaskActivity(1);
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QVERIFY(client.server.start());
        QVERIFY(lockDisk(true));
        minute(client, 2, s("locked"));
        client.orvana->sendScreenshotActivity(picture());
        minute(client, 3, s("locked"));
        for (int i = 0; i < 3; ++i) {
            client.orvana->sendCachedActivity();
            QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
            QVERIFY(client.logIn());
        }
        QStringList notices = client.notices.all();
        notices.sort();
        QVERIFY(lockDisk(false));
        QCOMPARE(notices, QStringList({kDiskFull, kNoPicture}));
        // What could not be deleted was sent once.
        QCOMPARE(received(client), QList<int>({1}));
        minute(client, 4, s("locked"));
        QTRY_COMPARE(received(client), QList<int>({1, 2, 3, 4}));
        QTRY_VERIFY(client.records().isEmpty());
        QCOMPARE(storedTitle(client), s("locked"));
    }

    void log()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(s("log.log"));
        openLogFile(path);
        const QMessageLogContext context;
        const QString longLine(kPage, QLatin1Char('x'));
        {
            const Filler filler(1);
            for (int i = 0; i < 20; ++i)
                qDebugHandler(QtDebugMsg, context, longLine);
        }
        qDebugHandler(QtDebugMsg, context, s("room again"));
        closeLogFile();
        const QByteArray text = contentsOf(path);
        QVERIFY(text.endsWith(": room again\n"));
        // What was refused is lost, not kept in memory until the disk takes it.
        QVERIFY2(text.size() < 3 * kPage, qPrintable(QString::number(text.size())));
    }

    void storageTaken_data()
    {
        QTest::addColumn<QString>("by");
        for (const char *by : {"", "file", "link", "foreign"}) // a folder of another user
            QTest::newRow(by) << s(by);
    }

    void storageTaken()
    {
        QFETCH(QString, by);
        const bool isRefused = !by.isEmpty();
        TestClient client;
        QVERIFY(client.logIn());
        OrvanaUpdate::instance()->init(client.orvana.get());
        minute(client, 1, s("before"));
        QTRY_COMPARE(received(client).size(), 1);
        const QString storage = client.orvana->storageDirectory().path();
        const QString aside = storage + s(".aside");
        const QTemporaryDir bait;
        QVERIFY(QFile::rename(storage, aside));
        // What is planted says that all is well, and wants the client to end.
        QVERIFY(QProcess::execute(s("cp"), {s("-rT"), aside, bait.path()}) == 0);
        QVERIFY(writeFile(bait.filePath(s("update.json")), "[General]\nforceUpdate=true\n"));
        const bool isForeign = by == s("foreign");
        if (by == s("file"))
            QVERIFY(QFile(storage).open(QIODevice::WriteOnly));
        else if (by == s("link"))
            QVERIFY(QFile::link(bait.path(), storage));
        else if (isForeign)
            QVERIFY(QFile::rename(bait.path(), storage)
                    && ::chown(QFile::encodeName(storage).constData(), 12345, 12345) == 0);
        const QString planted = isForeign ? storage : bait.path();
        const auto listing = [&planted] {
            QProcess find;
            find.start(s("find"), {planted, s("-printf"), s("%P %s %T@\n")});
            find.waitForFinished();
            return find.readAll();
        };
        for (const char *name : {"/json9", "/anna@orvana.example/activity/.new-json9"})
            QVERIFY(writeFile(bait.path() + QLatin1String(name), "x")
                    || writeFile(storage + QLatin1String(name), "x"));
        const QByteArray before = listing();

        minute(client, 2, s("after"));
        client.orvana->sendScreenshotActivity(picture());
        OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"9\"}]");
        QVERIFY(!OrvanaUpdate::instance()->isForceUpdate());
        client.orvana->sendCachedActivity();
        minute(client, 3, s("after"));
        if (isRefused)
            QVERIFY(client.logIn());
        QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
        QCOMPARE(listing(), before);
        QCOMPARE(received(client).size(), isRefused ? 1 : 3);
        const QString text = client.orvana->storage().unusableText();
        QStringList notices = client.notices.all();
        notices.sort();
        QCOMPARE(notices, isRefused ? QStringList({text, kNoPicture}) : QStringList());
        QVERIFY(text.contains(storage));

        if (isRefused) {
            QVERIFY(isForeign ? QDir(storage).removeRecursively() : QFile::remove(storage));
            QVERIFY(QFile::rename(aside, storage));
        }
        minute(client, 4, s("again"));
        QTRY_COMPARE(received(client), QList<int>({1, 2, 3, 4}));
        QCOMPARE(storedTitle(client), s("again"));
        const QFileDevice::Permissions open =
            QFile::ReadGroup | QFile::ReadOther | QFile::ExeGroup | QFile::ExeOther;
        QVERIFY(!(QFile::permissions(storage) & open));
    }

private:
    // A task list, a counted minute and its report.
    static void minute(TestClient &client, int active, const QString &title)
    {
        client.session()->addTasksData({{s("1"), title, {}, {}, {}}}, s("17"));
        client.session()->addMinuteToWorktime();
        client.orvana->sendTaskActivity(active);
    }
    static QString storedTitle(TestClient &client)
    {
        client.restart();
        return client.session()->task(s("17"), s("1")).title;
    }
    static QList<int> received(const TestClient &client)
    {
        QList<int> minutes;
        for (const localservice::ActivityReport &report : client.server.reports())
            minutes.append(report.active);
        std::sort(minutes.begin(), minutes.end());
        return minutes;
    }
};

QTEST_MAIN(TestDiskFaults)

#include "tst_diskfaults.moc"
