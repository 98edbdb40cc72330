#include "ui/autoscrolllineedit.h"

#include <QAbstractTextDocumentLayout>
#include <QScrollBar>
#include <QTextOption>
#include <QTimerEvent>

#include <algorithm>

namespace {

constexpr int kRest = 2500; // ms
constexpr int kStep = 60; // ms for a pixel

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
    rest();
}

void AutoScrollLineEdit::rest()
{
    m_resting = true;
    if (verticalScrollBar()->maximum() > 0 && isVisible())
        m_timer.start(kRest, this);
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
    if (m_resting && bar->value() >= bar->maximum()) {
        bar->setValue(0);
        rest();
        return;
    }
    if (m_resting) {
        m_resting = false;
        m_timer.start(kStep, this);
    }
    bar->setValue(bar->value() + 1);
    if (bar->value() >= bar->maximum())
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
    arrange();
}

void AutoScrollLineEdit::hideEvent(QHideEvent *event)
{
    QTextEdit::hideEvent(event);
    m_timer.stop();
}
