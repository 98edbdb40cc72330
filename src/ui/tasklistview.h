#pragma once

#include "widgets/rowview.h"

#include <QTimer>

class TaskRowDelegate;

// The rows of tasks: a click or Enter asks for the description, a double click,
// the row's button, Space or Ctrl+Enter for making the task the current one.
class TaskListView final : public RowView
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskListView)

public:
    explicit TaskListView(QWidget *parent = nullptr);

signals:
    void descriptionRequested(const QString &taskId);
    // Only for tasks on which time may be counted.
    void selectionRequested(const QString &taskId);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void pointAt(const QModelIndex &under, const QPoint &place) override;

private:
    bool isOnButton(const QModelIndex &index, const QPoint &place) const;
    void setHotButton(const QModelIndex &index, bool pressed);
    void requestSelection(const QModelIndex &index);

    TaskRowDelegate *m_delegate;
    QPersistentModelIndex m_hotButton;
    QPersistentModelIndex m_pressedRow;
    bool m_pressedOnButton = false;
    // Waits whether a click becomes a double click.
    QTimer m_clickTimer{this};
    QString m_clickedTask;
};
