#pragma once

#include <QEvent>
#include <QKeyEvent>
#include <QMouseEvent>

// Whether the event activates a widget that acts as a button: a press of the left mouse
// button, of Enter or of Space.
inline bool isActivation(const QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress)
        return static_cast<const QMouseEvent *>(event)->button() == Qt::LeftButton;
    if (event->type() != QEvent::KeyPress)
        return false;
    const int key = static_cast<const QKeyEvent *>(event)->key();
    return key == Qt::Key_Space || key == Qt::Key_Return || key == Qt::Key_Enter;
}
