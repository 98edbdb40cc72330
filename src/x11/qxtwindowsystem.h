#pragma once

#include <QRect>
#include <QString>
#include <QVector>
#include <QWindow>

#include <chrono>
#include <optional>

// What the X server and the window manager know about the desktop at this moment. Any window id may
// be passed, even of a window that no longer exists. Without X11 there are no windows and no idle
// time; without a window manager there are no windows.
class QxtWindowSystem final
{
public:
    QxtWindowSystem() = delete;

    // The programs' top-level windows from the lowest to the uppermost.
    static QVector<WId> windows();
    // 0 when no window is active.
    static WId activeWindow();

    // Empty for an unknown window and for one without a title.
    static QString windowTitle(WId window);
    // Without the window manager's frame, in device pixels of the whole desktop. Null for an unknown window.
    static QRect windowGeometry(WId window);
    // The uppermost window with exactly this title, 0 when there is none.
    static WId findWindow(const QString &title);

    // Time since the last keyboard or pointer input; nothing when the server does not measure it.
    static std::optional<std::chrono::milliseconds> idleTime();
};
