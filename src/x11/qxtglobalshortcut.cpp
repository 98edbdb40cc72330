#include "qxtglobalshortcut.h"

#include <QCoreApplication>
#include <QMetaEnum>
#include <QX11Info>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <xcb/xcb.h>

#include <X11/XKBlib.h>
#include <xkbcommon/xkbcommon.h>

namespace {

// As keyboard configurations of X.Org have them.
constexpr quint8 kAlt = XCB_MOD_MASK_1;
constexpr quint8 kNumLock = XCB_MOD_MASK_2;
constexpr quint8 kSuper = XCB_MOD_MASK_4;
constexpr quint8 kLockStates[] = {0, XCB_MOD_MASK_LOCK, kNumLock, XCB_MOD_MASK_LOCK | kNumLock};
constexpr quint8 kModifiers =
    XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | kAlt | XCB_MOD_MASK_3 | kSuper | XCB_MOD_MASK_5;
constexpr quint8 kEventTypeMask = 0x7f;

struct FreeKeyboard
{
    void operator()(XkbDescPtr keyboard) const { XkbFreeKeyboard(keyboard, 0, True); }
};

xcb_connection_t *connection()
{
    return QX11Info::isPlatformX11() ? QX11Info::connection() : nullptr;
}

xcb_window_t root()
{
    return static_cast<xcb_window_t>(QX11Info::appRootWindow());
}

xcb_keysym_t keysymOf(int key)
{
    // Qt's codes of keys that write a character are the character's code point, in upper case.
    if (key < Qt::Key_Escape)
        return xkb_utf32_to_keysym(QChar::toLower(static_cast<uint>(key)));
    QByteArray name = QByteArray(QMetaEnum::fromType<Qt::Key>().valueToKey(key)).mid(4); // "Key_F1"
    name.replace("Page", "Page_");
    return xkb_keysym_from_name(name.constData(), XKB_KEYSYM_CASE_INSENSITIVE);
}

// The keys that have the symbol in the first layout that has it at all, without Shift if possible. In
// a later layout it may be on a key that must keep its meaning in the first.
QVector<quint8> keycodesOf(xcb_keysym_t symbol, bool *needsShift)
{
    QVector<quint8> found;
    const std::unique_ptr<XkbDescRec, FreeKeyboard> keyboard(
        XkbGetMap(QX11Info::display(), XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd));
    if (!keyboard || symbol == XKB_KEY_NoSymbol)
        return found;
    for (int rank = 0; rank < 2 * XkbNumKbdGroups && found.isEmpty(); ++rank) {
        const int group = rank / 2;
        const int level = rank % 2;
        *needsShift = level == 1;
        for (int code = keyboard->min_key_code; code <= keyboard->max_key_code; ++code) {
            if (group < XkbKeyNumGroups(keyboard.get(), code)
                && level < XkbKeyGroupWidth(keyboard.get(), code, group)
                && XkbKeySymEntry(keyboard.get(), code, level, group) == symbol)
                found.append(static_cast<quint8>(code));
        }
    }
    return found;
}

bool isLayoutChange(const xcb_generic_event_t *event)
{
    static const int xkbEvent = [] {
        int opcode = 0;
        int first = -1;
        int error = 0;
        return XkbQueryExtension(QX11Info::display(), &opcode, &first, &error, nullptr, nullptr) ? first : -1;
    }();
    const int type = event->response_type & kEventTypeMask;
    // The events of the X keyboard extension differ in the second byte.
    return type == XCB_MAPPING_NOTIFY
        || (type == xkbEvent && (event->pad0 == XkbNewKeyboardNotify || event->pad0 == XkbMapNotify));
}

} // namespace

QxtGlobalShortcut::QxtGlobalShortcut(QObject *parent)
    : QObject(parent)
{
    if (QCoreApplication *application = QCoreApplication::instance())
        application->installNativeEventFilter(this);
}

QxtGlobalShortcut::QxtGlobalShortcut(const QKeySequence &shortcut, QObject *parent)
    : QxtGlobalShortcut(parent)
{
    setShortcut(shortcut);
}

QxtGlobalShortcut::~QxtGlobalShortcut()
{
    release();
}

bool QxtGlobalShortcut::setShortcut(const QKeySequence &shortcut)
{
    m_shortcut = shortcut;
    hold();
    return isHeld();
}

void QxtGlobalShortcut::hold()
{
    release();
    if (m_shortcut.count() != 1 || !connection())
        return;
    const auto wanted = static_cast<uint>(m_shortcut[0]);
    bool needsShift = false;
    m_keycodes =
        keycodesOf(keysymOf(static_cast<int>(wanted & ~uint(Qt::KeyboardModifierMask))), &needsShift);
    m_modifiers = static_cast<quint8>((needsShift || wanted & Qt::ShiftModifier ? XCB_MOD_MASK_SHIFT : 0)
                                      | (wanted & Qt::ControlModifier ? XCB_MOD_MASK_CONTROL : 0)
                                      | (wanted & Qt::AltModifier ? kAlt : 0)
                                      | (wanted & Qt::MetaModifier ? kSuper : 0));
    const auto isRefused = [this](quint8 code) {
        return std::any_of(std::begin(kLockStates), std::end(kLockStates), [this, code](quint8 locks) {
            const auto request = xcb_grab_key_checked(connection(), 0, root(), m_modifiers | locks, code,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
            const std::unique_ptr<xcb_generic_error_t, decltype(&std::free)> error(
                xcb_request_check(connection(), request), &std::free);
            return error != nullptr;
        });
    };
    if (std::any_of(m_keycodes.cbegin(), m_keycodes.cend(), isRefused))
        release();
}

void QxtGlobalShortcut::release()
{
    const QVector<quint8> codes = std::exchange(m_keycodes, {});
    m_isDown = false;
    if (codes.isEmpty() || !connection())
        return;
    for (const quint8 code : codes) {
        for (const quint8 locks : kLockStates)
            xcb_ungrab_key(connection(), code, root(), m_modifiers | locks);
    }
    xcb_flush(connection());
}

bool QxtGlobalShortcut::nativeEventFilter(const QByteArray &eventType, void *message, long *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if (isLayoutChange(event))
        QMetaObject::invokeMethod(this, &QxtGlobalShortcut::hold, Qt::QueuedConnection);
    // The whole byte: an event sent by another program, not by the keyboard, has the top bit set.
    if (event->response_type != XCB_KEY_PRESS && event->response_type != XCB_KEY_RELEASE)
        return false;
    const auto *key = reinterpret_cast<const xcb_key_press_event_t *>(event);
    if (!m_keycodes.contains(key->detail))
        return false;
    if (event->response_type == XCB_KEY_RELEASE) {
        m_isDown = false;
        m_releasedAt = key->time;
        return false;
    }
    // A key held down repeats as a press alone or, more often, as a release and a press in one moment.
    const bool repeats = m_isDown || key->time == m_releasedAt;
    m_isDown = true;
    if (repeats || (key->state & kModifiers) != m_modifiers)
        return false;
    // Without a fresh time a window manager refuses to raise a window that the slot shows.
    QX11Info::setAppTime(key->time);
    QX11Info::setAppUserTime(key->time);
    emit activated(); // may destroy this
    return false;
}
