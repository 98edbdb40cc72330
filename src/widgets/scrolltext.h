#pragma once

#include <QBasicTimer>
#include <QPen>
#include <QString>
#include <QWidget>

// One line of plain text that moves sideways when it is wider than the widget:
// it rests at the start, moves to the end, rests there and returns. It does so three
// times after it was shown or changed, and under the mouse pointer. Else, while the
// text fits, and while the widget cannot be seen, no timer runs.
class ScrollText final : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString text READ text WRITE setText)
    Q_DISABLE_COPY_MOVE(ScrollText)

public:
    // alwaysMoves: without it the text moves only under the mouse pointer.
    ScrollText(bool alwaysMoves, QWidget *parent);

    void setText(const QString &text);
    QString text() const { return m_text; }
    bool isMoving() const { return m_timer.isActive(); }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void timerEvent(QTimerEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;
    void enterEvent(QEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    enum class Phase { RestingAtStart, Moving, RestingAtEnd };

    int overhang() const;
    int hiddenOnLeft() const;
    QPen linePen(const QRect &box) const;
    void restart();
    void returnToStart();
    void rest(Phase phase);

    QString m_text;
    QString m_line; // what is shown of it
    QBasicTimer m_timer;
    Phase m_phase = Phase::RestingAtStart;
    int m_offset = 0;
    int m_rounds = 0; // since it began
    bool m_alwaysMoves;
};
