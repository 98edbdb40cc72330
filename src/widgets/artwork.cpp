#include "widgets/artwork.h"

#include <QBitmap>
#include <QFile>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QWidget>
#include <QX11Info>

#include <algorithm>
#include <iterator>

QImage Artwork::load(const QString &path)
{
    if (qGuiApp->devicePixelRatio() > 1.0) {
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

QScreen *Artwork::screenOf(const QWidget *widget)
{
    QScreen *screen = widget ? widget->screen() : nullptr;
    return screen ? screen : QGuiApplication::primaryScreen();
}

void Artwork::centre(QWidget *window, const QWidget *other)
{
    const QScreen *screen = screenOf(other ? other : window);
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    window->move((area.left() + area.right()) / 2 - window->width() / 2,
                 (area.top() + area.bottom()) / 2 - window->height() / 2);
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

QPoint Artwork::beside(const QRect &anchor, const QSize &size, const QRect &area)
{
    const auto intoArea = [&](int x, int y) {
        return QPoint(std::max(area.left(), std::min(x, area.right() + 1 - size.width())),
                      std::max(area.top(), std::min(y, area.bottom() + 1 - size.height())));
    };
    const int alignedRight = anchor.right() + 1 - size.width();
    const QPoint places[] = {
        intoArea(anchor.left() - size.width(), anchor.top()), intoArea(anchor.right() + 1, anchor.top()),
        intoArea(alignedRight, anchor.bottom() + 1), intoArea(alignedRight, anchor.top() - size.height())};
    const auto *found = std::find_if(std::begin(places), std::end(places), [&](const QPoint &place) {
        return !QRect(place, size).intersects(anchor);
    });
    return found != std::end(places) ? *found : places[0];
}
