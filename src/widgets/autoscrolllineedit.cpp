#include "widgets/autoscrolllineedit.h"

#include <QAbstractTextDocumentLayout>
#include <QEvent>
#include <QPainter>
#include <QTextBlock>
#include <QTextLayout>
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
    : QWidget(parent)
{
    m_document.setUndoRedoEnabled(false);
    m_document.setDocumentMargin(0);
}

void AutoScrollLineEdit::setText(const QString &text)
{
    m_document.setPlainText(text);
    setAccessibleName(text);
    arrange();
}

void AutoScrollLineEdit::setAlignment(Qt::Alignment alignment)
{
    m_alignment = alignment;
    QTextOption option(alignment & Qt::AlignHorizontal_Mask);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    m_document.setDefaultTextOption(option);
    arrange();
}

// Before it is shown, neither its font nor its size is known.
void AutoScrollLineEdit::arrange()
{
    if (!isVisible())
        return;
    m_document.setDefaultFont(font());
    m_document.setTextWidth(width());
    const int free = height() - static_cast<int>(m_document.size().height());
    const int top = m_alignment.testFlag(Qt::AlignVCenter) ? std::max(0, free / 2) : 0;
    // What is too long shows whole lines only.
    const int bottom = free < 0 ? height() - heightOfWholeLines() : 0;
    m_shown = rect().adjusted(0, top, 0, -bottom);
    m_overhang = std::max(0, bottom - free);
    m_offset = 0;
    m_isReturning = false;
    m_rounds = 0;
    rest();
    update();
}

// Paragraphs begin at whole pixels, lines within them do not.
int AutoScrollLineEdit::heightOfWholeLines() const
{
    for (QTextBlock block = m_document.begin(); block.isValid(); block = block.next()) {
        const qreal top = m_document.documentLayout()->blockBoundingRect(block).top();
        for (int i = 0; i < block.layout()->lineCount(); ++i) {
            const QRectF line = block.layout()->lineAt(i).rect().translated(0, top);
            if (line.bottom() > height() && line.top() > 0)
                return static_cast<int>(line.top());
        }
    }
    return height();
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
    const int calm = m_overhang * kStep;
    return m_timeToRead > 0 ? std::min(calm, m_timeToRead * 3 / kPartsOfTime) : calm;
}

void AutoScrollLineEdit::rest()
{
    m_resting = true;
    if (m_overhang > 0 && m_rounds < kRounds)
        m_timer.start(restTime(), this);
    else
        m_timer.stop();
}

void AutoScrollLineEdit::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != m_timer.timerId()) {
        QWidget::timerEvent(event);
        return;
    }
    const int time = std::max(1, moveTime());
    if (m_resting) {
        m_resting = false;
        m_sinceStart.start();
        m_timer.start(std::max(kFrame, time / m_overhang), Qt::PreciseTimer, this);
        return;
    }
    // By the clock: a busy desktop makes the steps larger, not the way longer.
    const int moved =
        static_cast<int>(std::min<qint64>(m_overhang, m_overhang * m_sinceStart.elapsed() / time));
    m_offset = m_isReturning ? m_overhang - moved : moved;
    update();
    if (moved < m_overhang)
        return;
    m_rounds += m_isReturning ? 1 : 0;
    m_isReturning = !m_isReturning;
    rest();
}

void AutoScrollLineEdit::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QPainter painter(this);
    painter.setClipRect(m_shown);
    painter.translate(0, m_shown.top() - m_offset);
    QAbstractTextDocumentLayout::PaintContext context;
    context.palette = palette();
    context.palette.setColor(QPalette::Text, palette().color(QPalette::WindowText));
    m_document.documentLayout()->draw(&painter, context);
}

void AutoScrollLineEdit::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    arrange();
}

void AutoScrollLineEdit::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    window()->installEventFilter(this); // the box itself may let the mouse through
    arrange();
}

bool AutoScrollLineEdit::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Enter && watched == window() && !m_timer.isActive())
        arrange();
    return QWidget::eventFilter(watched, event);
}

void AutoScrollLineEdit::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_timer.stop();
}

void AutoScrollLineEdit::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        arrange();
}
