#pragma once

#include <QListView>

class RowDelegate;
class ScrollText;

// Rows drawn by a delegate, of any number. A title that is too long moves in the row
// under the pointer, or else in the current row while the view has the focus; nowhere
// else and never while hidden.
class RowView : public QListView
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RowView)

public:
    explicit RowView(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model) override;
    // Becomes a child.
    void setRowDelegate(RowDelegate *delegate);

protected:
    // The pointer is at this place of the row; the row is invalid where there is none.
    virtual void pointAt(const QModelIndex &under, const QPoint &place);

    void mouseMoveEvent(QMouseEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;

private:
    void followTitle();

    RowDelegate *m_rowDelegate = nullptr; // a child
    ScrollText *m_title;
    QPersistentModelIndex m_hovered;
    QPersistentModelIndex m_titled; // the row that m_title covers
};
