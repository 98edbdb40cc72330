#include "x11/alldesktops.h"

#include <QEvent>
#include <QWidget>
#include <QX11Info>

#include <cstdlib>
#include <cstring>
#include <memory>

#include <xcb/xcb.h>

namespace {

constexpr quint32 kAllDesktops = 0xffffffff;

xcb_atom_t atomOf(xcb_connection_t *connection, const char *name)
{
    const auto request = xcb_intern_atom(connection, 0, quint16(std::strlen(name)), name);
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, request, nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

// The window manager takes the hints away when a window is hidden, and reads them when one
// is mapped, which follows the event. Xfwm takes the desktop's number alone for that of the
// last desktop, others do not know the state. Qt adds its own states to this one.
class Hint final : public QObject
{
public:
    using QObject::QObject;

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Show && !event->spontaneous())
            set(*static_cast<QWidget *>(watched));
        return false;
    }

private:
    static void set(const QWidget &window)
    {
        xcb_connection_t *connection = QX11Info::isPlatformX11() ? QX11Info::connection() : nullptr;
        if (!connection)
            return;
        static const xcb_atom_t desktop = atomOf(connection, "_NET_WM_DESKTOP");
        static const xcb_atom_t state = atomOf(connection, "_NET_WM_STATE");
        static const xcb_atom_t sticky = atomOf(connection, "_NET_WM_STATE_STICKY");
        const auto id = static_cast<xcb_window_t>(window.winId());
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, desktop, XCB_ATOM_CARDINAL, 32, 1,
                            &kAllDesktops);
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, state, XCB_ATOM_ATOM, 32, 1, &sticky);
    }
};

} // namespace

void showOnAllDesktops(QWidget *window)
{
    window->installEventFilter(new Hint(window));
}
