#include "widgets/placement.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <algorithm>
#include <iterator>

QRect Placement::freeArea(const QWidget *widget)
{
    const QScreen *screen = widget ? widget->screen() : nullptr;
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

void Placement::centre(QWidget *window, const QWidget *other)
{
    const QRect area = freeArea(other ? other : window);
    if (area.isNull())
        return;
    window->move((area.left() + area.right()) / 2 - window->width() / 2,
                 (area.top() + area.bottom()) / 2 - window->height() / 2);
}

QPoint Placement::nextTo(const QRect &anchor, const QSize &size, const QRect &area)
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
