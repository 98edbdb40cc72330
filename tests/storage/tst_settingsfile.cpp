#include "files.h"
#include "model/records.h"
#include "rows.h"
#include "storage/settingsfile.h"
#include "storage/settingslines.h"

#include <QDataStream>
#include <QProcess>

#include <csignal>

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// A value in its stream form, in the way in which settings files hold it.
QByteArray variant(const QByteArray &hex)
{
    QByteArray text;
    for (const char c : QByteArray::fromHex(hex))
        text.append("\\x").append(QByteArray::number(static_cast<uchar>(c), 16));
    // A zero is no letter of a longer number.
    return "@Variant(" + text.replace("\\x0\\", "\\0\\") + ")";
}

QByteArray streamed(const QVariant &value)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << value;
    return bytes;
}

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

void expectDamage()
{
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(s("^Error! Settings file is damaged: ")));
}

} // namespace

// No file, whatever has become of it, takes the client's memory or stack.
class TestSettingsFile final : public QObject
{
    Q_OBJECT

private slots:
    // Not even root may then open what is not shared with them.
    void initTestCase()
    {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct sets[2] = {};
        syscall(SYS_capget, &header, sets);
        sets[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &header, sets);
    }

    void init() { m_folder = std::make_unique<QTemporaryDir>(); }

    void keepsWhatIsWritten()
    {
        QString everyUnit;
        for (ushort unit = 0; unit < 0x500; ++unit)
            everyUnit += QChar(unit) + s("a0F@,");
        QVariant nested = QVariantList();
        for (int i = 0; i < 900; ++i)
            nested = QVariantList{nested};
        TaskInfo info;
        info.title = s("Ёж, \"тест\" = \\ ; @Variant(");
        info.texts.append(TextTask());
        const QVariantList numbers{1, 2U, -3LL, 4ULL, 1.5, true, QVariant(), QVariantMap(), nested};
        const QVariantList values{everyUnit, QStringList{s("a, b"), QString(), s("@x"), s(" ")},
                                  QVariantMap{{s("1702"), QTime(1, 31)}, {QString(), numbers}},
                                  QVariant::fromValue(info),
                                  QVariant::fromValue(QList<Task>{Task(), Task::catchAll()})};
        SettingsFile settings(path());
        for (int i = 0; i < values.size(); ++i)
            settings.setValue(s("an/id, \"of\" \\ ж %1").arg(i), values.at(i));
        QVERIFY(settings.save());
        const QByteArray written = contentsOf(path());
        QCOMPARE(validLines(written), written);
        const SettingsFile again(path());
        QCOMPARE(again.keys(), settings.keys());
        for (int i = 0; i < values.size(); ++i)
            QCOMPARE(streamed(again.value(again.keys().at(i))), streamed(values.at(i)));
    }

    void dropsWhatNobodyWrote_data()
    {
        QTest::addColumn<QByteArray>("value");
        const QByteArray evil = variant("00000009 0fffffff");
        QTest::newRow("huge list") << evil;
        QTest::newRow("huge list of texts") << variant("0000000b fffffffe");
        QTest::newRow("lists without end") << variant(QByteArray("00000009 00000001").repeated(100000));
        QTest::newRow("maps without end")
            << variant(QByteArray("00000008 00000001 00000000").repeated(100000));
        QTest::newRow("cut off") << QByteArray("@Variant(\\0\\0\\0");
        QTest::newRow("foreign kind") << variant("00000041 00000001");
        const QByteArray list = QByteArray("QVariantList").toHex();
        QTest::newRow("list by its name") << variant("0000007f 0000000d" + list + "00 0fffffff");
        QTest::newRow("record within a list") << variant("00000009 00000001 0000007f 00000005 5461736b00");
        QTest::newRow("in a list") << QByteArray("a, " + evil);
        QTest::newRow("after two blanks") << QByteArray("a,  " + evil);
        QTest::newRow("quote within") << QByteArray("@Va\"" + evil.mid(3) + '"');
        QTest::newRow("line goes on") << QByteArray("@Var\\\niant(" + evil.mid(9));
        QTest::newRow("carriage return") << QByteArray("@\rb=" + evil);
        QTest::newRow("quote left open") << QByteArray("\"@text");
    }

    void dropsWhatNobodyWrote()
    {
        QFETCH(QByteArray, value);
        const QByteArray before = "[General]\nlogged=true\n";
        const QByteArray after = "password=\"p;\\x44f\"\n";
        QVERIFY(writeFile(path(), before + "damaged=" + value + '\n' + after));
        expectDamage();
        SettingsFile settings(path());
        QVERIFY(settings.value(s("logged")).toBool() && !settings.contains(s("damaged")));
        QCOMPARE(settings.value(s("password")).toString(), s("p;я"));
        QVERIFY(settings.save() && contentsOf(path()).startsWith(before + after));
    }

