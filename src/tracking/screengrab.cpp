#include "tracking/screengrab.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

// With several monitors a grab of the root window is one monitor only; the
// rectangle of the virtual desktop, seen from the screen's corner, is all.
QImage grabDesktop()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return {};
    const QRect desktop = screen->virtualGeometry().translated(-screen->geometry().topLeft());
    return screen->grabWindow(0, desktop.x(), desktop.y(), desktop.width(), desktop.height()).toImage();
}
