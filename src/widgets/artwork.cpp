#include "widgets/artwork.h"

#include <QBitmap>
#include <QFile>
#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>
#include <QWidget>
#include <QX11Info>

// Where it is not scaled, in the format of the screen, so that a repaint converts nothing, and
// kept by Qt for a while. In that format Qt scales without smoothing.
QImage Artwork::load(const QString &path)
{
    const qreal scale = qGuiApp->devicePixelRatio();
    if (qFuzzyCompare(scale, 1.0))
        return QPixmap(path).toImage();
    if (scale > 1.0) {
        QString fine = path;
        fine.insert(fine.lastIndexOf(QLatin1Char('.')), QLatin1String("@2x"));
        if (QFile::exists(fine))
            return QImage(fine);
    }
    return QImage(path);
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
