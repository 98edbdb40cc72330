#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

class QWidget;

namespace Placement {

// The free area of the widget's screen; for null, of the primary one. Null without any screen.
QRect freeArea(const QWidget *widget);

// Moves the window to the middle of the free area of the other's screen (or of
// its own); the window must have its size.
void centre(QWidget *window, const QWidget *other = nullptr);

// Where a window of this size goes so that it lies in the area next to the anchor
// (left, right), else below or above it, else over it.
QPoint nextTo(const QRect &anchor, const QSize &size, const QRect &area);

} // namespace Placement
