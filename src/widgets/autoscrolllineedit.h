#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QTextDocument>
#include <QWidget>

#include <chrono>

// A transparent box of plain text that slowly scrolls a long text to its end and back,
// with a rest at both. It begins at the top whenever the box is shown, and after three
// times it stays there until the mouse pointer enters the window. Then, while the text
// fits, and while the box cannot be seen, no timer runs.
class AutoScrollLineEdit final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AutoScrollLineEdit)

public:
    explicit AutoScrollLineEdit(QWidget *parent = nullptr);

    void setText(const QString &text);
    QString text() const { return m_document.toPlainText(); }
    // Of every line, and of the whole text in the box.
    void setAlignment(Qt::Alignment alignment);
    // How long the box is shown: a long text moves as fast as it takes to show all of it
    // in that time, with time to read the end. 0, the default, is without limit.
    void setTimeToRead(std::chrono::milliseconds time);
    bool isMoving() const { return m_timer.isActive(); }
    // How far the text has moved up, and how far it can, in pixels; while the box is shown.
    int offset() const { return m_offset; }
    int overhang() const { return m_overhang; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void timerEvent(QTimerEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void arrange();
    int heightOfWholeLines() const;
    void rest();
    int restTime() const;
    int moveTime() const;

    QTextDocument m_document;
    QRect m_shown; // the part of the box with text in it
    QBasicTimer m_timer;
    QElapsedTimer m_sinceStart; // of the present move
    Qt::Alignment m_alignment = Qt::AlignLeft | Qt::AlignTop;
    bool m_resting = true;
    bool m_isReturning = false;
    int m_offset = 0;
    int m_overhang = 0;
    int m_timeToRead = 0; // ms
    int m_rounds = 0; // since it began
};
