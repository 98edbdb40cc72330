#include "widgets/steadybox.h"

#include <QEvent>

QWidget *SteadyBox::content() const
{
    return findChild<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
}

QSize SteadyBox::sizeHint() const
{
    const QWidget *widget = content();
    return widget ? widget->sizeHint() : QSize();
}

QSize SteadyBox::minimumSizeHint() const
{
    const QWidget *widget = content();
    return widget ? widget->minimumSizeHint() : QSize();
}

bool SteadyBox::event(QEvent *event)
{
    if (event->type() == QEvent::LayoutRequest && m_hint != sizeHint()) {
        m_hint = sizeHint();
        updateGeometry();
    }
    return QWidget::event(event);
}

void SteadyBox::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (QWidget *widget = content())
        widget->resize(size());
}
