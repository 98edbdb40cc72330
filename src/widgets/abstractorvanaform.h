#pragma once

#include "widgets/windowdrag.h"

#include <QDialog>
#include <QImage>

// A frameless, translucent dialog that paints a background image over its whole
// size and can be dragged by any area that no control covers.
class AbstractOrvanaForm : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AbstractOrvanaForm)

public:
    explicit AbstractOrvanaForm(QWidget *parent = nullptr);
    ~AbstractOrvanaForm() override = default;

protected:
    void setBackground(const QString &path);
    // Whether the user ever dragged the window to a place of its own.
    bool wasDragged() const { return m_wasDragged; }

    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    QString m_backgroundPath;
    QImage m_background; // null while the window is hidden
    WindowDrag m_drag;
    bool m_wasDragged = false;
};
