#include "qxtglobalshortcut.h"
#include "qxtwindowsystem.h"
#include "realinput.h"
#include "rows.h"

#include <QtWidgets>

#include <memory>

#include <xcb/xcb.h>

namespace {

using System = QxtWindowSystem;

const QString kOtherTitle = s("other program");
const QKeySequence kSequence(s("Ctrl+Alt+P"));
const QString kKeys = s("ctrl+alt+p");

// Another client of the X server, and the key of kSequence.
xcb_connection_t *s_other = nullptr;
constexpr xcb_keycode_t kKey = 33;
constexpr quint16 kModifiers = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1;

xcb_window_t root()
{
    return xcb_setup_roots_iterator(xcb_get_setup(s_other)).data->root;
}

bool otherHoldsKey()
{
    const auto request =
        xcb_grab_key_checked(s_other, 0, root(), kModifiers, kKey, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    const QScopedPointer<xcb_generic_error_t, QScopedPointerPodDeleter> error(
        xcb_request_check(s_other, request));
    return !error;
}

bool otherLeavesKey()
{
    return !xcb_request_check(s_other, xcb_ungrab_key_checked(s_other, kKey, root(), kModifiers));
}

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
        s_other = xcb_connect(nullptr, nullptr);
        m_other.start(s("xev"), texts({"-name"}) << kOtherTitle);
        QTRY_COMPARE_WITH_TIMEOUT(System::windowTitle(System::activeWindow()), kOtherTitle, 10000);
    }
    void cleanupTestCase() { m_other.kill(); }

    void cleanup()
    {
        QVERIFY(setLayout(s("us")));
        QxtGlobalShortcut shortcut;
        QTRY_VERIFY(shortcut.setShortcut(kSequence)); // the change of layout has arrived
    }

    void activatesWithAnyLocks_data()
    {
        addColumns<QString, QKeySequence, QString>("layout", "sequence", "keys");
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

    void isHeardOnceWhileHeldDown()
    {
        QxtGlobalShortcut shortcut(kSequence);
        QVERIFY(shortcut.setShortcut(Qt::Key_F8)); // and leaves the old one
        QSignalSpy activations(&shortcut, &QxtGlobalShortcut::activated);
        QVERIFY(pressKeys(kKeys) && pressKeys(s("shift+F8")) && xdotool(s("keydown"), {s("F8")}));
        QVERIFY(activations.wait());
        QVERIFY(!activations.wait(1000)); // longer than the delay before keys repeat
        QCOMPARE(activations.count(), 1);
        QVERIFY(xdotool(s("keyup"), {s("F8")}));
    }

    void isHeldByOneOnly()
    {
        auto shortcut = std::make_unique<QxtGlobalShortcut>();
        QVERIFY(otherHoldsKey());
        QVERIFY(!shortcut->setShortcut(kSequence));
        QVERIFY(otherLeavesKey());
        QVERIFY(shortcut->setShortcut(kSequence) && !otherHoldsKey());
        QVERIFY(!shortcut->setShortcut({}) && otherHoldsKey() && otherLeavesKey());
        // Its slot may destroy it.
        QVERIFY(shortcut->setShortcut(kSequence));
        connect(shortcut.get(), &QxtGlobalShortcut::activated, this, [&] { shortcut.reset(); });
        QVERIFY(pressKeys(kKeys));
        QTRY_VERIFY(!shortcut);
        QTRY_VERIFY(otherHoldsKey());
        QVERIFY(otherLeavesKey());
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

    void knowsTheWindows()
    {
        const WId other = System::findWindow(kOtherTitle);
        QCOMPARE(System::activeWindow(), other);
        QCOMPARE(System::findWindow(s("other")), WId(0));
        QWidget own;
        own.setWindowTitle(s("Отчёт — «Ω» 漢字"));
        own.setGeometry(300, 200, 321, 123);
        own.show();
        QTRY_COMPARE(System::findWindow(own.windowTitle()), own.winId());
        QTRY_COMPARE(System::windowGeometry(own.winId()), own.geometry());
    }

private:
    QProcess m_other;
};

QTEST_MAIN(TestX11)
#include "tst_x11.moc"
