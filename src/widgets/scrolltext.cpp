#include "widgets/scrolltext.h"

#include "widgets/simplemarkup.h"

#include <QEvent>
#include <QPainter>
#include <QStyleOption>
#include <QTimerEvent>

#include <algorithm>

namespace {

constexpr int kRestAtStart = 3000; // ms
constexpr int kRestAtEnd = 2000; // ms
constexpr int kStep = 40; // ms for a pixel
constexpr int kFade = 20;
constexpr int kRounds = 3; // each step paints the line again

} // namespace

ScrollText::ScrollText(bool alwaysMoves, QWidget *parent)
    : QWidget(parent)
    , m_alwaysMoves(alwaysMoves)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void ScrollText::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    m_line = titleLine(text); // each step lays out the whole line
    setAccessibleName(m_line);
    updateGeometry();
    restart();
}

QSize ScrollText::sizeHint() const
{
    return QSize(fontMetrics().horizontalAdvance(m_line), fontMetrics().height()).grownBy(contentsMargins());
}

QSize ScrollText::minimumSizeHint() const
{
    return QSize(fontMetrics().averageCharWidth() * 4, fontMetrics().height()).grownBy(contentsMargins());
}

int ScrollText::overhang() const
{
    return std::max(0, fontMetrics().horizontalAdvance(m_line) - contentsRect().width());
}

// A line that is read from right to left starts at its right end.
int ScrollText::hiddenOnLeft() const
{
    return m_line.isRightToLeft() ? overhang() - m_offset : m_offset;
}

void ScrollText::restart()
{
    m_rounds = 0;
    returnToStart();
}

void ScrollText::returnToStart()
{
    m_offset = 0;
    rest(Phase::RestingAtStart);
    update();
}

void ScrollText::rest(Phase phase)
{
    m_phase = phase;
    if (isVisible() && ((m_alwaysMoves && m_rounds < kRounds) || underMouse()) && overhang() > 0)
        m_timer.start(phase == Phase::RestingAtStart ? kRestAtStart : kRestAtEnd, this);
    else
        m_timer.stop();
}

void ScrollText::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != m_timer.timerId()) {
        QWidget::timerEvent(event);
        return;
    }
    switch (m_phase) {
    case Phase::RestingAtStart:
        m_phase = Phase::Moving;
        m_timer.start(kStep, Qt::PreciseTimer, this);
        break;
    case Phase::Moving:
        ++m_offset;
        if (m_offset >= overhang())
            rest(Phase::RestingAtEnd);
        update();
        break;
    case Phase::RestingAtEnd:
        ++m_rounds;
        returnToStart();
        break;
    }
}

void ScrollText::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QPainter painter(this);
    QStyleOption option;
    option.initFrom(this);
    style()->drawPrimitive(QStyle::PE_Widget, &option, &painter, this);
    const QRect box = contentsRect();
    painter.setPen(linePen(box));
    painter.setClipRect(box);
    painter.drawText(box.adjusted(-hiddenOnLeft(), 0, overhang(), 0), Qt::AlignLeft | Qt::AlignVCenter,
                     m_line);
}

// The line fades out towards the side on which there is more of it.
QPen ScrollText::linePen(const QRect &box) const
{
    const QColor colour = palette().color(QPalette::WindowText);
    const int hidden = overhang();
    if (hidden == 0 || box.width() <= 2 * kFade)
        return colour;
    QColor faded = colour;
    faded.setAlpha(0);
    QLinearGradient gradient(box.left(), 0, box.right() + 1, 0);
    const qreal edge = qreal(kFade) / box.width();
    gradient.setColorAt(0, hiddenOnLeft() > 0 ? faded : colour);
    gradient.setColorAt(edge, colour);
    gradient.setColorAt(1 - edge, colour);
    gradient.setColorAt(1, hiddenOnLeft() < hidden ? faded : colour);
    return QPen(gradient, 1);
}

void ScrollText::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    restart();
}

void ScrollText::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    restart();
}

void ScrollText::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_timer.stop();
}

void ScrollText::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        restart();
}

void ScrollText::enterEvent(QEvent *event)
{
    QWidget::enterEvent(event);
    if (!m_timer.isActive())
        restart();
}

void ScrollText::leaveEvent(QEvent *event)
{
    QWidget::leaveEvent(event);
    if (!m_alwaysMoves)
        restart();
}
