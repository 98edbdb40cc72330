#include "widgets/autoscrolllineedit.h"

#include <QAbstractTextDocumentLayout>
#include <QEvent>
#include <QScrollBar>
#include <QTextOption>
#include <QTimerEvent>

#include <algorithm>

namespace {

constexpr int kRest = 2500; // ms
constexpr int kStep = 60; // ms for a pixel
constexpr int kFrame = 20; // ms, for what has to move faster
// Of the time to read: one part at the top, at most three on the way, the rest at the end.
constexpr int kPartsOfTime = 5;
constexpr int kRounds = 3; // each step paints the window again

} // namespace

AutoScrollLineEdit::AutoScrollLineEdit(QWidget *parent)
    : QTextEdit(parent)
{
    setReadOnly(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::NoFocus);
    setTextInteractionFlags(Qt::NoTextInteraction);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    viewport()->setAutoFillBackground(false);
    viewport()->setCursor(Qt::ArrowCursor);
    document()->setDocumentMargin(0);
    // The font may be known only when the style sheet has been applied.
    connect(document()->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
            &AutoScrollLineEdit::arrange);
}

void AutoScrollLineEdit::setText(const QString &text)
{
    setPlainText(text);
    arrange();
}

void AutoScrollLineEdit::setAlignment(Qt::Alignment alignment)
{
    m_alignment = alignment;
    QTextOption option = document()->defaultTextOption();
    option.setAlignment(alignment & Qt::AlignHorizontal_Mask);
    document()->setDefaultTextOption(option);
    arrange();
}

void AutoScrollLineEdit::arrange()
{
    const int free = height() - static_cast<int>(document()->size().height());
    const int top = m_alignment.testFlag(Qt::AlignVCenter) ? std::max(0, free / 2) : 0;
    // What is too long shows whole lines only.
    const int bottom = free < 0 ? height() % std::max(1, fontMetrics().lineSpacing()) : 0;
    const QMargins margins(0, top, 0, bottom);
    if (viewportMargins() != margins)
        setViewportMargins(margins);
    verticalScrollBar()->setValue(0);
    m_isReturning = false;
    m_rounds = 0;
    rest();
}

void AutoScrollLineEdit::setTimeToRead(std::chrono::milliseconds time)
{
    m_timeToRead = static_cast<int>(time.count());
    arrange();
}

int AutoScrollLineEdit::restTime() const
{
    return m_timeToRead > 0 ? std::min(kRest, m_timeToRead / kPartsOfTime) : kRest;
}

int AutoScrollLineEdit::moveTime() const
{
    const int calm = verticalScrollBar()->maximum() * kStep;
    return m_timeToRead > 0 ? std::min(calm, m_timeToRead * 3 / kPartsOfTime) : calm;
}

void AutoScrollLineEdit::rest()
{
    m_resting = true;
    if (verticalScrollBar()->maximum() > 0 && isVisible() && m_rounds < kRounds)
        m_timer.start(restTime(), this);
    else
        m_timer.stop();
}

void AutoScrollLineEdit::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != m_timer.timerId()) {
        QTextEdit::timerEvent(event);
        return;
    }
    QScrollBar *bar = verticalScrollBar();
    const int length = bar->maximum();
    const int time = std::max(1, moveTime());
    if (m_resting) {
        m_resting = false;
        m_sinceStart.start();
        m_timer.start(std::max(kFrame, time / std::max(1, length)), Qt::PreciseTimer, this);
        return;
    }
    // By the clock: a busy desktop makes the steps larger, not the way longer.
    const int moved = static_cast<int>(std::min<qint64>(length, length * m_sinceStart.elapsed() / time));
    bar->setValue(m_isReturning ? length - moved : moved);
    if (moved < length)
        return;
    m_rounds += m_isReturning ? 1 : 0;
    m_isReturning = !m_isReturning;
    rest();
}

void AutoScrollLineEdit::resizeEvent(QResizeEvent *event)
{
    QTextEdit::resizeEvent(event);
    arrange();
}

void AutoScrollLineEdit::showEvent(QShowEvent *event)
{
    QTextEdit::showEvent(event);
    window()->installEventFilter(this); // the box itself may let the mouse through
    arrange();
}

bool AutoScrollLineEdit::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Enter && watched == window() && !m_timer.isActive())
        arrange();
    return QTextEdit::eventFilter(watched, event);
}

void AutoScrollLineEdit::hideEvent(QHideEvent *event)
{
    QTextEdit::hideEvent(event);
    m_timer.stop();
}
