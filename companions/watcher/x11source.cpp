#include "x11source.h"

#include <QSocketNotifier>

#include <array>
#include <chrono>
#include <utility>

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace {

constexpr std::chrono::seconds kInterval{1};

struct CloseDisplay
{
    void operator()(Display *display) const { XCloseDisplay(display); }
};

int keepQuiet(Display *)
{
    return 0;
}

// Xlib ends the process when the server goes away unless this handler returns.
void stayAlive(Display *, void *isLost)
{
    *static_cast<bool *>(isLost) = true;
}

} // namespace

struct X11Source::Connection
{
    std::unique_ptr<Display, CloseDisplay> display;
    int inputExtension = 0;
    bool isLost = false;
};

std::unique_ptr<X11Source> X11Source::open(QString *error)
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
    XSetIOErrorExitHandler(display, stayAlive, &connection->isLost);

    int opcode = 0;
    int eventBase = 0;
    int errorBase = 0;
    // Only the X server of a Wayland session lacks it. That server sees the input of its own windows
    // only: most of the work would not count.
    if (!XQueryExtension(display, "MIT-SCREEN-SAVER", &opcode, &eventBase, &errorBase)) {
        *error =
            QStringLiteral("сеансы Wayland не поддерживаются (X-сервер без расширения MIT-SCREEN-SAVER)");
        return nullptr;
    }
    // Since 2.1 raw events are sent during grabs too; 2.2 adds those of touch screens.
    int major = 2;
    int minor = 2;
    if (!XQueryExtension(display, "XInputExtension", &connection->inputExtension, &eventBase, &errorBase)
        || XIQueryVersion(display, &major, &minor) != Success
        || std::make_pair(major, minor) < std::make_pair(2, 2)) {
        *error = QStringLiteral("X-сервер не поддерживает расширение XInput версии 2.2");
        return nullptr;
    }
    return std::unique_ptr<X11Source>(new X11Source(std::move(connection)));
}

X11Source::X11Source(std::unique_ptr<Connection> connection)
    : m_connection(std::move(connection))
    , m_notifier(std::make_unique<QSocketNotifier>(ConnectionNumber(m_connection->display.get()),
                                                   QSocketNotifier::Read))
{
    m_pause.setTimerType(Qt::PreciseTimer);
    m_pause.setInterval(kInterval);
    m_pause.setSingleShot(true);
    m_pause.callOnTimeout(this, &X11Source::resume);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11Source::readEvents);
    select(true);
    XSync(m_connection->display.get(), False);
    // Events that came with the reply are in the queue of Xlib, of which the notifier does not know.
    QTimer::singleShot(0, this, &X11Source::readEvents);
}

X11Source::~X11Source() = default;

QString X11Source::name() const
{
    return QStringLiteral("X11, ") % QString::fromLocal8Bit(DisplayString(m_connection->display.get()));
}

// Raw events come from input devices only, not when a program moves the pointer or resets the screen saver.
void X11Source::select(bool input)
{
    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> bits = {};
    if (input) {
        for (const int type : {XI_RawKeyPress, XI_RawKeyRelease, XI_RawButtonPress, XI_RawButtonRelease,
                               XI_RawMotion, XI_RawTouchBegin, XI_RawTouchUpdate, XI_RawTouchEnd})
            bits[size_t(type) / 8] = static_cast<unsigned char>(bits[size_t(type) / 8] | 1U << type % 8);
    }
    // All devices, including those that are plugged in later and those that move no pointer.
    XIEventMask mask = {XIAllDevices, bits.size(), bits.data()};
    Display *display = m_connection->display.get();
    XISelectEvents(display, DefaultRootWindow(display), &mask, 1);
}

void X11Source::readEvents()
{
    Display *display = m_connection->display.get();
    // XPending() also sends pending requests before it checks for events: when it returns 0, none is
    // left in the queue of Xlib.
    while (!m_connection->isLost && XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        const bool isInput =
            event.type == GenericEvent && event.xgeneric.extension == m_connection->inputExtension;
        if (isInput && !m_pause.isActive()) {
            select(false);
            report();
        }
    }
    if (m_connection->isLost && m_notifier->isEnabled()) {
        m_notifier->setEnabled(false);
        m_pause.stop();
        emit lost();
    }
}

void X11Source::resume()
{
    if (isKeyRepeating())
        report();
    else
        select(true);
    readEvents();
}

// A key that is held down has only one raw event.
bool X11Source::isKeyRepeating()
{
    Display *display = m_connection->display.get();
    std::array<char, 32> pressed = {};
    XKeyboardState keyboard = {};
    XQueryKeymap(display, pressed.data());
    XGetKeyboardControl(display, &keyboard);
    if (m_connection->isLost || keyboard.global_auto_repeat != AutoRepeatModeOn)
        return false;
    for (size_t i = 0; i < pressed.size(); ++i) {
        if (pressed[i] & keyboard.auto_repeats[i])
            return true;
    }
    return false;
}

void X11Source::report()
{
    m_pause.start();
    emit active();
}
