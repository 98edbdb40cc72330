#include "x11/windowmanager.h"

#include <QEvent>
#include <QWidget>
#include <QX11Info>

#include <algorithm>
#include <optional>

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

bool contains(const xcb_ewmh_get_atoms_reply_t &list, xcb_atom_t atom)
{
    return std::find(list.atoms, list.atoms + list.atoms_len, atom) != list.atoms + list.atoms_len;
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

bool findFullScreenWindow()
{
    xcb_window_t active = XCB_WINDOW_NONE;
    xcb_ewmh_get_atoms_reply_t states;
    if (!hints()
        || !xcb_ewmh_get_active_window_reply(
            hints(), xcb_ewmh_get_active_window(hints(), QX11Info::appScreen()), &active, nullptr)
        || !xcb_ewmh_get_wm_state_reply(hints(), xcb_ewmh_get_wm_state(hints(), active), &states, nullptr))
        return false;
    const bool isFullScreen = contains(states, hints()->_NET_WM_STATE_FULLSCREEN);
    xcb_ewmh_get_atoms_reply_wipe(&states);
    return isFullScreen;
}

bool findMoveSupport()
{
    xcb_ewmh_get_atoms_reply_t supported;
    if (!hints()
        || !xcb_ewmh_get_supported_reply(hints(), xcb_ewmh_get_supported(hints(), QX11Info::appScreen()),
                                         &supported, nullptr))
        return true;
    const bool isOffered = contains(supported, hints()->_NET_MOVERESIZE_WINDOW);
    xcb_ewmh_get_atoms_reply_wipe(&supported);
    return isOffered;
}

// Holds for one turn of the event loop, so that a burst of popups asks the X server once.
class AnswerForTurn final : public QObject
{
public:
    explicit AnswerForTurn(bool (*ask)())
        : m_ask(ask)
    { }

    operator bool()
    {
        if (!m_answer) {
            m_answer = m_ask();
            QMetaObject::invokeMethod(
                this, [this] { m_answer.reset(); }, Qt::QueuedConnection);
        }
        return *m_answer;
    }

private:
    bool (*m_ask)();
    std::optional<bool> m_answer;
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
    static AnswerForTurn answer(findFullScreenWindow);
    return answer;
}

bool canMoveWindows()
{
    static AnswerForTurn answer(findMoveSupport);
    return answer;
}

void makeMinimizable(const QWidget *window)
{
    xcb_ewmh_get_atoms_reply_t actions;
    if (!hints()
        || !xcb_ewmh_get_wm_allowed_actions_reply(
            hints(), xcb_ewmh_get_wm_allowed_actions(hints(), nativeWindow(window)), &actions, nullptr))
        return;
    const bool isAllowed = actions.atoms_len == 0 || contains(actions, hints()->_NET_WM_ACTION_MINIMIZE);
    xcb_ewmh_get_atoms_reply_wipe(&actions);
    if (!isAllowed)
        xcb_ewmh_set_wm_window_type(hints(), nativeWindow(window), 1, &hints()->_NET_WM_WINDOW_TYPE_NORMAL);
}
