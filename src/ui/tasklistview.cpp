#include "ui/tasklistview.h"

#include "ui/scrolltext.h"
#include "ui/tasklistmodel.h"
#include "ui/taskrowdelegate.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QToolTip>

TaskListView::TaskListView(QWidget *parent)
    : QListView(parent)
    , m_delegate(new TaskRowDelegate(this))
    , m_title(new ScrollText(true, viewport()))
{
    setItemDelegate(m_delegate);
    setUniformItemSizes(true);
    setEditTriggers(NoEditTriggers);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(ScrollPerPixel);
    setMouseTracking(true);
    m_title->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_title->hide();
    m_clickTimer.setSingleShot(true);
    connect(&m_clickTimer, &QTimer::timeout, this, [this] { emit descriptionRequested(m_clickedTask); });
}

void TaskListView::setModel(QAbstractItemModel *model)
{
    QListView::setModel(model);
    if (!model)
        return;
    connect(model, &QAbstractItemModel::modelReset, this, &TaskListView::followTitle);
    connect(model, &QAbstractItemModel::dataChanged, this, &TaskListView::followTitle);
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
    QListView::mousePressEvent(event);
    m_pressedRow = event->button() == Qt::LeftButton ? indexAt(event->pos()) : QModelIndex();
    m_pressedOnButton = isOnButton(m_pressedRow, event->pos());
    if (m_pressedOnButton)
        setHotButton(m_pressedRow, true);
}

void TaskListView::mouseMoveEvent(QMouseEvent *event)
{
    QListView::mouseMoveEvent(event);
    pointAt(event->pos());
}

void TaskListView::pointAt(const QPoint &place)
{
    const QModelIndex under = indexAt(place);
    setHotButton(isOnButton(under, place) ? under : QModelIndex(),
                 m_pressedOnButton && m_pressedRow == under);
    if (m_hovered != under) {
        m_hovered = under;
        followTitle();
    }
}

void TaskListView::mouseReleaseEvent(QMouseEvent *event)
{
    QListView::mouseReleaseEvent(event);
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
    QListView::mouseDoubleClickEvent(event);
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
    const bool isEnter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const QModelIndex row = currentIndex();
    if (!row.isValid() || (!isEnter && event->key() != Qt::Key_Space)) {
        QListView::keyPressEvent(event);
        return;
    }
    if (isEnter && !event->modifiers().testFlag(Qt::ControlModifier))
        emit descriptionRequested(row.data(TaskListModel::IdRole).toString());
    else
        requestSelection(row);
    event->accept();
}

// Puts the moving title over the row that shows one, or takes it away.
void TaskListView::followTitle()
{
    QModelIndex row = m_hovered;
    if (!row.isValid() && hasFocus())
        row = currentIndex();
    const QRect place = TaskRowDelegate::titleRect(visualRect(row), fontMetrics());
    const QString text = row.data(Qt::DisplayRole).toString();
    if (!isVisible() || fontMetrics().horizontalAdvance(text) <= place.width())
        row = QModelIndex();
    if (m_titled != row) {
        const QModelIndex before = m_titled;
        m_titled = row;
        m_delegate->setTitledElsewhere(row);
        m_title->hide();
        if (before.isValid())
            update(before);
        if (row.isValid())
            update(row);
    }
    if (!row.isValid())
        return;
    m_title->setEnabled(row.data(TaskListModel::OfferedRole).toBool());
    m_title->setText(text);
    m_title->setGeometry(place);
    m_title->show();
}

bool TaskListView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Leave) {
        m_hovered = QModelIndex();
        setHotButton(QModelIndex(), false);
        followTitle();
    } else if (event->type() == QEvent::Enter) {
        // No move follows when a tool tip under the pointer goes away.
        pointAt(static_cast<QEnterEvent *>(event)->pos());
    }
    return QListView::viewportEvent(event);
}

void TaskListView::focusInEvent(QFocusEvent *event)
{
    QListView::focusInEvent(event);
    followTitle();
}

void TaskListView::focusOutEvent(QFocusEvent *event)
{
    QListView::focusOutEvent(event);
    followTitle();
}

void TaskListView::hideEvent(QHideEvent *event)
{
    QListView::hideEvent(event);
    m_clickTimer.stop();
    m_hovered = QModelIndex();
    setHotButton(QModelIndex(), false);
    followTitle();
}

void TaskListView::showEvent(QShowEvent *event)
{
    QListView::showEvent(event);
    followTitle();
}

void TaskListView::resizeEvent(QResizeEvent *event)
{
    QListView::resizeEvent(event);
    followTitle();
}

void TaskListView::scrollContentsBy(int dx, int dy)
{
    QListView::scrollContentsBy(dx, dy);
    followTitle();
}

void TaskListView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QListView::currentChanged(current, previous);
    followTitle();
}
