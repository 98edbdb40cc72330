#include "qxtglobalshortcut.h"
#include "qxtwindowsystem.h"
#include "realinput.h"
#include "rows.h"

#include <QApplication>
#include <QWidget>
#include <QWindow>

#include <memory>

#include <xcb/xcb.h>

namespace {

using System = QxtWindowSystem;

const QString kOtherTitle = s("other program");
const QKeySequence kSequence(s("Ctrl+Alt+P"));
const QString kKeys = s("ctrl+alt+p");

// Another client of the X server, which holds the key of kSequence if it can have it.
class Other final
{
public:
    Other()
    {
        constexpr xcb_keycode_t p = 33;
        const auto request = xcb_grab_key_checked(
            m_connection, 0, xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root,
            XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1, p, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        xcb_generic_error_t *error = xcb_request_check(m_connection, request);
        holds = error == nullptr;
        std::free(error);
    }
    ~Other() { xcb_disconnect(m_connection); }
    Q_DISABLE_COPY_MOVE(Other)

    bool holds = false;

private:
    xcb_connection_t *m_connection = xcb_connect(nullptr, nullptr);
};

bool setLayout(const QString &layout)
{
    return QProcess::execute(s("setxkbmap"), {s("-layout"), layout}) == 0;
}

} // namespace

class TestX11 final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_other.start(s("xev"), texts({"-geometry", "211x87", "-name"}) << kOtherTitle);
        QTRY_COMPARE_WITH_TIMEOUT(System::windowTitle(System::activeWindow()), kOtherTitle, 10000);
    }
    void cleanupTestCase()
    {
        m_other.kill();
        m_other.waitForFinished();
    }

    void cleanup()
    {
        QVERIFY(setLayout(s("us")));
        QxtGlobalShortcut shortcut;
        QTRY_VERIFY(shortcut.setShortcut(kSequence)); // the change of layout has arrived
    }

    void activatesWithAnyLocks_data()
    {
        addColumns<QString, QKeySequence, QString>("layout", "sequence", "keys");
        QTest::newRow("letter") << "us" << kSequence << kKeys;
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
        QTRY_VERIFY(shortcut.setShortcut(sequence));
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        for (const char *lock : {"Caps_Lock", "Num_Lock", "Caps_Lock", "Num_Lock"}) { // on, on, off, off
            QVERIFY(pressKeys(s(lock)) && pressKeys(keys));
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
        QVERIFY(pressKeys(kKeys) && pressKeys(s("ctrl+alt+o")));
        QTRY_COMPARE(activations.count(), 1);
        QVERIFY(Other().holds);
    }

    void isRefusedWhatAnotherProgramHolds()
    {
        auto other = std::make_unique<Other>();
        QVERIFY(other->holds);
        QxtGlobalShortcut shortcut;
        QVERIFY(!shortcut.setShortcut(kSequence));
        other.reset();
        QTRY_VERIFY(shortcut.setShortcut(kSequence));
        QVERIFY(!Other().holds);
        QVERIFY(!shortcut.setShortcut({}));
        QVERIFY(Other().holds);
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
    }

    void mayBeDestroyedByItsSlot()
    {
        auto shortcut = std::make_unique<QxtGlobalShortcut>(kSequence);
        connect(shortcut.get(), &QxtGlobalShortcut::activated, this, [&] { shortcut.reset(); });
        QVERIFY(pressKeys(kKeys));
        QTRY_VERIFY(!shortcut);
        QTRY_VERIFY(Other().holds);
    }

    void doesNotRepeatWhileHeldDown()
    {
        QxtGlobalShortcut shortcut(QKeySequence(Qt::Key_F8));
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        QVERIFY(xdotool(s("keydown"), {s("F8")}));
        QTRY_COMPARE(activations.count(), 1);
        QVERIFY(!activations.wait(1000)); // longer than the delay before keys repeat
        QVERIFY(xdotool(s("keyup"), {s("F8")}));
    }

    void knowsTheWindows()
    {
        const WId other = System::findWindow(kOtherTitle);
        QCOMPARE(System::activeWindow(), other);
        QCOMPARE(System::windowGeometry(other).size(), QSize(211, 87));
        QCOMPARE(System::findWindow(s("other")), WId(0));
        const QString title = s("Отчёт — «Ω» 漢字");
        auto own = std::make_unique<QWidget>();
        own->setWindowTitle(title);
        own->setGeometry(300, 200, 321, 123);
        own->show();
        QVERIFY(QTest::qWaitForWindowActive(own.get()));
        const WId id = own->winId();
        QTRY_COMPARE(System::findWindow(title), id);
        QTRY_COMPARE(System::activeWindow(), id);
        QTRY_COMPARE(System::windowGeometry(id), own->geometry());
        own.reset();
        QTRY_COMPARE(System::findWindow(title), WId(0));
        QCOMPARE(System::windowTitle(id), QString());
        QCOMPARE(System::windowGeometry(id), QRect());
    }

    void measuresIdleTime()
    {
        using namespace std::chrono_literals;
        const auto idle = [] { return System::idleTime().value_or(-1ms); };
        QTRY_VERIFY(idle() >= 400ms);
        QVERIFY(pressKeys(s("a")));
        QVERIFY2(idle() >= 0ms && idle() < 400ms, qPrintable(QString::number(idle().count())));
    }

private:
    QProcess m_other;
};

QTEST_MAIN(TestX11)
#include "tst_x11.moc"
