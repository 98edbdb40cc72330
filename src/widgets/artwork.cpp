#include "widgets/artwork.h"

#include <QBitmap>
#include <QPainter>
#include <QPixmap>
#include <QWidget>
#include <QX11Info>

// In the format of the screen, and kept by Qt for a while: popups load it at each paint.
QImage Artwork::load(const QString &path)
{
    QImage image = QPixmap(path).toImage();
    image.setDevicePixelRatio(1.0);
    return image;
}

namespace {

const QColor kFace(0xfb, 0xf9, 0xf7);

bool areWindowsBlended()
{
    return !QX11Info::isPlatformX11() || QX11Info::isCompositingManagerRunning();
}

} // namespace

void Artwork::drawPane(QPainter &painter, const QRect &rect, const QImage &image)
{
    if (!areWindowsBlended())
        painter.fillRect(rect, kFace);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    painter.drawImage(rect, image, QRect(QPoint(), image.size()));
}

void Artwork::trimToPane(QWidget *window, const QImage &background)
{
    if (areWindowsBlended() || background.isNull()) {
        window->clearMask();
        return;
    }
    // The pane is nearly opaque, the shadow is not.
    const QImage fitted = background.scaled(window->size()).convertToFormat(QImage::Format_ARGB32);
    window->setMask(QBitmap::fromImage(fitted.createAlphaMask(Qt::ThresholdDither | Qt::AvoidDither)));
}
