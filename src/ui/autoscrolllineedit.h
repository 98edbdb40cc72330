#pragma once

#include <QBasicTimer>
#include <QTextEdit>

// A read-only, frameless, transparent box of plain text without scroll bars that
// slowly moves a long text up and, after a rest, starts over. No timer runs while
// the text fits or the box cannot be seen.
class AutoScrollLineEdit final : public QTextEdit
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AutoScrollLineEdit)

public:
    explicit AutoScrollLineEdit(QWidget *parent = nullptr);

    void setText(const QString &text);
    // Of every line, and of the whole text in the box.
    void setAlignment(Qt::Alignment alignment);
    bool isMoving() const { return m_timer.isActive(); }

protected:
    void timerEvent(QTimerEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void arrange();
    void rest();

    QBasicTimer m_timer;
    Qt::Alignment m_alignment = Qt::AlignLeft | Qt::AlignTop;
    bool m_resting = true;
};
