#include "qxtglobalshortcut.h"
#include "qxtwindowsystem.h"
#include "realinput.h"
#include "rows.h"
#include "virtualdisplay.h"

#include <QApplication>
#include <QWidget>
#include <QWindow>

#include <cstdio>
#include <limits>
#include <memory>

namespace {

using State = QxtGlobalShortcut::State;
using System = QxtWindowSystem;

constexpr int kStartTimeout = 10000;
const QString kHold = s("--hold");
const QString kDescribe = s("--describe");
const QString kOtherTitle = s("other program");
const QKeySequence kSequence(s("Ctrl+Alt+P"));
const QString kKeys = s("ctrl+alt+p");

// Another program, ended with its object.
class Other final
{
public:
    Other(const QString &program, const QStringList &arguments,
          const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
    }
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

// This program once more takes a key, says whether it could and keeps it until it is ended.
int holdKey(const QString &sequence)
{
    const QxtGlobalShortcut shortcut{QKeySequence(sequence)};
    std::puts(shortcut.state() == State::Active ? "held" : "refused");
    std::fflush(stdout);
    return QApplication::exec();
}

bool otherProgramCanHave(const QKeySequence &sequence)
{
    return Other(QCoreApplication::applicationFilePath(), {kHold, sequence.toString()}).line() == "held";
}

// This program once more, on another server: the titles from the lowest to the uppermost window.
int describe()
{
    QStringList titles;
    const QVector<WId> windows = System::windows();
    for (const WId window : windows)
        titles.append(System::windowTitle(window));
    std::puts(qUtf8Printable(titles.join(QLatin1Char('|'))));
    return 0;
}

QByteArray describedIn(const QProcessEnvironment &environment)
{
    Other self(QCoreApplication::applicationFilePath(), {kDescribe}, environment);
    self.process.waitForFinished(kStartTimeout);
    return self.process.exitStatus() == QProcess::NormalExit ? self.line() : QByteArray("crashed");
}

bool setLayout(const char *layout)
{
    return QProcess::execute(s("setxkbmap"), {s("-layout"), s(layout)}) == 0;
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
        qRegisterMetaType<State>();
        m_otherWindow = std::make_unique<Other>(s("xev"), texts({"-name"}) << kOtherTitle);
        QTRY_COMPARE_WITH_TIMEOUT(System::windowTitle(System::activeWindow()), kOtherTitle, kStartTimeout);
    }
    void cleanupTestCase() { m_otherWindow.reset(); }

    void cleanup()
    {
        setLock(kCapsLock, false);
        setLock(kNumLock, false);
        QVERIFY(setLayout("us"));
        QxtGlobalShortcut shortcut;
        QTRY_VERIFY(shortcut.setShortcut(kSequence)); // the news of the layout is here
    }

