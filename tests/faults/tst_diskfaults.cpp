#include "files.h"
#include "journallines.h"
#include "testclient.h"

#include "app/loghandler.h"
#include "update/orvanaupdate.h"

#include <QImage>
#include <QProcess>

#include <algorithm>

#include <sys/mount.h>
#include <unistd.h>

namespace {

constexpr int kPatience = TestClient::waitLimit;
constexpr int kReadOnly = -1; // in place of pages
constexpr int kPage = 4096;
constexpr int kMostPages = 14; // more than a minute with all that belongs to it needs
const QString kDiskFull = s("Не удалось сохранить отчёт об активности на диск. Проверьте свободное место.");
const QString kNoJournal = s("Не удалось записать журнал минут на диск. Проверьте свободное место.");
const QString kNoPicture = s("Сделать снимок экрана не удалось. Свяжитесь с техподдержкой.");

QImage picture()
{
    QImage image(64, 64, QImage::Format_RGB32);
    image.fill(Qt::red);
    return image;
}

// Leaves this many pages of the small disk free, or locks it.
class BadDisk final
{
public:
    explicit BadDisk(int pagesLeft)
        : m_isLocked(pagesLeft == kReadOnly)
    {
        if (m_isLocked) {
            setLocked(true);
            return;
        }
        const bool open = m_filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        const QByteArray page(kPage, 'x');
        while (open && m_filler.write(page) == page.size()) { }
        m_filler.resize(std::max<qint64>(0, (m_filler.size() / kPage - pagesLeft) * kPage));
    }
    ~BadDisk()
    {
        if (m_isLocked)
            setLocked(false);
        m_filler.remove();
    }
    Q_DISABLE_COPY_MOVE(BadDisk)

private:
    static void setLocked(bool locked)
    {
        const unsigned long flags = MS_REMOUNT | (locked ? static_cast<unsigned long>(MS_RDONLY) : 0UL);
        if (::mount("tmpfs", qgetenv("SMALL_DISK").constData(), "tmpfs", flags, nullptr) != 0)
            qFatal("the disk can't be locked");
    }

    bool m_isLocked;
    QFile m_filler{qEnvironmentVariable("SMALL_DISK") + s("/filler")};
};

// What it prints.
QByteArray shell(const QString &command)
{
    QProcess run;
    run.setProcessChannelMode(QProcess::MergedChannels);
    run.start(s("sh"), {s("-ec"), command});
    run.waitForFinished();
    return run.readAll();
}

} // namespace

// The disk refuses, and the storage directory changes hands while the client works.
class TestDiskFaults final : public QObject
{
    Q_OBJECT

private slots:
    void refused_data()
    {
        QTest::addColumn<int>("pages");
        QTest::newRow("read-only") << kReadOnly;
        for (int pages = 0; pages <= kMostPages; ++pages)
            QTest::addRow("%d pages left", pages) << pages;
    }

