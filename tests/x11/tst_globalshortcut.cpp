#include "qxtglobalshortcut.h"
#include "qxtwindowsystem.h"
#include "realinput.h"

#include <QApplication>
#include <QSignalSpy>
#include <QTest>

#include <cstdio>
#include <memory>

namespace {

constexpr int kStartTimeout = 10000;
const QString kHold = QStringLiteral("--hold");
const QString kOtherTitle = QStringLiteral("other program");
const QKeySequence kSequence(QStringLiteral("Ctrl+Alt+P"));
const QString kKeys = QStringLiteral("ctrl+alt+p");

// This program, started once more to take a key; it says whether it could and keeps it until it is ended.
int holdKey(const QString &sequence)
{
    const QxtGlobalShortcut shortcut{QKeySequence(sequence)};
    std::puts(shortcut.state() == QxtGlobalShortcut::State::Active ? "held" : "refused");
    std::fflush(stdout);
    return QApplication::exec();
}

class OtherProgram final
{
public:
    explicit OtherProgram(const QKeySequence &sequence)
    {
        m_process.start(QCoreApplication::applicationFilePath(), {kHold, sequence.toString()});
        while (!m_process.canReadLine() && m_process.waitForReadyRead(kStartTimeout)) { }
        answer = m_process.readLine().trimmed();
    }

    ~OtherProgram()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    QByteArray answer;

private:
    QProcess m_process;
};

bool otherProgramCanHave(const QKeySequence &sequence)
{
    return OtherProgram(sequence).answer == "held";
}

bool setLayout(const QString &layout)
{
    return QProcess::execute(QStringLiteral("setxkbmap"), {QStringLiteral("-layout"), layout}) == 0;
}

bool lockIsOn(const QString &name)
{
    QProcess process;
    process.start(QStringLiteral("xset"), {QStringLiteral("q")});
    process.waitForFinished();
    return QString::fromLatin1(process.readAll()).simplified().contains(name + QStringLiteral(": on"));
}

void setLock(const QString &name, bool on)
{
    if (lockIsOn(name) != on)
        QVERIFY(pressKeys(QString(name).replace(QLatin1Char(' '), QLatin1Char('_'))));
    QCOMPARE(lockIsOn(name), on);
}

const QString kCapsLock = QStringLiteral("Caps Lock");
const QString kNumLock = QStringLiteral("Num Lock");

} // namespace

class GlobalShortcutTest final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void isHeardWhateverTheLocksSay_data();
    void isHeardWhateverTheLocksSay();
    void hearsOnlyItsOwnKey();
    void tellsThatAnotherProgramHoldsTheKey();
    void letsGoOfTheKey();
    void sharesTheKeyWithinTheProgram();
    void doesNotRepeatWhileHeldDown();
    void followsTheKeyboardLayout();
    void mayBeDestroyedByItsSlot();
    void refusesWhatIsNoKey_data();
    void refusesWhatIsNoKey();

private:
    QProcess m_otherWindow;
};

void GlobalShortcutTest::initTestCase()
{
    qRegisterMetaType<QxtGlobalShortcut::State>();
    m_otherWindow.setStandardOutputFile(QProcess::nullDevice());
    m_otherWindow.start(QStringLiteral("xev"), {QStringLiteral("-name"), kOtherTitle});
    QTRY_COMPARE_WITH_TIMEOUT(QxtWindowSystem::windowTitle(QxtWindowSystem::activeWindow()), kOtherTitle,
                              kStartTimeout);
}

void GlobalShortcutTest::cleanup()
{
    setLock(kCapsLock, false);
    setLock(kNumLock, false);
    QVERIFY(setLayout(QStringLiteral("us")));
    QxtGlobalShortcut shortcut;
    QTRY_VERIFY(shortcut.setShortcut(kSequence)); // the news of the layout is here
}

void GlobalShortcutTest::cleanupTestCase()
{
    m_otherWindow.kill();
    m_otherWindow.waitForFinished();
}

