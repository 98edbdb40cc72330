#include "ui/tasklistview.h"

#include "ui/tasklistmodel.h"
#include "ui/taskrowdelegate.h"
#include "widgets/activation.h"

#include <QApplication>
#include <QToolTip>

TaskListView::TaskListView(QWidget *parent)
    : RowView(parent)
    , m_delegate(new TaskRowDelegate(this))
{
    setRowDelegate(m_delegate);
    m_clickTimer.setSingleShot(true);
    connect(&m_clickTimer, &QTimer::timeout, this, [this] { emit descriptionRequested(m_clickedTask); });
}

bool TaskListView::isOnButton(const QModelIndex &index, const QPoint &place) const
{
    return index.isValid() && TaskRowDelegate::hasButton(index)
        && TaskRowDelegate::buttonRect(visualRect(index)).contains(place);
}

void TaskListView::setHotButton(const QModelIndex &index, bool pressed)
{
    const QModelIndex before = m_hotButton;
    m_hotButton = index;
    m_delegate->setHotButton(index, pressed);
    if (before.isValid())
        update(before);
    if (index.isValid())
        update(index);
}

void TaskListView::mousePressEvent(QMouseEvent *event)
{
    m_clickTimer.stop();
    RowView::mousePressEvent(event);
    m_pressedRow = event->button() == Qt::LeftButton ? indexAt(event->pos()) : QModelIndex();
    m_pressedOnButton = isOnButton(m_pressedRow, event->pos());
    if (m_pressedOnButton)
        setHotButton(m_pressedRow, true);
}

void TaskListView::pointAt(const QModelIndex &under, const QPoint &place)
{
    setHotButton(isOnButton(under, place) ? under : QModelIndex(),
                 m_pressedOnButton && m_pressedRow == under);
    RowView::pointAt(under, place);
}

void TaskListView::mouseReleaseEvent(QMouseEvent *event)
{
    RowView::mouseReleaseEvent(event);
    const QModelIndex under = indexAt(event->pos());
    const QPersistentModelIndex pressed = m_pressedRow;
    m_pressedRow = QModelIndex();
    if (event->button() != Qt::LeftButton || !pressed.isValid() || pressed != under)
        return;
    if (!m_pressedOnButton) {
        m_clickedTask = pressed.data(TaskListModel::IdRole).toString();
        m_clickTimer.start(QApplication::doubleClickInterval());
    } else if (isOnButton(under, event->pos())) {
        setHotButton(under, false);
        requestSelection(under);
    }
}

void TaskListView::mouseDoubleClickEvent(QMouseEvent *event)
{
    m_clickTimer.stop();
    RowView::mouseDoubleClickEvent(event);
    // The release that follows must not count as a click.
    m_pressedRow = QModelIndex();
    const QModelIndex under = indexAt(event->pos());
    if (event->button() != Qt::LeftButton || !under.isValid())
        return;
    if (!under.data(TaskListModel::OfferedRole).toBool())
        QToolTip::showText(event->globalPos(), under.data(Qt::ToolTipRole).toString(), this);
    requestSelection(under);
}

void TaskListView::requestSelection(const QModelIndex &index)
{
    if (index.data(TaskListModel::OfferedRole).toBool())
        emit selectionRequested(index.data(TaskListModel::IdRole).toString());
}

void TaskListView::keyPressEvent(QKeyEvent *event)
{
    const QModelIndex row = currentIndex();
    if (!row.isValid() || !isActivation(event)) {
        RowView::keyPressEvent(event);
        return;
    }
    if (event->key() == Qt::Key_Space || event->modifiers().testFlag(Qt::ControlModifier))
        requestSelection(row);
    else
        emit descriptionRequested(row.data(TaskListModel::IdRole).toString());
    event->accept();
}

void TaskListView::hideEvent(QHideEvent *event)
{
    RowView::hideEvent(event);
    m_clickTimer.stop();
}