    void isHeardWhateverTheLocksSay()
    {
        const std::tuple<const char *, QKeySequence, const char *> rows[] = {
            {"us", kSequence, "ctrl+alt+p"},
            {"us", Qt::CTRL | Qt::Key_Exclam, "ctrl+shift+1"},
            {"us", Qt::CTRL | Qt::KeypadModifier | Qt::Key_5, "ctrl+84"},
            {"ru,us", kSequence, "ctrl+alt+33"},
            {"us,ru", Qt::CTRL | 0x0424, "ctrl+38"}};
        for (const auto &[layout, sequence, keys] : rows) {
            QVERIFY(setLayout(layout));
            QxtGlobalShortcut shortcut;
            const auto isTaken = [&shortcut, key = sequence] { return shortcut.setShortcut(key); };
            QTRY_VERIFY(isTaken()); // the news of the layout is here
            QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
            for (const int locks : {0, 1, 3, 2}) {
                setLock(kCapsLock, locks & 1);
                setLock(kNumLock, locks & 2);
                QVERIFY(pressKeys(s(keys)));
                QVERIFY2(activations.wait(), keys);
            }
            QCOMPARE(activations.count(), 4);
        }
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

    void tellsThatAnotherProgramHoldsTheKey()
    {
        auto other = std::make_unique<Other>(QCoreApplication::applicationFilePath(),
                                             QStringList{kHold, kSequence.toString()});
        QCOMPARE(other->line(), QByteArray("held"));
        QxtGlobalShortcut shortcut;
        QSignalSpy states(&shortcut, &QxtGlobalShortcut::stateChanged);
        QVERIFY(!shortcut.setShortcut(kSequence));
        QCOMPARE(shortcut.state(), State::HeldByAnother);
        QCOMPARE(states.count(), 1);
        other.reset();
        const auto canBeHad = [&] {
            shortcut.setEnabled(true);
            return shortcut.state() == State::Active;
        };
        QTRY_VERIFY(canBeHad());
    }

    void sharesTheKeyAndLetsGoOfIt()
    {
        auto first = std::make_unique<QxtGlobalShortcut>(kSequence);
        auto second = std::make_unique<QxtGlobalShortcut>(kSequence);
        QSignalSpy firstActivations(first.get(), &QxtGlobalShortcut::activated);
        QSignalSpy secondActivations(second.get(), &QxtGlobalShortcut::activated);
        QVERIFY(pressKeys(kKeys));
        QTRY_COMPARE(secondActivations.count(), 1);
        QTRY_COMPARE(firstActivations.count(), 1);
        first.reset();
        QVERIFY(!otherProgramCanHave(kSequence));
        QVERIFY(pressKeys(kKeys));
        QTRY_COMPARE(secondActivations.count(), 2);
        second->setEnabled(false);
        QVERIFY(otherProgramCanHave(kSequence));
        second->setEnabled(true);
        QVERIFY(!otherProgramCanHave(kSequence));
        second->setShortcut({});
        QCOMPARE(second->state(), State::Inactive);
        QVERIFY(otherProgramCanHave(kSequence));
        second->setShortcut(kSequence);
        second.reset();
        QVERIFY(otherProgramCanHave(kSequence));
    }

    void followsTheKeyboardLayout()
    {
        QxtGlobalShortcut shortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
        // The French layout has the letter where the English one has "a".
        QVERIFY(setLayout("fr"));
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        const auto isHeard = [&] { return pressKeys(s("ctrl+38")) && activations.wait(200); };
        QTRY_VERIFY(isHeard());
        QVERIFY(setLayout("ru"));
        QTRY_COMPARE(shortcut.state(), State::Unavailable);
        QVERIFY(setLayout("us"));
        QTRY_COMPARE(shortcut.state(), State::Active);
    }

    void mayBeDestroyedByItsSlot()
    {
        auto *first = new QxtGlobalShortcut(kSequence);
        auto *second = new QxtGlobalShortcut(kSequence);
        int activations = 0;
        const auto destroyBoth = [&] {
            ++activations;
            delete first;
            delete second;
        };
        connect(first, &QxtGlobalShortcut::activated, this, destroyBoth);
        connect(second, &QxtGlobalShortcut::activated, this, destroyBoth);
        QVERIFY(pressKeys(kKeys));
        QTRY_COMPARE(activations, 1);
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
        for (const WId bad :
             {window, WId(0), WId(1), (WId(1) << 32) + own.winId(), std::numeric_limits<WId>::max()}) {
            QCOMPARE(System::windowTitle(bad), QString());
            QCOMPARE(System::windowGeometry(bad), QRect());
        }
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

    void worksWithoutAWindowManager()
    {
        const VirtualDisplay server;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(s("DISPLAY"), server.name());
        const Other lower(s("xev"), texts({"-name", "lower"}), environment);
        QTRY_COMPARE(describedIn(environment), QByteArray("lower"));
        const Other upper(s("xev"), texts({"-name", "upper"}), environment);
        QTRY_COMPARE(describedIn(environment), QByteArray("lower|upper"));
        environment.insert(s("QT_QPA_PLATFORM"), s("offscreen"));
        QCOMPARE(describedIn(environment), QByteArray());
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
    if (arguments.value(1) == kDescribe)
        return describe();
    TestX11 test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_x11.moc"
