#include "x11/windowmanager.h"

#include <QEvent>
#include <QWidget>
#include <QX11Info>

#include <algorithm>

#include <xcb/xcb_ewmh.h>

namespace {

constexpr quint32 kAllDesktops = 0xffffffff;

// Its atoms are fetched at the first use; null without X11.
xcb_ewmh_connection_t *hints()
{
    static xcb_ewmh_connection_t connection = {};
    static const bool isThere = QX11Info::isPlatformX11()
        && xcb_ewmh_init_atoms_replies(&connection, xcb_ewmh_init_atoms(QX11Info::connection(), &connection),
                                       nullptr);
    return isThere ? &connection : nullptr;
}

xcb_window_t nativeWindow(const QWidget *window)
{
    return static_cast<xcb_window_t>(window->internalWinId());
}

void leaveTaskbar(const QWidget *window)
{
    if (!hints() || !window->isVisible())
        return;
    xcb_ewmh_request_change_wm_state(hints(), QX11Info::appScreen(), nativeWindow(window),
                                     XCB_EWMH_WM_STATE_ADD, hints()->_NET_WM_STATE_SKIP_TASKBAR,
                                     hints()->_NET_WM_STATE_SKIP_PAGER, XCB_EWMH_CLIENT_SOURCE_TYPE_NORMAL);
    xcb_flush(hints()->connection);
}

// Repeats the request after each mapping: a window manager forgets it when a window is hidden,
// and Xfwm takes the number for all desktops, read from a new window, for the last desktop.
class Request final : public QObject
{
public:
    Request(QWidget *window, void (*send)(const QWidget *))
        : QObject(window)
        , m_window(window)
        , m_send(send)
    { }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        Q_UNUSED(watched)
        if (event->type() == QEvent::Show && !event->spontaneous())
            QMetaObject::invokeMethod(
                this, [this] { m_send(m_window); }, Qt::QueuedConnection);
        return false;
    }

private:
    QWidget *m_window;
    void (*m_send)(const QWidget *);
};

} // namespace

void moveToAllDesktops(const QWidget *window)
{
    if (!hints() || !window->isVisible())
        return;
    xcb_ewmh_request_change_wm_desktop(hints(), QX11Info::appScreen(), nativeWindow(window), kAllDesktops,
                                       XCB_EWMH_CLIENT_SOURCE_TYPE_NORMAL);
    xcb_flush(hints()->connection);
}

void showOnAllDesktops(QWidget *window)
{
    window->installEventFilter(new Request(window, moveToAllDesktops));
}

void keepOutOfTaskbar(QWidget *window)
{
    window->installEventFilter(new Request(window, leaveTaskbar));
}

bool isOnCurrentDesktop(const QWidget *window)
{
    quint32 current = 0;
    quint32 own = 0;
    return !hints()
        || !xcb_ewmh_get_current_desktop_reply(
            hints(), xcb_ewmh_get_current_desktop(hints(), QX11Info::appScreen()), &current, nullptr)
        || !xcb_ewmh_get_wm_desktop_reply(hints(), xcb_ewmh_get_wm_desktop(hints(), nativeWindow(window)),
                                          &own, nullptr)
        || own == current || own == kAllDesktops;
}

bool isFullScreenWindowActive()
{
    xcb_window_t active = XCB_WINDOW_NONE;
    xcb_ewmh_get_atoms_reply_t states;
    if (!hints()
        || !xcb_ewmh_get_active_window_reply(
            hints(), xcb_ewmh_get_active_window(hints(), QX11Info::appScreen()), &active, nullptr)
        || !xcb_ewmh_get_wm_state_reply(hints(), xcb_ewmh_get_wm_state(hints(), active), &states, nullptr))
        return false;
    xcb_atom_t *const end = states.atoms + states.atoms_len;
    const bool isFullScreen = std::find(states.atoms, end, hints()->_NET_WM_STATE_FULLSCREEN) != end;
    xcb_ewmh_get_atoms_reply_wipe(&states);
    return isFullScreen;
}

bool canMoveWindows()
{
    xcb_ewmh_get_atoms_reply_t supported;
    if (!hints()
        || !xcb_ewmh_get_supported_reply(hints(), xcb_ewmh_get_supported(hints(), QX11Info::appScreen()),
                                         &supported, nullptr))
        return true;
    xcb_atom_t *const end = supported.atoms + supported.atoms_len;
    const bool isOffered = std::find(supported.atoms, end, hints()->_NET_MOVERESIZE_WINDOW) != end;
    xcb_ewmh_get_atoms_reply_wipe(&supported);
    return isOffered;
}
