#include "files.h"
#include "model/records.h"
#include "storage/settingsfile.h"
#include "texts.h"

#include <QProcess>
#include <QtTest>

#include <initializer_list>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// A text's bytes in the way in which settings files hold them.
QByteArray escaped(const QByteArray &bytes)
{
    QByteArray text;
    for (const char c : bytes)
        text.append("\\x").append(QByteArray::number(static_cast<uchar>(c), 16));
    return text;
}

QByteArray variant(const QByteArray &bytes)
{
    // A zero is no letter of a longer number.
    return "@Variant(" + escaped(bytes).replace("\\x0\\", "\\0\\") + ")";
}

QByteArray number(quint32 value)
{
    QByteArray bytes(sizeof value, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

// Also root may then not open what is not shared with him.
class WithoutPrivileges final
{
public:
    WithoutPrivileges()
    {
        syscall(SYS_capget, &m_header, m_before);
        __user_cap_data_struct none[] = {m_before[0], m_before[1]};
        none[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &m_header, none);
    }
    ~WithoutPrivileges() { syscall(SYS_capset, &m_header, m_before); }
    Q_DISABLE_COPY_MOVE(WithoutPrivileges)

private:
    __user_cap_header_struct m_header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_before[2] = {};
};

const quint32 kList = QMetaType::QVariantList;
const quint32 kMap = QMetaType::QVariantMap;

} // namespace

// No file, whatever has become of it, takes the client's memory or stack.
class TestSettingsFile final : public QObject
{
    Q_OBJECT

private slots:
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
        QTest::newRow("details") << details();
        Task task;
        task.title = s("задача");
        QTest::newRow("tasks") << QVariant::fromValue(QList<Task>{task, Task::catchAll()});
    }

    void keepsWhatIsWritten()
    {
        QFETCH(QVariant, value);
        const QString path = m_folder.filePath(QString::fromLatin1(QTest::currentDataTag()));
        {
            const auto settings = openSettings(path);
            settings->setValue(s("before"), 1);
            settings->setValue(s("an/id, \"of\" \\ ж"), value);
        }
        const QByteArray written = contentsOf(path);
        QVERIFY(!written.isEmpty());
        QCOMPARE(soundLines(written), written);
    }

    void dropsWhatNobodyWrote_data()
    {
        QTest::addColumn<QByteArray>("value");
        const QByteArray evil = variant(number(kList) + number(0x0FFFFFFF));
        QTest::newRow("huge list") << evil;
        QTest::newRow("huge list of texts") << variant(number(QMetaType::QStringList) + number(0xFFFFFFFE));
        QTest::newRow("nested without end")
            << variant(QByteArray(number(kList) + number(1)).repeated(100000));
        QTest::newRow("maps without end")
            << variant(QByteArray(number(kMap) + number(1) + number(0)).repeated(100000));
        QTest::newRow("cut off") << QByteArray("@Variant(\\0\\0\\0");
        QTest::newRow("foreign kind") << variant(number(QMetaType::QPixmap) + number(1));
        QTest::newRow("list under another name")
            << variant(number(127) + number(13) + QByteArray("QVariantList\0", 13) + number(0x0FFFFFFF));
        QTest::newRow("record within a list")
            << variant(number(kList) + number(1) + number(127) + number(5) + QByteArray("Task\0", 5));
        QTest::newRow("in a list") << QByteArray("a, " + evil);
        QTest::newRow("behind two blanks") << QByteArray("a,  " + evil);
        QTest::newRow("second letter as a number") << QByteArray("@\\x56\\x61" + evil.mid(3));
        QTest::newRow("quote within") << QByteArray("@Va\"" + evil.mid(3) + '"');
        QTest::newRow("line goes on") << QByteArray("@Var\\\niant(" + evil.mid(9));
        QTest::newRow("carriage return") << QByteArray("@\rb=" + evil);
        QTest::newRow("quote left open") << QByteArray("\"@text");
        QTest::newRow("ends in a backslash") << QByteArray("abc\\");
    }

    void dropsWhatNobodyWrote()
    {
        QFETCH(QByteArray, value);
        const QByteArray before = "[General]\nlogged=true\n";
        const QByteArray after = "password=\"p;\\x44f\"\n";
        const QString path = m_folder.filePath(QString::fromLatin1(QTest::currentDataTag()) + s(" dropped"));
        QVERIFY(writeFile(path, before + "damaged=" + value + '\n' + after));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(s("^Error! Settings file is damaged: ")));
        const auto settings = openSettings(path);
        QVERIFY(settings->value(s("logged")).toBool());
        QCOMPARE(settings->value(s("password")).toString(), s("p;я"));
        QVERIFY(!settings->contains(s("damaged")));
        QVERIFY(contentsOf(path).startsWith(before) && contentsOf(path).endsWith(after));
    }

    // With a name as long as a name may be there is no room for a second one beside it.
    void keepsWhatCannotBeReplaced()
    {
        const QString path = m_folder.filePath(s("x").repeated(252));
        const QByteArray before = "[General]\nbefore=1\n";
        QVERIFY(writeFile(path, before));
        QSettings settings(path, QSettings::IniFormat);
        settings.setValue(s("after"), 2);
        QVERIFY(!syncSettings(settings));
        QCOMPARE(contentsOf(path), before);
    }

    // As root or a restored backup may leave it.
    void replacesWhatIsInTheWay_data()
    {
        QTest::addColumn<QString>("made"); // by a shell, of the file "f"
        QTest::addColumn<bool>("isRead");
        QTest::newRow("a link") << s("mv f g; ln -s g f") << true;
        QTest::newRow("not writable") << s("chmod 444 f") << true;
        QTest::newRow("not readable") << s("chmod 0 f") << false;
        QTest::newRow("not readable, not the first")
            << s("echo >f.unusable-1; chmod 0 f; touch -d 2020-01-01 f") << false;
        QTest::newRow("folder") << s("rm f; mkdir -p f/g") << false;
        QTest::newRow("pipe") << s("rm f; mkfifo f") << false;
        QTest::newRow("link to nowhere") << s("ln -sf nowhere/g f") << false;
    }

    void replacesWhatIsInTheWay()
    {
        QFETCH(QString, made);
        QFETCH(bool, isRead);
        const QTemporaryDir folder;
        const QString path = folder.filePath(s("f"));
        QVERIFY(writeFile(path, "[General]\nbefore=1\n"));
        QProcess shell;
        shell.setWorkingDirectory(folder.path());
        shell.start(s("sh"), {s("-ec"), made + s("; ls -A >../before")});
        QVERIFY(shell.waitForFinished() && shell.exitCode() == 0);
        const int files = contentsOf(folder.filePath(s("../before"))).count('\n');
        const WithoutPrivileges user;
        const auto settings = openSettings(path);
        QCOMPARE(settings->contains(s("before")), isRead);
        settings->setValue(s("after"), 2);
        bool written = false;
        QTRY_VERIFY(written || (written = syncSettings(*settings)));
        QCOMPARE(contentsOf(path), "[General]\nafter=2\n" + QByteArray(isRead ? "before=1\n" : ""));
        // Whatever could not be read is still there.
        const auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
        QCOMPARE(QDir(folder.path()).entryList(all).size(), files + (isRead ? 0 : 1));
    }

    void waitsForNoLockThatNobodySigned()
    {
        const QString path = m_folder.filePath(s("locked"));
        QVERIFY(writeFile(path + s(".lock"), QByteArray()));
        QSettings settings(path, QSettings::IniFormat);
        settings.setValue(s("a"), 1);
        QElapsedTimer time;
        time.start();
        QVERIFY(syncSettings(settings));
        QVERIFY2(time.elapsed() < 5000, qPrintable(QString::number(time.elapsed())));
        QCOMPARE(contentsOf(path), QByteArray("[General]\na=1\n"));
    }

    // Whatever is left after any damage can be read, entry by entry.
    void survivesDamage()
    {
        const QString path = m_folder.filePath(s("whole"));
        {
            const auto settings = openSettings(path);
            settings->setValue(s("counters"), QVariantMap{{s("1"), QTime(1, 31)}});
            settings->setValue(s("details"), details());
            settings->setValue(s("versions"), QVariantList{QVariantMap{{s("a"), QVariantList{1}}}});
        }
        const QByteArray whole = contentsOf(path);
        const auto readAll = [this](const QByteArray &damaged) {
            const QString copy = m_folder.filePath(s("damaged"));
            QVERIFY(writeFile(copy, soundLines(damaged)));
            const QSettings settings(copy, QSettings::IniFormat);
            const QStringList keys = settings.allKeys();
            for (const QString &key : keys)
                settings.value(key);
            QVERIFY(keys.size() <= 4);
        };
        for (int at = 0; at < whole.size(); ++at) {
            readAll(whole.left(at));
            for (int bit = 1; bit < 0x100; bit *= 2) {
                QByteArray damaged = whole;
                damaged[at] = static_cast<char>(damaged.at(at) ^ bit);
                readAll(damaged);
            }
        }
    }

    void readsWhatAnotherProcessRepaired()
    {
        const QString path = m_folder.filePath(s("shared"));
        const auto settings = openSettings(path);
        QVERIFY(writeFile(
            path, "[General]\nforceUpdate=true\nx=" + variant(number(kList) + number(0x0FFFFFFF)) + '\n'));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(s("^Error! Settings file is damaged: ")));
        QVERIFY(repairSettings(path));
        settings->sync();
        QCOMPARE(settings->allKeys(), QStringList{s("forceUpdate")});
    }

private:
    static QVariant details()
    {
        TaskInfo info;
        info.title = s("Ёж, \"тест\" = \\ ; @Variant(");
        info.deadline = QDateTime(QDate(2026, 3, 1), QTime(18, 0));
        info.texts.append(TextTask());
        info.texts[0].page = QUrl(s("https://site.example/page"));
        return QVariant::fromValue(info);
    }

    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestSettingsFile)
#include "tst_settingsfile.moc"