void GlobalShortcutTest::isHeardWhateverTheLocksSay_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QKeySequence>("sequence");
    QTest::addColumn<QString>("keys");

    const auto row = [](const char *name, const char *layout, const QKeySequence &sequence,
                        const char *keys) {
        QTest::newRow(name) << QString::fromLatin1(layout) << sequence << QString::fromLatin1(keys);
    };
    row("letter", "us", kSequence, "ctrl+alt+p");
    row("function key alone", "us", Qt::Key_F8, "F8");
    row("function key", "us", Qt::SHIFT | Qt::CTRL | Qt::Key_F12, "shift+ctrl+F12");
    row("super and blank", "us", Qt::META | Qt::Key_Space, "super+space");
    row("shifted character", "us", Qt::CTRL | Qt::Key_Exclam, "ctrl+shift+1");
    row("backtab", "us", Qt::CTRL | Qt::Key_Backtab, "ctrl+shift+Tab");
    row("keypad digit", "us", Qt::CTRL | Qt::KeypadModifier | Qt::Key_5, "ctrl+84");
    row("editing key", "us", Qt::CTRL | Qt::Key_Insert, "ctrl+Insert");
    row("media key", "us", Qt::Key_MediaPlay, "XF86AudioPlay");
    row("Latin letter of the second layout", "ru,us", kSequence, "ctrl+alt+33");
    row("Cyrillic letter", "us,ru", QKeySequence(Qt::CTRL | 0x0424), "ctrl+38");
    row("Cyrillic letter outside Latin keys", "ru", QKeySequence(Qt::CTRL | 0x0416), "ctrl+47");
}

void GlobalShortcutTest::isHeardWhateverTheLocksSay()
{
    QFETCH(QString, layout);
    QFETCH(QKeySequence, sequence);
    QFETCH(QString, keys);
    QVERIFY(setLayout(layout));
    QxtGlobalShortcut shortcut;
    QTRY_VERIFY(shortcut.setShortcut(sequence));
    QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);

    int expected = 0;
    for (const bool caps : {false, true}) {
        for (const bool num : {false, true}) {
            setLock(kCapsLock, caps);
            setLock(kNumLock, num);
            QVERIFY(pressKeys(keys));
            ++expected;
            QTRY_COMPARE(activations.count(), expected);
        }
    }
    QCOMPARE(QxtWindowSystem::windowTitle(QxtWindowSystem::activeWindow()), kOtherTitle);
}

void GlobalShortcutTest::hearsOnlyItsOwnKey()
{
    QxtGlobalShortcut shortcut(kSequence);
    QxtGlobalShortcut last(QKeySequence(Qt::CTRL | Qt::Key_F7));
    QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
    QSignalSpy lastActivations(&last, &QxtGlobalShortcut::activated);
    for (const char *keys : {"p", "ctrl+p", "alt+p", "ctrl+alt+shift+p", "ctrl+alt+o", "ctrl+F7"})
        QVERIFY(pressKeys(QString::fromLatin1(keys)));
    QTRY_COMPARE(lastActivations.count(), 1);
    QCOMPARE(activations.count(), 0);

    // In the second layout the full stop is on the slash's key, which stays the slash's.
    QVERIFY(setLayout(QStringLiteral("us,ru")));
    QTRY_VERIFY(shortcut.setShortcut(QKeySequence(Qt::CTRL | 0x0416)));
    QVERIFY(shortcut.setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Period)));
    QVERIFY(pressKeys(QStringLiteral("ctrl+61")));
    QVERIFY(pressKeys(QStringLiteral("ctrl+F7")));
    QTRY_COMPARE(lastActivations.count(), 2);
    QCOMPARE(activations.count(), 0);

    // Changing the key leaves the old one.
    QVERIFY(shortcut.setShortcut(kSequence));
    QVERIFY(shortcut.setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_O)));
    QVERIFY(pressKeys(kKeys));
    QVERIFY(pressKeys(QStringLiteral("ctrl+alt+o")));
    QTRY_COMPARE(activations.count(), 1);
    QVERIFY(otherProgramCanHave(kSequence));
}

void GlobalShortcutTest::tellsThatAnotherProgramHoldsTheKey()
{
    using State = QxtGlobalShortcut::State;
    auto other = std::make_unique<OtherProgram>(kSequence);
    QCOMPARE(other->answer, QByteArray("held"));
    QxtGlobalShortcut shortcut;
    QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
    QSignalSpy states(&shortcut, &QxtGlobalShortcut::stateChanged);
    QVERIFY(!shortcut.setShortcut(kSequence));
    QCOMPARE(shortcut.state(), State::HeldByAnother);
    QCOMPARE(states.count(), 1);

    QxtGlobalShortcut fence(QKeySequence(Qt::CTRL | Qt::Key_F7));
    QSignalSpy fenceActivations(&fence, &QxtGlobalShortcut::activated);
    QVERIFY(pressKeys(kKeys));
    QVERIFY(pressKeys(QStringLiteral("ctrl+F7")));
    QTRY_COMPARE(fenceActivations.count(), 1);
    QCOMPARE(activations.count(), 0);

    other.reset();
    const auto canBeHad = [&] {
        shortcut.setEnabled(true);
        return shortcut.state() == State::Active;
    };
    QTRY_VERIFY(canBeHad());
    QVERIFY(pressKeys(kKeys));
    QTRY_COMPARE(activations.count(), 1);
}

