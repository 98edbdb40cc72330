#include "ui/artwork.h"

#include <QFile>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QWidget>

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

void Artwork::drawStretched(QPainter &painter, const QRect &rect, const QImage &image)
{
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
