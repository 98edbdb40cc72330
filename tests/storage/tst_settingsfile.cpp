#include "files.h"
#include "model/records.h"
#include "rows.h"
#include "storage/settingsfile.h"

#include <QProcess>

#include <linux/capability.h>
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

} // namespace

// No file, whatever has become of it, takes the client's memory or stack.
class TestSettingsFile final : public QObject
{
    Q_OBJECT

private slots:
    // Also root may then not open what is not shared with him.
    void initTestCase()
    {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2] = {};
        syscall(SYS_capget, &header, data);
        data[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        syscall(SYS_capset, &header, data);
    }

    void keepsWhatIsWritten()
    {
        QString everyUnit;
        for (ushort unit = 0; unit < 0x500; ++unit)
            everyUnit += QChar(unit) + s("a0F@,");
        TaskInfo info;
        info.title = s("Ёж, \"тест\" = \\ ; @Variant(");
        info.deadline = QDateTime(QDate(2026, 3, 1), QTime(18, 0));
        info.texts.append(TextTask());
        info.texts[0].page = QUrl(s("https://site.example/page"));
        const QVariantList values{everyUnit,
                                  QStringList{s("a, b"), QString(), s("@x"), s(" ")},
                                  QVariantMap{{s("1702"), QTime(1, 31)}, {QString(), QTime()}},
                                  QVariantList{1, 2U, -3LL, 4ULL, 1.5, true, QVariant(), QVariantMap()},
                                  QVariant::fromValue(info),
                                  QVariant::fromValue(QList<Task>{Task(), Task::catchAll()})};
        const QString path = m_folder.filePath(s("written"));
        {
            const auto settings = openSettings(path);
            for (const QVariant &value : values)
                settings->setValue(s("an/id, \"of\" \\ ж %1").arg(value.userType()), value);
        }
        const QByteArray written = contentsOf(path);
        QVERIFY(written.size() > everyUnit.size());
        QCOMPARE(soundLines(written), written);
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
        QTest::newRow("behind two blanks") << QByteArray("a,  " + evil);
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
        const QString path = m_folder.filePath(QString::fromLatin1(QTest::currentDataTag()));
        QVERIFY(writeFile(path, before + "damaged=" + value + '\n' + after));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(s("^Error! Settings file is damaged: ")));
        const auto settings = openSettings(path);
        QVERIFY(settings->value(s("logged")).toBool() && !settings->contains(s("damaged")));
        QCOMPARE(settings->value(s("password")).toString(), s("p;я"));
        QVERIFY(contentsOf(path).startsWith(before) && contentsOf(path).endsWith(after));
    }

    // As root or a restored backup may leave it: what a shell makes of the file "f".
    void replacesWhatIsInTheWay_data()
    {
        addRows({{"mv f g; ln -s g f", "read"},
                 {"chmod 444 f", "read"},
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
        const QTemporaryDir folder;
        const QString path = folder.filePath(s("f"));
        QVERIFY(writeFile(path, "[General]\nbefore=1\n"));
        QProcess shell;
        shell.setWorkingDirectory(folder.path());
        shell.start(s("sh"), {s("-ec"), input});
        QVERIFY(shell.waitForFinished() && shell.exitCode() == 0);
        const auto files = [&folder] {
            const auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
            return QDir(folder.path()).entryList(all).size();
        };
        const int before = files();
        const auto settings = openSettings(path);
        QCOMPARE(settings->contains(s("before")), isRead);
        settings->setValue(s("after"), 2);
        bool written = false;
        QTRY_VERIFY(written || (written = syncSettings(*settings)));
        QCOMPARE(contentsOf(path), "[General]\nafter=2\n" + QByteArray(isRead ? "before=1\n" : ""));
        // Whatever could not be read is still there.
        QCOMPARE(files(), before + (isRead ? 0 : 1));
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
        QVERIFY2(time.elapsed() < 5000, "Qt waits 30 s");
        QCOMPARE(contentsOf(path), QByteArray("[General]\na=1\n"));
    }

private:
    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestSettingsFile)
#include "tst_settingsfile.moc"
