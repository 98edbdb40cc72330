#pragma once

#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

// Draws rows with a title that another widget may show instead.
class RowDelegate : public QStyledItemDelegate
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RowDelegate)

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // Where in the row of this option the title is.
    virtual QRect titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const = 0;
    // Whether the title looks like those of rows that can be used.
    virtual bool isUsable(const QModelIndex &index) const;
    // The row whose title another widget shows; may be invalid.
    void setTitledElsewhere(const QModelIndex &index) { m_titledElsewhere = index; }

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const final;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const final;

protected:
    // Draws what the style sheet leaves to the row. The painter has the row's font and
    // text colour; what is changed of it is restored.
    virtual void drawRow(QPainter *painter, const QStyleOptionViewItem &row,
                         const QModelIndex &index) const = 0;
    virtual int rowHeight(const QStyleOptionViewItem &option) const = 0;
    void drawTitle(QPainter *painter, const QStyleOptionViewItem &row, const QModelIndex &index) const;
    // As much of the text as fits.
    static void drawText(QPainter *painter, const QRect &place, const QString &text);

private:
    QPersistentModelIndex m_titledElsewhere;
};
