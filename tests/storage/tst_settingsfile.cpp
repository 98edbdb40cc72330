#include "files.h"
#include "model/records.h"
#include "rows.h"
#include "storage/settingsfile.h"
#include "storage/settingslines.h"

#include <QProcess>

#include <csignal>

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Bytes in the way in which settings files hold them.
QByteArray variant(const QByteArray &bytes)
{
    QByteArray text;
    for (const char c : bytes)
        text.append("\\x").append(QByteArray::number(static_cast<uchar>(c), 16));
    // A zero is no letter of a longer number.
    return "@Variant(" + text.replace("\\x0\\", "\\0\\") + ")";
}

QByteArray number(quint32 value)
{
    QByteArray bytes(sizeof value, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

const QByteArray kList = number(QMetaType::QVariantList);
const QByteArray kMap = number(QMetaType::QVariantMap);
const QByteArray kRecord = number(127);

template <typename Do>
void withLimit(__rlimit_resource kind, rlim_t size, Do toDo)
{
    rlimit before = {};
    QCOMPARE(getrlimit(kind, &before), 0);
    const rlimit during = {size, before.rlim_max};
    setrlimit(kind, &during);
    toDo();
    setrlimit(kind, &before);
}

} // namespace

// No file, whatever has become of it, takes the client's memory or stack.
class TestSettingsFile final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // Not even root may then open what is not shared with them.
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct sets[2] = {};
        syscall(SYS_capget, &header, sets);
        sets[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &header, sets);
    }

    void init() { m_folder = std::make_unique<QTemporaryDir>(); }

    void keepsWhatIsWritten_data()
    {
        QTest::addColumn<QVariant>("value");
        QString everyUnit;
        for (ushort unit = 0; unit < 0x500; ++unit)
            everyUnit += QChar(unit) + s("a0F@,");
        QTest::newRow("every character") << QVariant(everyUnit);
        QTest::newRow("texts") << QVariant(QStringList{s("a, b"), QString(), s("@x"), s(" ")});
        QTest::newRow("counters") << QVariant(QVariantMap{{s("1702"), QTime(1, 31)}, {QString(), QTime()}});
        QTest::newRow("versions") << QVariant(QVariantList{
            QVariantMap{{s("version"), s("1.2")},
                        {s("x"), QVariantList{1, 2U, -3LL, 4ULL, 1.5, true, QVariant(), QVariantMap()}}},
            QVariantList{}, s("text")});
        QVariant nested = QVariantList();
        for (int i = 0; i < 900; ++i)
            nested = QVariantList{nested};
        QTest::newRow("nested as deep as is read") << QVariant(QVariantMap{{s("a"), nested}});
        TaskInfo info;
        info.title = s("Ёж, \"тест\" = \\ ; @Variant(");
        info.texts.append(TextTask());
        QTest::newRow("details") << QVariant::fromValue(info);
        QTest::newRow("tasks") << QVariant::fromValue(QList<Task>{Task(), Task::catchAll()});
    }

    void keepsWhatIsWritten()
    {
        QFETCH(QVariant, value);
        SettingsFile settings(path());
        settings.setValue(s("before"), 1);
        settings.setValue(s("an/id, \"of\" \\ ж"), value);
        QVERIFY(settings.save());
        const QByteArray written = contentsOf(path());
        QCOMPARE(validLines(written), written);
        const SettingsFile again(path());
        QCOMPARE(again.keys(), settings.keys());
        const auto stream = [](const QVariant &each) {
            QByteArray bytes;
            QDataStream out(&bytes, QIODevice::WriteOnly);
            out << each;
            return bytes;
        };
        QCOMPARE(stream(again.value(again.keys().constFirst())), stream(value));
    }

    void dropsWhatNobodyWrote_data()
    {
        addColumns<QByteArray>("value");
        const auto row = [](const char *name, const QByteArray &value) { QTest::newRow(name) << value; };
        const QByteArray evil = variant(kList + number(0x0FFFFFFF));
        row("huge list", evil);
        row("huge list of texts", variant(number(QMetaType::QStringList) + number(0xFFFFFFFE)));
        row("nested without end", variant(QByteArray(kList + number(1)).repeated(100000)));
        row("maps without end", variant(QByteArray(kMap + number(1) + number(0)).repeated(100000)));
        row("cut off", "@Variant(\\0\\0\\0");
        row("foreign kind", variant(number(QMetaType::QPixmap) + number(1)));
        row("another name",
            variant(kRecord + number(13) + QByteArray("QVariantList\0", 13) + number(0x0FFFFFFF)));
        row("record in a list", variant(kList + number(1) + kRecord + number(5) + QByteArray("Task\0", 5)));
        row("in a list", "a, " + evil);
        row("after two blanks", "a,  " + evil);
        row("second letter as a number", "@\\x56\\x61" + evil.mid(3));
        row("quote within", "@Va\"" + evil.mid(3) + '"');
        row("line goes on", "@Var\\\niant(" + evil.mid(9));
        row("carriage return", "@\rb=" + evil);
        row("quote left open", "\"@text");
        row("ends in a backslash", "abc\\");
    }

    void dropsWhatNobodyWrote()
    {
        QFETCH(QByteArray, value);
        const QByteArray before = "[General]\nlogged=true\n";
        const QByteArray after = "password=\"p;\\x44f\"\n";
        QVERIFY(writeFile(path(), before + "damaged=" + value + '\n' + after));
        expectDamage();
        SettingsFile settings(path());
        QVERIFY(settings.value(s("logged")).toBool());
        QCOMPARE(settings.value(s("password")).toString(), s("p;я"));
        QVERIFY(!settings.contains(s("damaged")));
        QVERIFY(contentsOf(path()).startsWith(before + after));
    }

    // What another program writes is no damage.
    void findsDamage_data()
    {
        addColumns<QByteArray, QByteArray, bool>("before", "after", "isDamage");
        const auto row = [](const char *before, const QByteArray &after, bool isDamage) {
            QTest::addRow("%s", before) << QByteArray(before) << after << isDamage;
        };
        row("none", "", false);
        row("tes=31", "tes=71", true);
        row("ID=7\n", "ID=6\n", true);
        row("minutes=31\n", "", true);
        row("tes=31\n", "tes=31\nx=@Variant(\n", true);
        row("minutes=31", QByteArray(10, '\0'), true);
        row("\n;", "\n;checksum=1\na=1\n;", true);
        row(";checksum=", ";", false);
    }

    void findsDamage()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        QFETCH(bool, isDamage);
        SettingsFile settings(path());
        settings.setValue(s("minutes"), 31);
        settings.setValue(s("taskID"), 7);
        QVERIFY(settings.save());
        const QByteArray damaged = contentsOf(path()).replace(before, after);
        QVERIFY(writeFile(path(), damaged));
        if (isDamage)
            expectDamage();
        QCOMPARE(SettingsFile(path()).keys().isEmpty(), isDamage);
        QCOMPARE(contentsOf(path() + s(isDamage ? ".unusable-1" : "")), damaged);
        QVERIFY(writeFile(path(), damaged));
        QVERIFY(SettingsFile(path(), SettingsFile::Use::Shared).contains(s("taskID")));
    }

    // As root or a restored backup may leave it.
    void replacesWhatIsInTheWay_data()
    {
        addColumns<QString, bool>("made", "isRead"); // by a shell, of the file "f"
        const auto row = [](const char *name, const char *made, bool isRead) {
            QTest::newRow(name) << s(made) << isRead;
        };
        row("a link", "mv f g; ln -s g f", true);
        row("not writable", "chmod 444 f", true);
        row("not readable", "chmod 0 f", false);
        row("not readable, not the first", "echo >f.unusable-1; chmod 0 f; touch -d 2020-01-01 f", false);
        row("folder", "rm f; mkdir -p f/g", false);
        row("pipe", "rm f; mkfifo f", false);
        row("link to nowhere", "ln -sf nowhere/g f", false);
        row("unfinished new files", "mkfifo .new-f; touch .new-f.lock .new-f.x1", true);
    }

    void replacesWhatIsInTheWay()
    {
        QFETCH(QString, made);
        QFETCH(bool, isRead);
        QVERIFY(writeFile(path(), "[General]\nbefore=1\n"));
        const QStringList script{s("-ec"), s("cd '%1'; ").arg(m_folder->path()) + made};
        QCOMPARE(QProcess::execute(s("sh"), script), 0);
        const auto files = [this] {
            const auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
            return QDir(m_folder->path()).entryList(all).filter(QRegularExpression(s("^[^.]"))).size();
        };
        const int filesBefore = files();
        SettingsFile settings(path());
        QCOMPARE(settings.contains(s("before")), isRead);
        // Its owner may be about to share what was written only now.
        QCOMPARE(QFile::exists(path()), isRead || made == s("chmod 0 f"));
        settings.setValue(s("after"), 2);
        QTRY_VERIFY(settings.save());
        QVERIFY(
            contentsOf(path()).startsWith("[General]\nafter=2\n" + QByteArray(isRead ? "before=1\n;" : ";")));
        // Whatever could not be read is still there.
        QCOMPARE(files(), filesBefore + (isRead ? 0 : 1));
        QVERIFY(!QFile::exists(m_folder->filePath(s(".new-f.x1"))));
        // And while it is in use.
        QCOMPARE(QProcess::execute(s("sh"), script), 0);
        QTRY_VERIFY(settings.save() && QFileInfo(path()).isFile());
    }

    // Such as for want of descriptors.
    void readsLaterWhatCannotBeReadNow()
    {
        QVERIFY(writeFile(path(), "[General]\nafter=1\nbefore=1\n"));
        SettingsFile settings;
        withLimit(RLIMIT_NOFILE, 0, [&] { settings = SettingsFile(path()); });
        settings.setValue(s("after"), 2);
        QVERIFY(settings.save());
        QVERIFY(contentsOf(path()).startsWith("[General]\nafter=2\nbefore=1\n;"));
    }

    // QSettings takes a file for written that met a full disk.
    void keepsWhatIsWhole()
    {
        SettingsFile settings(path(), SettingsFile::Use::Shared);
        QVERIFY(settings.save());
        settings.setValue(s("long"), s("x").repeated(10000));
        std::signal(SIGXFSZ, SIG_IGN);
        bool isWritten = true;
        withLimit(RLIMIT_FSIZE, 4096, [&] { isWritten = settings.save(); });
        QVERIFY(!isWritten);
        QCOMPARE(contentsOf(path()).size(), 0);
    }

private:
    QString path() const { return m_folder->filePath(s("f")); }
    static void expectDamage()
    {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(s("^Error! Settings file is damaged: ")));
    }

    std::unique_ptr<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(TestSettingsFile)
#include "tst_settingsfile.moc"
