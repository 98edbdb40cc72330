#include "ui/rowdelegate.h"

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
    painter->drawText(place, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                      painter->fontMetrics().elidedText(text, Qt::ElideRight, place.width()));
}
