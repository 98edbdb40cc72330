#pragma once

#include <QListView>
#include <QTimer>

class ScrollText;
class TaskRowDelegate;

// The rows of tasks: a click or Enter asks for the description, a double click,
// the row's button, Space or Ctrl+Enter for making the task the current one. A
// title that is too long moves in the row under the pointer, or else in the
// current row; nowhere else and never while hidden.
class TaskListView final : public QListView
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskListView)

public:
    explicit TaskListView(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model) override;

signals:
    void descriptionRequested(const QString &taskId);
    // Only for tasks on which time may be counted.
    void selectionRequested(const QString &taskId);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;

private:
    bool isOnButton(const QModelIndex &index, const QPoint &place) const;
    void pointAt(const QPoint &place);
    void setHotButton(const QModelIndex &index, bool pressed);
    void requestSelection(const QModelIndex &index);
    void followTitle();

    TaskRowDelegate *m_delegate;
    ScrollText *m_title;
    QPersistentModelIndex m_hovered;
    QPersistentModelIndex m_titled; // the row that m_title covers
    QPersistentModelIndex m_hotButton;
    QPersistentModelIndex m_pressedRow;
    bool m_pressedOnButton = false;
    // Waits whether a click becomes a double click.
    QTimer m_clickTimer{this};
    QString m_clickedTask;
};
