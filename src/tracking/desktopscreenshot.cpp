#include "tracking/desktopscreenshot.h"

#include "tracking/screengrab.h"
#include "tracking/waylandscreenshot.h"

#include <cstring>

namespace {

constexpr int kBitsPerByte = 8;

class RootWindowScreenshot final : public DesktopScreenshot
{
public:
    using DesktopScreenshot::DesktopScreenshot;

    void take() override { emit taken(grabDesktop()); }
};

// There the root window is black, whether or not an X server runs as well. In an X11 session
// WAYLAND_DISPLAY is left over from another.
bool isWaylandSession()
{
    const QByteArray type = qgetenv("XDG_SESSION_TYPE");
    return type == "wayland" || (type != "x11" && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"));
}

} // namespace

DesktopScreenshot *DesktopScreenshot::forSession(const StorageFolder &storage, QObject *parent)
{
    if (isWaylandSession())
        return new WaylandScreenshot(storage, parent);
    return new RootWindowScreenshot(parent);
}

bool isOneColour(const QImage &image)
{
    const int pixel = image.depth() / kBitsPerByte;
    if (image.isNull() || pixel == 0)
        return false;
    const auto width = static_cast<size_t>(image.width()) * pixel;
    const uchar *first = image.constScanLine(0);
    if (std::memcmp(first, first + pixel, width - pixel) != 0)
        return false;
    for (int line = 1; line < image.height(); ++line) {
        if (std::memcmp(first, image.constScanLine(line), width) != 0)
            return false;
    }
    return true;
}
