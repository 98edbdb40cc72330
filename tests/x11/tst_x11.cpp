#include "qxtglobalshortcut.h"
#include "qxtwindowsystem.h"
#include "realinput.h"
#include "rows.h"

#include <QApplication>
#include <QWidget>
#include <QWindow>

#include <cstdio>
#include <memory>

namespace {

using System = QxtWindowSystem;

constexpr int kStartTimeout = 10000;
const QString kHold = s("--hold");
const QString kOtherTitle = s("other program");
const QKeySequence kSequence(s("Ctrl+Alt+P"));
const QString kKeys = s("ctrl+alt+p");

// Another program, ended with its object.
class Other final
{
public:
    Other(const QString &program, const QStringList &arguments) { process.start(program, arguments); }
    ~Other()
    {
        process.kill();
        process.waitForFinished();
    }

    QByteArray line()
    {
        while (!process.canReadLine() && process.waitForReadyRead(kStartTimeout)) { }
        return process.readLine().trimmed();
    }

    QProcess process;
};

// A second instance of this program: holds a key until it is killed, and prints whether it can.
int holdKey(const QString &sequence)
{
    const QxtGlobalShortcut shortcut{QKeySequence(sequence)};
    std::puts(shortcut.isHeld() ? "held" : "refused");
    std::fflush(stdout);
    return QApplication::exec();
}

bool otherProgramCanHave(const QKeySequence &sequence)
{
    return Other(QCoreApplication::applicationFilePath(), {kHold, sequence.toString()}).line() == "held";
}

bool setLayout(const QString &layout)
{
    return QProcess::execute(s("setxkbmap"), {s("-layout"), layout}) == 0;
}

void setLock(const QString &name, bool on)
{
    const auto isOn = [&name] {
        Other tool(s("xset"), {s("q")});
        tool.process.waitForFinished();
        return QString::fromLatin1(tool.process.readAll()).simplified().contains(name + s(": on"));
    };
    if (isOn() != on)
        QVERIFY(pressKeys(QString(name).replace(QLatin1Char(' '), QLatin1Char('_'))));
    QCOMPARE(isOn(), on);
}

const QString kCapsLock = s("Caps Lock");
const QString kNumLock = s("Num Lock");

} // namespace

