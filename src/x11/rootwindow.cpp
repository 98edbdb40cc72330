#include "x11/rootwindow.h"

#include <QX11Info>
#include <QtEndian>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <memory>

#include <xcb/xcb.h>

namespace {

constexpr quint32 kMaxResources = 256 * 1024; // words
constexpr int kBitsPerByte = 8;
constexpr quint32 kAllPlanes = 0xffffffff;
constexpr xcb_image_order_t kOwnByteOrder =
    Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? XCB_IMAGE_ORDER_LSB_FIRST : XCB_IMAGE_ORDER_MSB_FIRST;

struct FreeReply
{
    void operator()(void *reply) const { std::free(reply); }
};
template <typename Type>
using Reply = std::unique_ptr<Type, FreeReply>;

struct PixelFormat
{
    int bits;
    quint32 red;
    QImage::Format format;
};
constexpr PixelFormat kPixelFormats[] = {
    {32, 0xff0000, QImage::Format_RGB32}, {32, 0x3ff00000, QImage::Format_RGB30},
    {32, 0x3ff, QImage::Format_BGR30},    {16, 0xf800, QImage::Format_RGB16},
    {16, 0x7c00, QImage::Format_RGB555},
};

quint32 redMask(xcb_connection_t *connection, xcb_visualid_t visual)
{
    for (auto screen = xcb_setup_roots_iterator(xcb_get_setup(connection)); screen.rem;
         xcb_screen_next(&screen)) {
        for (auto depth = xcb_screen_allowed_depths_iterator(screen.data); depth.rem;
             xcb_depth_next(&depth)) {
            const xcb_visualtype_t *types = xcb_depth_visuals(depth.data);
            const xcb_visualtype_t *end = types + xcb_depth_visuals_length(depth.data);
            const auto *found =
                std::find_if(types, end, [visual](const auto &type) { return type.visual_id == visual; });
            if (found != end)
                return found->red_mask;
        }
    }
    return 0;
}

QImage toImage(xcb_connection_t *connection, Reply<xcb_get_image_reply_t> pixels, int width, int height)
{
    const xcb_setup_t *setup = xcb_get_setup(connection);
    const xcb_format_t *layouts = xcb_setup_pixmap_formats(setup);
    const xcb_format_t *end = layouts + xcb_setup_pixmap_formats_length(setup);
    const auto *layout =
        std::find_if(layouts, end, [&pixels](const auto &one) { return one.depth == pixels->depth; });
    if (layout == end || setup->image_byte_order != kOwnByteOrder)
        return {};
    const quint32 red = redMask(connection, pixels->visual);
    const auto *format =
        std::find_if(std::begin(kPixelFormats), std::end(kPixelFormats), [layout, red](const auto &one) {
            return one.bits == layout->bits_per_pixel && one.red == red;
        });
    const int line = (width * layout->bits_per_pixel + layout->scanline_pad - 1) / layout->scanline_pad
        * layout->scanline_pad / kBitsPerByte;
    if (format == std::end(kPixelFormats) || xcb_get_image_data_length(pixels.get()) / height < line)
        return {};
    // Copying the pixels of a large desktop would take longer than everything else here.
    uchar *data = xcb_get_image_data(pixels.get());
    return QImage(data, width, height, line, format->format, std::free, pixels.release());
}

} // namespace

QImage rootWindowScreenshot()
{
    xcb_connection_t *connection = QX11Info::isPlatformX11() ? QX11Info::connection() : nullptr;
    if (!connection)
        return {};
    const auto root = static_cast<xcb_window_t>(QX11Info::appRootWindow());
    const Reply<xcb_get_geometry_reply_t> place(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, root), nullptr));
    if (!place)
        return {};
    const auto request = xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, root, 0, 0, place->width,
                                       place->height, kAllPlanes);
    Reply<xcb_get_image_reply_t> pixels(xcb_get_image_reply(connection, request, nullptr));
    return pixels ? toImage(connection, std::move(pixels), place->width, place->height) : QImage();
}

bool isXServerReachable()
{
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(nullptr, nullptr), &xcb_disconnect);
    return xcb_connection_has_error(connection.get()) == 0;
}

int configuredDpi()
{
    int number = 0;
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
        xcb_connect(nullptr, &number), &xcb_disconnect);
    if (xcb_connection_has_error(connection.get()))
        return 0;
    auto screen = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
    while (number-- > 0 && screen.rem > 1)
        xcb_screen_next(&screen);
    const auto request = xcb_get_property(connection.get(), 0, screen.data->root, XCB_ATOM_RESOURCE_MANAGER,
                                          XCB_ATOM_STRING, 0, kMaxResources);
    const Reply<xcb_get_property_reply_t> resources(
        xcb_get_property_reply(connection.get(), request, nullptr));
    if (!resources)
        return 0;
    const QByteArray text(static_cast<const char *>(xcb_get_property_value(resources.get())),
                          xcb_get_property_value_length(resources.get()));
    const QByteArray key = "\nXft.dpi:";
    const QByteArray lines = '\n' + text;
    const int start = lines.indexOf(key);
    return start < 0 ? 0 : lines.mid(start + key.size()).split('\n').constFirst().trimmed().toInt();
}
