#include "ui/taskrowdelegate.h"

#include "ui/tasklistmodel.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

#include <algorithm>

namespace {

constexpr int kMinHeight = 46;
constexpr int kPadding = 7;
constexpr int kLineGap = 2;
constexpr int kIconSize = 20;
constexpr int kIconLeft = 12;
constexpr int kTextLeft = 42;
constexpr int kButtonSize = 24;
constexpr int kButtonRight = 8;
constexpr int kTextRight = kButtonRight + kButtonSize + 6;
constexpr int kMarkWidth = 3;
constexpr int kPartGap = 10;
constexpr double kSmallToBody = 11.0 / 13.0;
constexpr double kHeldBackOpacity = 0.45;
const QColor kTitleColour(0x4a, 0x4a, 0x4a);
const QColor kTextColour(0x64, 0x64, 0x64);
const QColor kOverdueColour(0xb8, 0x35, 0x2f);
const QColor kAccent(249, 156, 0);

QFont smallFont(const QFont &body)
{
    QFont font = body;
    if (font.pixelSize() > 0)
        font.setPixelSize(std::max(1, qRound(font.pixelSize() * kSmallToBody)));
    else
        font.setPointSizeF(font.pointSizeF() * kSmallToBody);
    return font;
}

} // namespace

TaskRowDelegate::TaskRowDelegate(QObject *parent)
    : RowDelegate(parent)
    , m_button(QStringLiteral(":/images/pbSelectTask.png"))
    , m_buttonHovered(QStringLiteral(":/images/pbSelectTask_hovered.png"))
    , m_buttonPressed(QStringLiteral(":/images/pbSelectTask_pressed.png"))
    , m_currentMark(QStringLiteral(":/images/taskCurrent.png"))
{ }

QRect TaskRowDelegate::titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    Q_UNUSED(index)
    const QRect &row = option.rect;
    return QRect(row.left() + kTextLeft, row.top() + kPadding, row.width() - kTextLeft - kTextRight,
                 option.fontMetrics.height());
}

bool TaskRowDelegate::isUsable(const QModelIndex &index) const
{
    return index.data(TaskListModel::OfferedRole).toBool();
}

QRect TaskRowDelegate::buttonRect(const QRect &row)
{
    return QRect(row.right() + 1 - kButtonRight - kButtonSize, row.center().y() - kButtonSize / 2 + 1,
                 kButtonSize, kButtonSize);
}

bool TaskRowDelegate::hasButton(const QModelIndex &index)
{
    return index.data(TaskListModel::OfferedRole).toBool()
        && !index.data(TaskListModel::CurrentRole).toBool();
}

void TaskRowDelegate::setHotButton(const QModelIndex &index, bool pressed)
{
    m_hotButton = index;
    m_buttonIsPressed = pressed;
}

void TaskRowDelegate::drawRow(QPainter *painter, const QStyleOptionViewItem &row,
                              const QModelIndex &index) const
{
    if (index.data(TaskListModel::CurrentRole).toBool())
        painter->fillRect(
            QRect(row.rect.topLeft(), QSize(kMarkWidth, row.rect.height())).adjusted(0, 4, 0, -4), kAccent);
    if (!isUsable(index))
        painter->setOpacity(kHeldBackOpacity);
    row.icon.paint(
        painter,
        QRect(row.rect.left() + kIconLeft, row.rect.center().y() - kIconSize / 2 + 1, kIconSize, kIconSize));
    drawTexts(painter, row, index);
    drawEnd(painter, row.rect, index);
}

void TaskRowDelegate::drawTexts(QPainter *painter, const QStyleOptionViewItem &row,
                                const QModelIndex &index) const
{
    const QRect title = titleRect(row, index);
    painter->setPen(kTitleColour);
    drawTitle(painter, row, index);
    const QFont font = smallFont(row.font);
    painter->setFont(font);
    QRect line(title.left(), title.bottom() + 1 + kLineGap, title.width(), QFontMetrics(font).height());
    painter->setPen(kTextColour);
    const QString deadline = index.data(TaskListModel::DeadlineRole).toString();
    drawText(painter, line, deadline);
    line.setLeft(line.left() + painter->fontMetrics().horizontalAdvance(deadline) + kPartGap);
    const QString overdue = index.data(TaskListModel::OverdueRole).toString();
    if (overdue.isEmpty() || line.width() <= 0)
        return;
    painter->setPen(kOverdueColour);
    drawText(painter, line, overdue);
}

void TaskRowDelegate::drawEnd(QPainter *painter, const QRect &row, const QModelIndex &index) const
{
    const QRect place = buttonRect(row);
    if (index.data(TaskListModel::CurrentRole).toBool()) {
        m_currentMark.paint(painter, place);
        return;
    }
    if (!hasButton(index))
        return;
    if (m_hotButton != index)
        m_button.paint(painter, place);
    else
        (m_buttonIsPressed ? m_buttonPressed : m_buttonHovered).paint(painter, place);
}

int TaskRowDelegate::rowHeight(const QStyleOptionViewItem &option) const
{
    const int height =
        2 * kPadding + option.fontMetrics.height() + kLineGap + QFontMetrics(smallFont(option.font)).height();
    return std::max(height, kMinHeight);
}

bool TaskRowDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view,
                                const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const QRect place = buttonRect(option.rect);
    if (event->type() != QEvent::ToolTip || !place.contains(event->pos()))
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    if (index.data(TaskListModel::CurrentRole).toBool())
        QToolTip::showText(event->globalPos(), QStringLiteral("Текущая задача"), view->viewport(), place);
    else if (hasButton(index))
        QToolTip::showText(event->globalPos(), QStringLiteral("Выбрать задачу"), view->viewport(), place);
    else
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    return true;
}
