#include "widgets/rowview.h"

#include "widgets/rowdelegate.h"
#include "widgets/scrolltext.h"

#include <QMouseEvent>

RowView::RowView(QWidget *parent)
    : QListView(parent)
    , m_title(new ScrollText(true, viewport()))
{
    setUniformItemSizes(true);
    setEditTriggers(NoEditTriggers);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(ScrollPerPixel);
    setMouseTracking(true);
    m_title->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_title->hide();
}

void RowView::setModel(QAbstractItemModel *model)
{
    QListView::setModel(model);
    if (!model)
        return;
    connect(model, &QAbstractItemModel::modelReset, this, &RowView::followTitle);
    connect(model, &QAbstractItemModel::dataChanged, this, &RowView::followTitle);
}

void RowView::setRowDelegate(RowDelegate *delegate)
{
    delegate->setParent(this);
    m_rowDelegate = delegate;
    setItemDelegate(delegate);
}

// Puts the moving title over the row that shows one, or hides it.
void RowView::followTitle()
{
    QModelIndex row = m_hovered;
    if (!row.isValid() && hasFocus())
        row = currentIndex();
    QRect place;
    const QString text = row.data(Qt::DisplayRole).toString();
    if (row.isValid() && m_rowDelegate) {
        QStyleOptionViewItem option = viewOptions();
        option.rect = visualRect(row);
        place = m_rowDelegate->titleRect(option, row);
    }
    if (!isVisible() || fontMetrics().horizontalAdvance(text) <= place.width())
        row = QModelIndex();
    if (m_titled != row) {
        const QModelIndex before = m_titled;
        m_titled = row;
        if (m_rowDelegate)
            m_rowDelegate->setTitledElsewhere(row);
        m_title->hide();
        if (before.isValid())
            update(before);
        if (row.isValid())
            update(row);
    }
    if (!row.isValid())
        return;
    m_title->setEnabled(m_rowDelegate->isUsable(row));
    m_title->setText(text);
    m_title->setGeometry(place);
    m_title->show();
}

void RowView::pointAt(const QModelIndex &under, const QPoint &place)
{
    Q_UNUSED(place)
    if (m_hovered == under)
        return;
    m_hovered = under;
    followTitle();
}

void RowView::mouseMoveEvent(QMouseEvent *event)
{
    QListView::mouseMoveEvent(event);
    pointAt(indexAt(event->pos()), event->pos());
}

bool RowView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Leave) {
        pointAt(QModelIndex(), QPoint());
    } else if (event->type() == QEvent::Enter) {
        // No move follows when a tool tip under the pointer goes away.
        const QPoint place = static_cast<QEnterEvent *>(event)->pos();
        pointAt(indexAt(place), place);
    }
    return QListView::viewportEvent(event);
}

void RowView::focusInEvent(QFocusEvent *event)
{
    QListView::focusInEvent(event);
    followTitle();
}

void RowView::focusOutEvent(QFocusEvent *event)
{
    QListView::focusOutEvent(event);
    followTitle();
}

void RowView::hideEvent(QHideEvent *event)
{
    QListView::hideEvent(event);
    pointAt(QModelIndex(), QPoint());
    followTitle();
}

void RowView::showEvent(QShowEvent *event)
{
    QListView::showEvent(event);
    followTitle();
}

void RowView::resizeEvent(QResizeEvent *event)
{
    QListView::resizeEvent(event);
    followTitle();
}

void RowView::scrollContentsBy(int dx, int dy)
{
    QListView::scrollContentsBy(dx, dy);
    followTitle();
}

void RowView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QListView::currentChanged(current, previous);
    followTitle();
}
