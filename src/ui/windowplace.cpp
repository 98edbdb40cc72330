#include "ui/windowplace.h"

#include "notifications/notificationmanager.h"
#include "x11/windowmanager.h"

#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QWidget>
#include <QWindow>

WindowPlace::WindowPlace(QWidget *window)
    : QObject(window)
    , m_window(window)
{
    window->installEventFilter(this);
    window->setFixedSize(window->size());
    moveToCorner();
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &WindowPlace::followScreen);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &WindowPlace::stayReachable);
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, &WindowPlace::stayReachable);
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens)
        followScreen(screen);
}

// The corner under which the popups are stacked.
void WindowPlace::moveToCorner()
{
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        m_window->move(area.x() + area.width() - m_window->width(), area.y());
    }
}

void WindowPlace::stayReachable()
{
    if (!QGuiApplication::screenAt(m_window->frameGeometry().center()))
        moveToCorner();
    if (m_wasShown && m_window->isHidden() && !QSystemTrayIcon::isSystemTrayAvailable())
        emit unreachable();
}

// Asks the X server which window is on top at a few places.
bool WindowPlace::isInSight() const
{
    if (!m_window->isVisible() || m_window->isMinimized() || !isOnCurrentDesktop(m_window))
        return false;
    for (const int x : {1, 2, 3}) {
        for (const int y : {1, 2, 3}) {
            const QPoint place =
                m_window->mapToGlobal(QPoint(m_window->width() * x / 4, m_window->height() * y / 4));
            if (QGuiApplication::topLevelAt(place) == m_window->windowHandle())
                return true;
        }
    }
    return false;
}

// The popups stay clear of panels that come or go.
void WindowPlace::followScreen(QScreen *screen)
{
    connect(screen, &QScreen::availableGeometryChanged, this, &WindowPlace::placePopups);
    placePopups();
}

void WindowPlace::placePopups()
{
    NotificationManager::instance()->updatePositions();
}

bool WindowPlace::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (watched != m_window
        || (type != QEvent::Show && type != QEvent::Hide && type != QEvent::WindowStateChange
            && type != QEvent::Move))
        return QObject::eventFilter(watched, event);
    if (type == QEvent::Show) {
        m_wasShown = true;
        // Flags that change make another handle.
        connect(m_window->windowHandle(), &QWindow::screenChanged, this, &WindowPlace::placePopups,
                Qt::UniqueConnection);
    }
    placePopups();
    // A panel restores the window without asking it.
    if (type != QEvent::Hide && type != QEvent::Move && m_window->isVisible() && !m_window->isMinimized())
        emit cameBack();
    return QObject::eventFilter(watched, event);
}