    void refused()
    {
        QFETCH(int, pages);
        TestClient client;
        QVERIFY(client.logIn());
        OrvanaUpdate::instance()->init(client.orvana.get());
        client.server.stop();
        QVERIFY(minute(client, 1, s("before")));
        QVERIFY(client.server.start());
        {
            const BadDisk disk(pages);
            QVERIFY(minute(client, 2, s("refused")));
            client.orvana->sendScreenshotActivity(picture());
            OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"9\"}]");
            QVERIFY(minute(client, 3, s("refused")));
            for (int i = 0; i < 3; ++i) {
                client.orvana->sendCachedActivity();
                QTRY_COMPARE(client.orvana->pendingActivityRequests(), 0);
                QVERIFY(client.logIn());
            }
            const QStringList notices = client.notices.take();
            QVERIFY(notices.count(kDiskFull) <= 1 && notices.count(kNoPicture) <= 1);
            QCOMPARE(notices.count(kNoJournal),
                     pages == kReadOnly ? 1 : std::min(1, notices.count(kNoJournal)));
            QVERIFY(received(client).size() == 3 || notices.contains(kDiskFull));
            QVERIFY(pages != kReadOnly || notices.contains(kNoPicture));
            // What could not be deleted was sent once.
            QCOMPARE(received(client).count(1), 1);
            // What is on the disk is the old or the new, never half of it.
            for (const char *name : {"../session.ini", "../tasks.ini"}) {
                const QByteArray stored = contentsOf(client.cacheFolder().filePath(s(name)));
                QVERIFY2(stored.startsWith("[General]\n") && stored.endsWith('\n'), stored.constData());
            }
        }
        // The list is the same: only that it was refused brings it to the disk.
        QVERIFY(minute(client, 4, s("refused")));
        QTRY_COMPARE(received(client), QList<int>({1, 2, 3, 4}));
        QTRY_VERIFY(client.records().isEmpty() && client.pictures().isEmpty());
        QCOMPARE(storedTitle(client), s("refused"));
        QVERIFY(isRecovered(client.orvana.get()));
        QVERIFY(client.records().isEmpty());
        const JournalLines lines(client.cacheFolder().filePath(s("..")));
        QVERIFY(lines.follow);
        QCOMPARE(lines.count("minute"), 4);
        QCOMPARE(lines.count("accepted"), 4);
        QCOMPARE(lines.count("gap"), 0);
    }

    void log()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(s("log.log"));
        openLogFile(path);
        {
            const BadDisk disk(1);
            for (int i = 0; i < 20; ++i)
                qDebugHandler(QtDebugMsg, {}, s("x").repeated(kPage));
        }
        qDebugHandler(QtDebugMsg, {}, s("room again"));
        closeLogFile();
        // What was refused is lost, not kept in memory until the disk takes it.
        QVERIFY(contentsOf(path).endsWith(": room again\n") && contentsOf(path).size() < 3 * kPage);
    }

    void stubbornRecord()
    {
        const QTemporaryDir folder;
        const QString record = folder.filePath(s("json1"));
        const QString picture = folder.filePath(s("screenshot1.jpg"));
        QVERIFY(writeFile(picture, "x") && writeFile(record, "x") && QFile::resize(record, 1 << 30));
        ActivityCache cache;
        cache.setDirectory(folder.path());
        // It cannot be read, so the picture may be its own.
        QVERIFY(!cache.sweepPictures(10) && QFile::exists(picture));
        QCOMPARE(shell(s("mount --bind '%1' '%1'").arg(record)), QByteArray());
        cache.remove(record); // emptied where it cannot be deleted
        QCOMPARE(shell(s("umount '%1'").arg(record)), QByteArray());
        QCOMPARE(QFileInfo(record).size(), 0);
    }

    void storageTaken_data()
    {
        QTest::addColumn<QString>("by");
        for (const char *by : {"nobody", "file", "link", "foreign"}) // a folder of another user
            QTest::newRow(by) << s(by);
    }

    void storageTaken()
    {
        QFETCH(QString, by);
        TestClient client;
        QVERIFY(client.logIn());
        OrvanaUpdate::instance()->init(client.orvana.get());
        QVERIFY(minute(client, 1, s("before")));
        const QString storage = client.orvana->storageDirectory().path();
        const QString aside = storage + s(".aside");
        QVERIFY(QFile::rename(storage, aside));
        // What is planted says that all is well, wants the client to end, and has files to delete.
        const QTemporaryDir box;
        const QString bait = by == s("foreign") ? storage : box.filePath(s("bait"));
        QCOMPARE(shell(s("cp -r '%1' '%2'; cd '%2'; printf '[General]\\nforceUpdate=true\\n' >update.json; "
                         "touch json9 anna@orvana.example/activity/.new-json9")
                           .arg(aside, bait)),
                 QByteArray());
        if (by == s("foreign"))
            QVERIFY(::chown(QFile::encodeName(storage).constData(), 12345, 12345) == 0);
        else if (by == s("link"))
            QVERIFY(QFile::link(bait, storage));
        else if (by == s("file"))
            QVERIFY(writeFile(storage, QByteArray()));
        const auto listing = [&bait] { return shell(s("find '%1' -printf '%P %s %T@\\n'").arg(bait)); };
        const QByteArray before = listing();

        QVERIFY(minute(client, 2, s("after")));
        client.orvana->sendScreenshotActivity(picture());
        OrvanaUpdate::instance()->addUpdateInfo("[{\"version\":\"9\"}]");
        QVERIFY(!OrvanaUpdate::instance()->isForceUpdate());
        client.orvana->sendCachedActivity();
        QVERIFY(minute(client, 3, s("after")));
        const bool isRefused = by != s("nobody");
        QVERIFY(!isRefused || client.logIn());
        QCOMPARE(listing(), before);
        QCOMPARE(received(client).size(), isRefused ? 1 : 3);
        const QString text = client.orvana->storage().unusableText();
        QStringList notices = client.notices.take();
        notices.sort();
        QCOMPARE(notices, isRefused ? QStringList({text, kNoPicture}) : QStringList());
        QVERIFY(text.contains(storage));

        if (isRefused)
            QCOMPARE(shell(s("rm -r '%1'; mv '%2' '%1'").arg(storage, aside)), QByteArray());
        QVERIFY(minute(client, 4, s("again")));
        QTRY_COMPARE(received(client), QList<int>({1, 2, 3, 4}));
        QCOMPARE(storedTitle(client), s("again"));
        QVERIFY(!(QFile::permissions(storage) & 0x0077));
    }

private:
    // A task list, a counted minute and its report, which is answered or refused.
    static bool minute(TestClient &client, int active, const QString &title)
    {
        client.session()->addTasksData({{s("1"), title, {}, {}, {}}}, s("17"));
        client.orvana->journalMinute(active);
        client.session()->addMinuteToWorktime();
        client.orvana->sendTaskActivity(active);
        return QTest::qWaitFor([&] { return client.orvana->pendingActivityRequests() == 0; }, kPatience);
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
