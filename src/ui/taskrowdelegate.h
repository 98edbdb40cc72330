#pragma once

#include "widgets/rowdelegate.h"

#include <QIcon>

// Draws a task's row: icon, title, deadline, and at the right end the button
// that makes the task the current one, or the mark of the current task.
class TaskRowDelegate final : public RowDelegate
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskRowDelegate)

public:
    explicit TaskRowDelegate(QObject *parent = nullptr);

    QRect titleRect(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool isUsable(const QModelIndex &index) const override;
    // Within a row's rectangle.
    static QRect buttonRect(const QRect &row);
    static bool hasButton(const QModelIndex &index);

    // The row whose button is under the pointer; may be invalid.
    void setHotButton(const QModelIndex &index, bool pressed);

    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override;

protected:
    void drawRow(QPainter *painter, const QStyleOptionViewItem &row, const QModelIndex &index) const override;
    int rowHeight(const QStyleOptionViewItem &option) const override;

private:
    void drawTexts(QPainter *painter, const QStyleOptionViewItem &row, const QModelIndex &index) const;
    void drawEnd(QPainter *painter, const QRect &row, const QModelIndex &index) const;

    QIcon m_button;
    QIcon m_buttonHovered;
    QIcon m_buttonPressed;
    QIcon m_currentMark;
    QPersistentModelIndex m_hotButton;
    bool m_buttonIsPressed = false;
};
