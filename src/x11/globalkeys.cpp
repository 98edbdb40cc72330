#include "globalkeys.h"

#include <QCoreApplication>
#include <QX11Info>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <xcb/xcb.h>

namespace {

GlobalKeys *s_instance = nullptr;

struct FreeReply
{
    void operator()(void *reply) const { std::free(reply); }
};

constexpr quint8 kEventTypeMask = 0x7f;
constexpr quint16 kModifierMask = 0xff; // above it are mouse buttons and the layout group

// The events of the X keyboard extension share one event type and differ in the second byte.
constexpr quint8 kXkbNewKeyboard = 0;
constexpr quint8 kXkbMap = 1;
constexpr char kXkbExtension[] = "XKEYBOARD";

xcb_window_t root()
{
    return static_cast<xcb_window_t>(QX11Info::appRootWindow());
}

int firstXkbEvent(xcb_connection_t *connection)
{
    const auto cookie = xcb_query_extension(connection, std::strlen(kXkbExtension), kXkbExtension);
    const std::unique_ptr<xcb_query_extension_reply_t, FreeReply> reply(
        xcb_query_extension_reply(connection, cookie, nullptr));
    return reply && reply->present ? reply->first_event : -1;
}

} // namespace

GlobalKeys *GlobalKeys::instance()
{
    if (!s_instance && QCoreApplication::instance() && QX11Info::isPlatformX11() && QX11Info::connection())
        s_instance = new GlobalKeys(QCoreApplication::instance());
    return s_instance;
}

GlobalKeys::GlobalKeys(QObject *parent)
    : QObject(parent)
    , m_xkbEvent(firstXkbEvent(QX11Info::connection()))
{
    m_reload.setSingleShot(true);
    m_reload.callOnTimeout(this, &GlobalKeys::reloadLayout);
    QCoreApplication::instance()->installNativeEventFilter(this);
}

// The grabs end with the connection to the server.
GlobalKeys::~GlobalKeys()
{
    s_instance = nullptr;
}

bool GlobalKeys::hold(const void *owner, const QVector<KeyChord> &chords)
{
    const bool granted = std::all_of(chords.begin(), chords.end(), [this, owner](KeyChord chord) {
        if (!m_owners.contains(chord) && !grab(chord))
            return false;
        m_owners[chord].insert(owner);
        return true;
    });
    // Only now, so that a key that stays the same is never free in between.
    for (auto entry = m_owners.begin(); entry != m_owners.end();) {
        if (!granted || !chords.contains(entry.key()))
            entry->remove(owner);
        if (entry->isEmpty()) {
            ungrab(entry.key());
            entry = m_owners.erase(entry);
        } else {
            ++entry;
        }
    }
    return granted;
}

bool GlobalKeys::grab(KeyChord chord)
{
    xcb_connection_t *connection = QX11Info::connection();
    if (!connection)
        return false;
    QVector<xcb_void_cookie_t> cookies;
    for (const quint8 locks : m_layout.lockCombinations()) {
        cookies.append(xcb_grab_key_checked(connection, 0, root(), chord.modifiers | locks, chord.keycode,
                                            XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    }
    bool granted = true;
    for (const xcb_void_cookie_t cookie : cookies) {
        const std::unique_ptr<xcb_generic_error_t, FreeReply> error(xcb_request_check(connection, cookie));
        granted = granted && !error;
    }
    if (!granted)
        ungrab(chord);
    return granted;
}

void GlobalKeys::ungrab(KeyChord chord)
{
    xcb_connection_t *connection = QX11Info::connection();
    if (!connection)
        return;
    for (const quint8 locks : m_layout.lockCombinations())
        xcb_ungrab_key(connection, chord.keycode, root(), chord.modifiers | locks);
    xcb_flush(connection);
}

bool GlobalKeys::nativeEventFilter(const QByteArray &eventType, void *message, long *)
{
    if (eventType != QByteArrayLiteral("xcb_generic_event_t"))
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    // The whole byte: an event sent by another program, not by the keyboard, has the top bit set.
    switch (event->response_type) {
    case XCB_KEY_PRESS: {
        const auto *press = reinterpret_cast<const xcb_key_press_event_t *>(event);
        return handlePress(press->detail, press->state, press->time);
    }
    case XCB_KEY_RELEASE: {
        const auto *release = reinterpret_cast<const xcb_key_release_event_t *>(event);
        return handleRelease(release->detail, release->time);
    }
    case XCB_MAPPING_NOTIFY:
        m_reload.start(0);
        return false;
    default:
        if ((event->response_type & kEventTypeMask) == m_xkbEvent
            && (event->pad0 == kXkbNewKeyboard || event->pad0 == kXkbMap))
            m_reload.start(0);
        return false;
    }
}

bool GlobalKeys::handlePress(quint8 keycode, quint16 state, quint32 time)
{
    const KeyChord chord{keycode, quint8(state & kModifierMask & ~m_layout.lockModifiers())};
    if (!m_owners.contains(chord))
        return false;
    // A key held down repeats as a press alone or, more often, as a release and a press in one moment.
    const bool repeats = m_down.test(keycode) || (keycode == m_releasedKey && time == m_releasedAt);
    m_down.set(keycode);
    if (repeats)
        return true;
    // Without a fresh time a window manager refuses to raise a window that the slot shows.
    QX11Info::setAppTime(time);
    QX11Info::setAppUserTime(time);
    emit pressed(chord);
    return true;
}

bool GlobalKeys::handleRelease(quint8 keycode, quint32 time)
{
    m_releasedKey = keycode;
    m_releasedAt = time;
    const bool wasDown = m_down.test(keycode);
    m_down.reset(keycode);
    return wasDown;
}

void GlobalKeys::reloadLayout()
{
    KeyboardLayout layout;
    if (layout.lockModifiers() == m_layout.lockModifiers()) {
        m_layout = std::move(layout);
    } else {
        // With other lock modifiers the grabs must cover other combinations. What cannot be had
        // again is forgotten, and found out by its owners when they ask.
        const QList<KeyChord> chords = m_owners.keys();
        for (const KeyChord chord : chords)
            ungrab(chord);
        m_layout = std::move(layout);
        for (const KeyChord chord : chords) {
            if (!grab(chord))
                m_owners.remove(chord);
        }
    }
    emit layoutChanged();
}
