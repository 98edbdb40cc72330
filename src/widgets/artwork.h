#pragma once

#include <QImage>
#include <QString>

class QPainter;
class QRect;
class QWidget;

namespace Artwork {

// The image of a resource, its twofold rendering where the screen has more than
// one pixel to the point. Null when there is no such resource.
QImage load(const QString &path);

// The whole image stretched over the rectangle, upon a face of its own where the
// desktop blends no windows: translucent paint would darken there.
void drawPane(QPainter &painter, const QRect &rect, const QImage &image);

// Where the desktop blends no windows, cuts the window to the pane of its
// background (stretched over the window), whose shadow and corners would be black.
void trimToPane(QWidget *window, const QImage &background);

} // namespace Artwork
