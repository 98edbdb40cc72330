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

// Asked for after each mapping: a window manager forgets it with a window that is hidden,
// and Xfwm takes the number that stands for all desktops, read from a new window, for that
// of the last one.
class Request final : public QObject
{
public:
    explicit Request(QWidget *window)
        : QObject(window)
        , m_window(window)
    { }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        Q_UNUSED(watched)
        if (event->type() == QEvent::Show && !event->spontaneous())
            QMetaObject::invokeMethod(this, [this] { send(); }, Qt::QueuedConnection);
        return false;
    }

private:
    void send() const
    {
        xcb_connection_t *connection = QX11Info::isPlatformX11() ? QX11Info::connection() : nullptr;
        if (!connection || !m_window->isVisible())
            return;
        constexpr quint32 fromProgram = 1;
        static const xcb_atom_t desktop = atomOf(connection, "_NET_WM_DESKTOP");
        xcb_client_message_event_t message = {};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = static_cast<xcb_window_t>(m_window->winId());
        message.type = desktop;
        message.data.data32[0] = kAllDesktops;
        message.data.data32[1] = fromProgram;
        xcb_send_event(connection, 0, static_cast<xcb_window_t>(QX11Info::appRootWindow()),
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char *>(&message));
        xcb_flush(connection);
    }

    QWidget *m_window;
};

} // namespace

void showOnAllDesktops(QWidget *window)
{
    window->installEventFilter(new Request(window));
}
