#include "idleclock.h"

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

namespace {

struct CloseDisplay
{
    void operator()(Display *display) const { XCloseDisplay(display); }
};

struct FreeX
{
    void operator()(void *data) const { XFree(data); }
};

int keepQuiet(Display *)
{
    return 0;
}

// Xlib ends the process when the server goes away unless this handler returns.
void stayAlive(Display *, void *lost)
{
    *static_cast<bool *>(lost) = true;
}

} // namespace

struct IdleClock::Connection
{
    std::unique_ptr<Display, CloseDisplay> display;
    std::unique_ptr<XScreenSaverInfo, FreeX> info;
    bool lost = false;
};

std::unique_ptr<IdleClock> IdleClock::open(QString *error)
{
    auto connection = std::make_unique<Connection>();
    connection->display.reset(XOpenDisplay(nullptr));
    if (!connection->display) {
        const QString name = qEnvironmentVariable("DISPLAY");
        *error = name.isEmpty()
            ? QStringLiteral("не задан X-дисплей (переменная окружения DISPLAY)")
            : QString(QStringLiteral("не удалось подключиться к X-дисплею «") % name % QStringLiteral("»"));
        return nullptr;
    }
    Display *display = connection->display.get();
    XSetIOErrorHandler(keepQuiet);
    XSetIOErrorExitHandler(display, stayAlive, &connection->lost);

    int eventBase = 0;
    int errorBase = 0;
    if (!XScreenSaverQueryExtension(display, &eventBase, &errorBase)) {
        *error = QStringLiteral("X-сервер не поддерживает расширение MIT-SCREEN-SAVER");
        return nullptr;
    }
    connection->info.reset(XScreenSaverAllocInfo());
    if (!connection->info) {
        *error = QStringLiteral("не хватает памяти");
        return nullptr;
    }
    return std::unique_ptr<IdleClock>(new IdleClock(std::move(connection)));
}

IdleClock::IdleClock(std::unique_ptr<Connection> connection)
    : m_connection(std::move(connection))
{ }

IdleClock::~IdleClock() = default;

std::optional<std::chrono::milliseconds> IdleClock::idle()
{
    Display *display = m_connection->display.get();
    if (m_connection->lost
        || !XScreenSaverQueryInfo(display, DefaultRootWindow(display), m_connection->info.get()))
        return std::nullopt;
    return std::chrono::milliseconds(m_connection->info->idle);
}
