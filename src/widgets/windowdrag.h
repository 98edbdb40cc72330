#pragma once

#include <QMouseEvent>
#include <QWidget>

#include <optional>

// Moves a window with the pointer, from a press that reached the window to the release
// of the button. Moves that belong to a press on one of its controls do nothing.
class WindowDrag final
{
public:
    void press(const QMouseEvent *event, const QWidget *window)
    {
        if (event->button() == Qt::LeftButton)
            m_grip = event->globalPos() - window->frameGeometry().topLeft();
    }

    // True when the window is being dragged.
    bool move(const QMouseEvent *event, QWidget *window)
    {
        if (!event->buttons().testFlag(Qt::LeftButton))
            end();
        if (m_grip)
            window->move(event->globalPos() - *m_grip);
        return m_grip.has_value();
    }

    void release(const QMouseEvent *event)
    {
        if (event->button() == Qt::LeftButton)
            end();
    }

    // For a window that is hidden while the button is down: it never gets the release.
    void end() { m_grip.reset(); }

private:
    std::optional<QPoint> m_grip; // from the window's corner to the pointer
};
