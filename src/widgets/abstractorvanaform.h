#pragma once

#include <QDialog>
#include <QImage>

#include <optional>

// A frameless, translucent dialog that paints a background image over its whole
// size and can be dragged by any area that no control covers.
class AbstractOrvanaForm : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AbstractOrvanaForm)

public:
    explicit AbstractOrvanaForm(QWidget *parent = nullptr);
    ~AbstractOrvanaForm() override = default;

    // Hides the window until comeBack(). One that is hidden already stays so, and one
    // that is shown and closed in between no longer comes back.
    void hideForNow();
    void comeBack();

protected:
    void setBackground(const QString &path);
    // Whether the user has dragged the window to a place of its own.
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
    // From the window's corner to the pointer, while the button is down.
    std::optional<QPoint> m_grip;
    bool m_wasDragged = false;
    bool m_comesBack = false;
};
