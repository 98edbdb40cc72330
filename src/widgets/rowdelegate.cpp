#include "widgets/rowdelegate.h"

#include <QApplication>
#include <QPainter>

bool RowDelegate::isUsable(const QModelIndex &index) const
{
    return index.isValid();
}

void RowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem row = option;
    initStyleOption(&row, index);
    painter->save();
    const QStyle *style = row.widget ? row.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &row, painter, row.widget);
    painter->setFont(row.font);
    painter->setPen(row.palette.color(QPalette::Text));
    drawRow(painter, row, index);
    painter->restore();
}

QSize RowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    Q_UNUSED(index)
    return QSize(0, rowHeight(option));
}

void RowDelegate::drawTitle(QPainter *painter, const QStyleOptionViewItem &row,
                            const QModelIndex &index) const
{
    if (m_titledElsewhere != index)
        drawText(painter, titleRect(row, index), row.text);
}

void RowDelegate::drawText(QPainter *painter, const QRect &place, const QString &text)
{
    const QFontMetrics metrics = painter->fontMetrics();
    // Eliding counts fractions of a pixel, measuring does not.
    const bool fits = metrics.horizontalAdvance(text) <= place.width();
    painter->drawText(place, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                      fits ? text : metrics.elidedText(text, Qt::ElideRight, place.width()));
}
