#pragma once

#include <QImage>
#include <QString>

class QPainter;
class QRect;
class QScreen;
class QWidget;

namespace Artwork {

// The image of a resource, its twofold rendering where the screen has more than
// one pixel to the point. Null when there is no such resource.
QImage load(const QString &path);

// The whole image stretched over the rectangle, upon a face of its own where the
// desktop blends no windows: translucent paint would darken there.
void drawPane(QPainter &painter, const QRect &rect, const QImage &image);

// Moves the window to the middle of the free area of the other's screen (or of
// its own); the window must have its size.
void centre(QWidget *window, const QWidget *other = nullptr);

// Where a window of this size goes so that it lies in the area beside the anchor
// (left, right), else below or above it, else over it.
QPoint beside(const QRect &anchor, const QSize &size, const QRect &area);

// Where the desktop blends no windows, cuts the window to the pane of its
// background (stretched over the window), whose shadow and corners would be black.
void trimToPane(QWidget *window, const QImage &background);

QScreen *screenOf(const QWidget *widget);

} // namespace Artwork