    // A file without a checksum, or one that other programs write, too, is not damaged.
    void setsAsideWhatIsDamaged_data()
    {
        addRows({{"", ""},
                 {"tes=31>tes=71", "damaged"},
                 {"ID=7\n>ID=6\n", "damaged"},
                 {"minutes=31\n>", "damaged"},
                 {"tes=31\n>tes=31\nx=@Variant(\n", "damaged"},
                 {"\n;>\n;checksum=1\na=1\n;", "damaged"},
                 {";checksum=>;", ""}});
    }

    void setsAsideWhatIsDamaged()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        SettingsFile settings(path());
        settings.setValue(s("minutes"), 31);
        settings.setValue(s("taskID"), 7);
        QVERIFY(settings.save());
        const QByteArray from = input.section(QLatin1Char('>'), 0, 0).toLatin1();
        const QByteArray file =
            contentsOf(path()).replace(from, input.section(QLatin1Char('>'), 1).toLatin1());
        QVERIFY(writeFile(path(), file));
        if (!result.isEmpty())
            expectDamage();
        QCOMPARE(SettingsFile(path()).keys().isEmpty(), !result.isEmpty());
        QCOMPARE(contentsOf(path() + s(result.isEmpty() ? "" : ".unusable-1")), file);
        QVERIFY(writeFile(path(), file));
        QVERIFY(SettingsFile(path(), SettingsFile::Use::Shared).contains(s("taskID")));
    }

    // As root, a restored backup or a kill may leave it: what a shell makes of the file "f".
    void replacesWhatIsInTheWay_data()
    {
        addRows({{"mv f g; ln -s g f", "read"},
                 {"chmod 444 f", "read"},
                 {"mkfifo .new-f; touch .new-f.lock .new-f.x1", "read"}, // Qt waits 30 s for an empty lock
                 {"chmod 0 f", ""},
                 {"echo >f.unusable-1; chmod 0 f; touch -d 2020-01-01 f", ""},
                 {"rm f; mkdir -p f/g", ""},
                 {"rm f; mkfifo f", ""},
                 {"ln -sf nowhere/g f", ""}});
    }

    void replacesWhatIsInTheWay()
    {
        QFETCH(QString, input);
        QFETCH(QString, result);
        const bool isRead = !result.isEmpty();
        QVERIFY(writeFile(path(), "[General]\nbefore=1\n"));
        const QStringList script{s("-ec"), s("cd '%1'; ").arg(m_folder->path()) + input};
        const auto files = [this] {
            const auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
            return QDir(m_folder->path()).entryList(all).filter(QRegularExpression(s("^(?!\\.new)"))).size();
        };
        QCOMPARE(QProcess::execute(s("sh"), script), 0);
        const int filesBefore = files();
        SettingsFile settings(path());
        QCOMPARE(settings.contains(s("before")), isRead);
        settings.setValue(s("after"), 2);
        QTRY_VERIFY(settings.save());
        const QByteArray expected = "[General]\nafter=2\n" + QByteArray(isRead ? "before=1\n;" : ";");
        QCOMPARE(contentsOf(path()).left(expected.size()), expected);
        // Whatever could not be read is still there.
        QCOMPARE(files(), filesBefore + (isRead ? 0 : 1));
        QVERIFY(!QFile::exists(m_folder->filePath(s(".new-f.x1"))));
        // And while it is in use.
        QCOMPARE(QProcess::execute(s("sh"), script), 0);
        QTRY_VERIFY(settings.save() && QFileInfo(path()).isFile());
    }

    // Such as for want of descriptors; and QSettings takes a file for written that met a full disk.
    void losesNothing()
    {
        const QByteArray file = "[General]\nafter=1\nbefore=1\n";
        QVERIFY(writeFile(path(), file));
        SettingsFile settings;
        withLimit(RLIMIT_NOFILE, 0, [&] { settings = SettingsFile(path(), SettingsFile::Use::Shared); });
        settings.setValue(s("after"), s("x").repeated(10000));
        std::signal(SIGXFSZ, SIG_IGN);
        bool isWritten = true;
        withLimit(RLIMIT_FSIZE, 4096, [&] { isWritten = settings.save(); });
        QVERIFY(!isWritten);
        QCOMPARE(contentsOf(path()), file);
        settings.setValue(s("after"), 2);
        QVERIFY(settings.save());
        QCOMPARE(contentsOf(path()), QByteArray("[General]\nafter=2\nbefore=1\n"));
    }

private:
    QString path() const { return m_folder->filePath(s("f")); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(TestSettingsFile)
#include "tst_settingsfile.moc"