class TestX11 final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_otherWindow = std::make_unique<Other>(s("xev"), texts({"-name"}) << kOtherTitle);
        QTRY_COMPARE_WITH_TIMEOUT(System::windowTitle(System::activeWindow()), kOtherTitle, kStartTimeout);
    }
    void cleanupTestCase() { m_otherWindow.reset(); }

    void cleanup()
    {
        setLock(kCapsLock, false);
        setLock(kNumLock, false);
        QVERIFY(setLayout(s("us")));
        QxtGlobalShortcut shortcut;
        QTRY_VERIFY(shortcut.setShortcut(kSequence)); // the change of layout has arrived
    }

    void activatesWithAnyLocks_data()
    {
        addColumns<QString, QKeySequence, QString>("layout", "sequence", "keys");
        QTest::newRow("letter") << "us" << kSequence << "ctrl+alt+p";
        QTest::newRow("needs Shift") << "us" << QKeySequence(Qt::CTRL | Qt::Key_Exclam) << "ctrl+shift+1";
        QTest::newRow("named key") << "us" << QKeySequence(Qt::META | Qt::Key_PageUp) << "super+Prior";
        QTest::newRow("second layout") << "ru,us" << kSequence << "ctrl+alt+33";
        QTest::newRow("not Latin") << "us,ru" << QKeySequence(Qt::CTRL | 0x0424) << "ctrl+38";
    }

    void activatesWithAnyLocks()
    {
        QFETCH(QString, layout);
        QFETCH(QKeySequence, sequence);
        QFETCH(QString, keys);
        QVERIFY(setLayout(layout));
        QxtGlobalShortcut shortcut;
        QTRY_VERIFY(shortcut.setShortcut(sequence)); // the change of layout has arrived
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        for (const int locks : {0, 1, 3, 2}) {
            setLock(kCapsLock, locks & 1);
            setLock(kNumLock, locks & 2);
            QVERIFY(pressKeys(keys));
            QVERIFY(activations.wait());
        }
        QCOMPARE(activations.count(), 4);
        QCOMPARE(System::windowTitle(System::activeWindow()), kOtherTitle);
    }

    void hearsOnlyItsOwnKey()
    {
        QxtGlobalShortcut shortcut(kSequence);
        QxtGlobalShortcut last(QKeySequence(Qt::CTRL | Qt::Key_F7));
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        QSignalSpy lastActivations(&last, &QxtGlobalShortcut::activated);
        for (const char *keys : {"p", "ctrl+p", "alt+p", "ctrl+alt+shift+p", "ctrl+alt+o", "ctrl+F7"})
            QVERIFY(pressKeys(s(keys)));
        QTRY_COMPARE(lastActivations.count(), 1);
        QCOMPARE(activations.count(), 0);
        // Changing the key leaves the old one.
        QVERIFY(shortcut.setShortcut(QKeySequence(s("Ctrl+Alt+O"))));
        QVERIFY(pressKeys(kKeys));
        QVERIFY(pressKeys(s("ctrl+alt+o")));
        QTRY_COMPARE(activations.count(), 1);
        QVERIFY(otherProgramCanHave(kSequence));
    }

    void isRefusedWhatAnotherProgramHolds()
    {
        auto other = std::make_unique<Other>(QCoreApplication::applicationFilePath(),
                                             QStringList{kHold, kSequence.toString()});
        QCOMPARE(other->line(), QByteArray("held"));
        QxtGlobalShortcut shortcut;
        QVERIFY(!shortcut.setShortcut(kSequence));
        other.reset();
        QTRY_VERIFY(shortcut.setShortcut(kSequence));
        QVERIFY(!otherProgramCanHave(kSequence));
        QVERIFY(!shortcut.setShortcut({}));
        QVERIFY(otherProgramCanHave(kSequence));
    }

    void followsTheKeyboardLayout()
    {
        QxtGlobalShortcut shortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
        // The French layout has the letter where the English one has "a".
        QVERIFY(setLayout(s("fr")));
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        const auto isHeard = [&] { return pressKeys(s("ctrl+38")) && activations.wait(200); };
        QTRY_VERIFY(isHeard());
        QVERIFY(setLayout(s("ru")));
        QTRY_VERIFY(!shortcut.isHeld());
        QVERIFY(setLayout(s("us")));
        QTRY_VERIFY(shortcut.isHeld());
    }

    void mayBeDestroyedByItsSlot()
    {
        auto shortcut = std::make_unique<QxtGlobalShortcut>(kSequence);
        connect(shortcut.get(), &QxtGlobalShortcut::activated, this, [&] { shortcut.reset(); });
        QVERIFY(pressKeys(kKeys));
        QTRY_VERIFY(!shortcut);
        QVERIFY(otherProgramCanHave(kSequence));
    }

    void knowsTheWindows()
    {
        const QString title = s("Отчёт — «Ω» 漢字");
        QWidget own;
        own.setWindowTitle(title);
        own.setGeometry(300, 200, 321, 123);
        own.show();
        QVERIFY(QTest::qWaitForWindowActive(&own));
        QTRY_COMPARE(System::findWindow(title), own.winId());
        QTRY_COMPARE(System::activeWindow(), own.winId());
        QTRY_COMPARE(System::windowGeometry(own.winId()), own.geometry());
        QCOMPARE(own.size(), QSize(321, 123));
        auto other =
            std::make_unique<Other>(s("xev"), texts({"-name", "another program", "-geometry", "211x87"}));
        const auto find = [] { return System::findWindow(s("another program")); };
        QTRY_VERIFY_WITH_TIMEOUT(find() != 0, kStartTimeout);
        const WId window = find();
        QTRY_COMPARE(System::activeWindow(), window);
        QCOMPARE(System::windowGeometry(window).size(), QSize(211, 87));
        QCOMPARE(System::findWindow(s("another")), WId(0));
        other.reset();
        QTRY_COMPARE(find(), WId(0));
        QCOMPARE(System::windowTitle(window), QString());
        QCOMPARE(System::windowGeometry(window), QRect());
    }

    void measuresIdleTime()
    {
        using namespace std::chrono_literals;
        const auto idle = [] { return System::idleTime().value_or(-1ms); };
        QTRY_VERIFY(idle() >= 400ms);
        QVERIFY(pressKeys(s("a")));
        QVERIFY2(idle() >= 0ms && idle() < 400ms, qPrintable(QString::number(idle().count())));
    }

    void doesNotRepeatWhileHeldDown()
    {
        constexpr int kLongerThanRepeatDelay = 1000;
        QxtGlobalShortcut shortcut(QKeySequence(Qt::Key_F8));
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        QVERIFY(xdotool(s("keydown"), {s("F8")}));
        QTRY_COMPARE(activations.count(), 1);
        QVERIFY(!activations.wait(kLongerThanRepeatDelay));
        QVERIFY(xdotool(s("keyup"), {s("F8")}));
    }

private:
    std::unique_ptr<Other> m_otherWindow;
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == kHold)
        return holdKey(arguments.value(2));
    TestX11 test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_x11.moc"
