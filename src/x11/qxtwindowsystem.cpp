#include "qxtwindowsystem.h"

#include <QX11Info>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>

#include <xcb/xcb.h>

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

namespace {

// Bounds for what other programs put into properties.
constexpr quint32 kMaxTitleBytes = 64 * 1024;
constexpr quint32 kMaxListBytes = 64 * 1024;
constexpr int kMaxTreeDepth = 32;

struct FreeReply
{
    void operator()(void *reply) const { std::free(reply); }
};
template <typename Type>
using Reply = std::unique_ptr<Type, FreeReply>;

xcb_connection_t *connection()
{
    return QX11Info::isPlatformX11() ? QX11Info::connection() : nullptr;
}

xcb_window_t root()
{
    return static_cast<xcb_window_t>(QX11Info::appRootWindow());
}

// An id that is none of X11's becomes no window instead of another one.
xcb_window_t xcbId(WId window)
{
    return window <= std::numeric_limits<xcb_window_t>::max() ? static_cast<xcb_window_t>(window) : XCB_NONE;
}

xcb_atom_t atom(const char *name)
{
    const auto cookie = xcb_intern_atom(connection(), 1, static_cast<quint16>(std::strlen(name)), name);
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection(), cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

Reply<xcb_get_property_reply_t> property(xcb_window_t window, xcb_atom_t name, quint32 maxBytes)
{
    if (name == XCB_ATOM_NONE)
        return nullptr;
    const auto cookie =
        xcb_get_property(connection(), 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, maxBytes / 4);
    return Reply<xcb_get_property_reply_t>(xcb_get_property_reply(connection(), cookie, nullptr));
}

std::optional<QVector<WId>> windowList(xcb_window_t window, const char *name)
{
    const auto reply = property(window, atom(name), kMaxListBytes);
    constexpr quint8 kFormat = 32;
    if (!reply || reply->type != XCB_ATOM_WINDOW || reply->format != kFormat)
        return std::nullopt;
    const auto *ids = static_cast<const xcb_window_t *>(xcb_get_property_value(reply.get()));
    const int count = xcb_get_property_value_length(reply.get()) / int(sizeof(xcb_window_t));
    QVector<WId> result;
    result.reserve(count);
    std::copy(ids, ids + count, std::back_inserter(result));
    return result;
}

// The properties of a window manager that has gone stay on the root window; a living one has a
// window of its own that names itself.
bool hasWindowManager()
{
    constexpr char kCheck[] = "_NET_SUPPORTING_WM_CHECK";
    const auto named = windowList(root(), kCheck);
    return named && named->size() == 1 && windowList(xcbId(named->first()), kCheck) == named;
}

// Without a window manager the top-level windows are the visible children of the root window.
QVector<WId> visibleChildren()
{
    xcb_connection_t *c = connection();
    const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, root()), nullptr));
    if (!tree)
        return {};
    const xcb_window_t *children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    QVector<xcb_get_window_attributes_cookie_t> cookies;
    cookies.reserve(count);
    std::transform(children, children + count, std::back_inserter(cookies),
                   [c](xcb_window_t child) { return xcb_get_window_attributes(c, child); });
    QVector<WId> result;
    for (int i = 0; i < count; ++i) {
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, cookies[i], nullptr));
        if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE && !attributes->override_redirect
            && attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT)
            result.append(children[i]);
    }
    return result;
}

WId focusedTopLevel()
{
    xcb_connection_t *c = connection();
    const Reply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    xcb_window_t window = focus ? focus->focus : xcb_window_t(XCB_NONE);
    for (int depth = 0; window > XCB_INPUT_FOCUS_POINTER_ROOT && depth < kMaxTreeDepth; ++depth) {
        const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr));
        if (!tree || tree->parent == XCB_NONE)
            return 0;
        if (tree->parent == tree->root)
            return window;
        window = tree->parent;
    }
    return 0;
}

} // namespace

QVector<WId> QxtWindowSystem::windows()
{
    if (!connection())
        return {};
    if (hasWindowManager()) {
        if (const auto listed = windowList(root(), "_NET_CLIENT_LIST_STACKING"))
            return *listed;
    }
    return visibleChildren();
}

WId QxtWindowSystem::activeWindow()
{
    if (!connection())
        return 0;
    if (hasWindowManager()) {
        const auto active = windowList(root(), "_NET_ACTIVE_WINDOW");
        return active && !active->isEmpty() ? active->first() : 0;
    }
    return focusedTopLevel();
}

QString QxtWindowSystem::windowTitle(WId window)
{
    if (!connection())
        return {};
    const xcb_atom_t utf8 = atom("UTF8_STRING");
    for (const xcb_atom_t name : {atom("_NET_WM_NAME"), xcb_atom_t(XCB_ATOM_WM_NAME)}) {
        const auto reply = property(xcbId(window), name, kMaxTitleBytes);
        constexpr quint8 kFormat = 8;
        if (!reply || reply->format != kFormat)
            continue;
        const auto *text = static_cast<const char *>(xcb_get_property_value(reply.get()));
        const int length = int(qstrnlen(text, uint(xcb_get_property_value_length(reply.get()))));
        // Older types than UTF-8 have Latin-1 in common.
        return reply->type == utf8 ? QString::fromUtf8(text, length) : QString::fromLatin1(text, length);
    }
    return {};
}

QRect QxtWindowSystem::windowGeometry(WId window)
{
    xcb_connection_t *c = connection();
    if (!c)
        return {};
    const xcb_window_t id = xcbId(window);
    const auto geometryCookie = xcb_get_geometry(c, id);
    const auto originCookie = xcb_translate_coordinates(c, id, root(), 0, 0);
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, geometryCookie, nullptr));
    const Reply<xcb_translate_coordinates_reply_t> origin(
        xcb_translate_coordinates_reply(c, originCookie, nullptr));
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
    Display *display = connection() ? QX11Info::display() : nullptr;
    int eventBase = 0;
    int errorBase = 0;
    if (!display || !XScreenSaverQueryExtension(display, &eventBase, &errorBase))
        return std::nullopt;
    XScreenSaverInfo info = {};
    if (!XScreenSaverQueryInfo(display, root(), &info))
        return std::nullopt;
    return std::chrono::milliseconds(info.idle);
}
