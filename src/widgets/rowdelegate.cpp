#include "widgets/rowdelegate.h"

#include <QApplication>
#include <QPainter>

bool RowDelegate::isUsable(const QModelIndex &index) const
{
    return index.isValid();
}

void RowDelegate::drawFace(QPainter *painter, const QStyleOptionViewItem &option)
{
    const QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &option, painter, option.widget);
}

void RowDelegate::drawTitle(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    if (m_titledElsewhere != index)
        drawText(painter, titleRect(option, index), option.text);
}

void RowDelegate::drawText(QPainter *painter, const QRect &place, const QString &text)
{
    const QFontMetrics metrics = painter->fontMetrics();
    // Eliding counts fractions of a pixel, measuring does not.
    const bool fits = metrics.horizontalAdvance(text) <= place.width();
    painter->drawText(place, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                      fits ? text : metrics.elidedText(text, Qt::ElideRight, place.width()));
}