void GlobalShortcutTest::letsGoOfTheKey()
{
    auto shortcut = std::make_unique<QxtGlobalShortcut>(kSequence);
    QSignalSpy activations(shortcut.get(), &QxtGlobalShortcut::activated);
    QVERIFY(!otherProgramCanHave(kSequence));
    shortcut->setEnabled(false);
    QVERIFY(otherProgramCanHave(kSequence));
    shortcut->setEnabled(true);
    QVERIFY(pressKeys(kKeys));
    QTRY_COMPARE(activations.count(), 1);
    QVERIFY(!otherProgramCanHave(kSequence));
    shortcut->setShortcut({});
    QCOMPARE(shortcut->state(), QxtGlobalShortcut::State::Inactive);
    QVERIFY(otherProgramCanHave(kSequence));
    shortcut->setShortcut(kSequence);
    shortcut.reset();
    QVERIFY(otherProgramCanHave(kSequence));
}

void GlobalShortcutTest::sharesTheKeyWithinTheProgram()
{
    auto first = std::make_unique<QxtGlobalShortcut>(kSequence);
    QxtGlobalShortcut second(kSequence);
    QCOMPARE(second.state(), QxtGlobalShortcut::State::Active);
    QSignalSpy firstActivations(first.get(), &QxtGlobalShortcut::activated);
    QSignalSpy secondActivations(&second, &QxtGlobalShortcut::activated);
    QVERIFY(pressKeys(kKeys));
    QTRY_COMPARE(secondActivations.count(), 1);
    QTRY_COMPARE(firstActivations.count(), 1);

    first.reset();
    QVERIFY(!otherProgramCanHave(kSequence));
    QVERIFY(pressKeys(kKeys));
    QTRY_COMPARE(secondActivations.count(), 2);
}

void GlobalShortcutTest::doesNotRepeatWhileHeldDown()
{
    constexpr int kLongerThanRepeatDelay = 1200;
    QxtGlobalShortcut shortcut(QKeySequence(Qt::Key_F8));
    QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
    QVERIFY(xdotool(QStringLiteral("keydown"), {QStringLiteral("F8")}));
    QTRY_COMPARE(activations.count(), 1);
    QVERIFY(!activations.wait(kLongerThanRepeatDelay));
    QVERIFY(xdotool(QStringLiteral("keyup"), {QStringLiteral("F8")}));
    QVERIFY(pressKeys(QStringLiteral("F8")));
    QTRY_COMPARE(activations.count(), 2);
}

void GlobalShortcutTest::followsTheKeyboardLayout()
{
    QxtGlobalShortcut shortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
    QVERIFY(pressKeys(QStringLiteral("ctrl+24")));
    QTRY_COMPARE(activations.count(), 1);

    // The French layout has the letter where the English one has "a".
    QVERIFY(setLayout(QStringLiteral("fr")));
    const auto isHeard = [&] { return pressKeys(QStringLiteral("ctrl+38")) && activations.wait(200); };
    QTRY_VERIFY(isHeard());
    QVERIFY(setLayout(QStringLiteral("ru")));
    QTRY_COMPARE(shortcut.state(), QxtGlobalShortcut::State::Unavailable);
    QVERIFY(setLayout(QStringLiteral("us")));
    QTRY_COMPARE(shortcut.state(), QxtGlobalShortcut::State::Active);
}

void GlobalShortcutTest::mayBeDestroyedByItsSlot()
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

void GlobalShortcutTest::refusesWhatIsNoKey_data()
{
    QTest::addColumn<QKeySequence>("sequence");
    QTest::newRow("two chords") << QKeySequence(Qt::CTRL | Qt::Key_K, Qt::CTRL | Qt::Key_B);
    QTest::newRow("modifier alone") << QKeySequence(Qt::Key_Control);
    QTest::newRow("not on this keyboard") << QKeySequence(Qt::CTRL | 0x0416);
    QTest::newRow("unknown") << QKeySequence(Qt::Key_unknown);
    QTest::newRow("no code point") << QKeySequence(0x00ffffff);
    QTest::newRow("parse failure") << QKeySequence(QStringLiteral("Ctrl+Nonsense"));
}

void GlobalShortcutTest::refusesWhatIsNoKey()
{
    QFETCH(QKeySequence, sequence);
    QxtGlobalShortcut shortcut(kSequence);
    QVERIFY(!shortcut.setShortcut(sequence));
    QCOMPARE(shortcut.state(), QxtGlobalShortcut::State::Unavailable);
    QVERIFY(otherProgramCanHave(kSequence));
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 3 && arguments[1] == kHold)
        return holdKey(arguments[2]);
    GlobalShortcutTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_globalshortcut.moc"
