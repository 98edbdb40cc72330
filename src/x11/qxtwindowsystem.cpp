#include "qxtwindowsystem.h"

#include <QX11Info>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <xcb/xcb_ewmh.h>

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

namespace {

constexpr quint32 kMaxTitle = 16 * 1024; // words

template <typename Type>
using Reply = std::unique_ptr<Type, decltype(&std::free)>;

template <typename Type>
Reply<Type> owned(Type *reply)
{
    return Reply<Type>(reply, &std::free);
}

// Its atoms are fetched at the first use; null without X11.
xcb_ewmh_connection_t *hints()
{
    static xcb_ewmh_connection_t connection = {};
    static const bool isThere = QX11Info::isPlatformX11()
        && xcb_ewmh_init_atoms_replies(&connection, xcb_ewmh_init_atoms(QX11Info::connection(), &connection),
                                       nullptr);
    return isThere ? &connection : nullptr;
}

} // namespace

QVector<WId> QxtWindowSystem::windows()
{
    QVector<WId> list;
    xcb_ewmh_get_windows_reply_t reply;
    if (hints()
        && xcb_ewmh_get_client_list_stacking_reply(
            hints(), xcb_ewmh_get_client_list_stacking(hints(), QX11Info::appScreen()), &reply, nullptr)) {
        std::copy_n(reply.windows, reply.windows_len, std::back_inserter(list));
        xcb_ewmh_get_windows_reply_wipe(&reply);
    }
    return list;
}

WId QxtWindowSystem::activeWindow()
{
    xcb_window_t window = XCB_NONE;
    if (hints())
        xcb_ewmh_get_active_window_reply(hints(), xcb_ewmh_get_active_window(hints(), QX11Info::appScreen()),
                                         &window, nullptr);
    return window;
}

QString QxtWindowSystem::windowTitle(WId window)
{
    if (!hints())
        return {};
    xcb_connection_t *c = hints()->connection;
    for (const xcb_atom_t name : {hints()->_NET_WM_NAME, xcb_atom_t(XCB_ATOM_WM_NAME)}) {
        const auto cookie = xcb_get_property(c, 0, static_cast<xcb_window_t>(window), name,
                                             XCB_GET_PROPERTY_TYPE_ANY, 0, kMaxTitle);
        const auto reply = owned(xcb_get_property_reply(c, cookie, nullptr));
        if (!reply || reply->format != 8)
            continue;
        const auto *text = static_cast<const char *>(xcb_get_property_value(reply.get()));
        const int length = xcb_get_property_value_length(reply.get());
        // Older types than UTF-8 have Latin-1 in common.
        return reply->type == hints()->UTF8_STRING ? QString::fromUtf8(text, length)
                                                   : QString::fromLatin1(text, length);
    }
    return {};
}

QRect QxtWindowSystem::windowGeometry(WId window)
{
    if (!hints())
        return {};
    xcb_connection_t *c = hints()->connection;
    const xcb_window_t id = static_cast<xcb_window_t>(window);
    const auto root = static_cast<xcb_window_t>(QX11Info::appRootWindow());
    const auto geometry = owned(xcb_get_geometry_reply(c, xcb_get_geometry(c, id), nullptr));
    const auto origin =
        owned(xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, id, root, 0, 0), nullptr));
    if (!geometry || !origin)
        return {};
    return {origin->dst_x, origin->dst_y, geometry->width, geometry->height};
}

WId QxtWindowSystem::findWindow(const QString &title)
{
    const QVector<WId> all = windows();
    const auto found =
        std::find_if(all.rbegin(), all.rend(), [&title](WId window) { return windowTitle(window) == title; });
    return found == all.rend() ? 0 : *found;
}

std::optional<std::chrono::milliseconds> QxtWindowSystem::idleTime()
{
    XScreenSaverInfo info = {};
    // Returns 0 on a server without the extension.
    if (!hints() || !XScreenSaverQueryInfo(QX11Info::display(), QX11Info::appRootWindow(), &info))
        return std::nullopt;
    return std::chrono::milliseconds(info.idle);
}
