#include "widgets/clickablelabel.h"

#include <QKeyEvent>
#include <QMouseEvent>

ClickableLabel::ClickableLabel(QWidget *parent)
    : QLabel(parent)
{ }

void ClickableLabel::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        emit clicked();
    else
        QLabel::mousePressEvent(event);
}

void ClickableLabel::keyPressEvent(QKeyEvent *event)
{
    const int key = event->key();
    if (key == Qt::Key_Space || key == Qt::Key_Return || key == Qt::Key_Enter)
        emit clicked();
    else
        QLabel::keyPressEvent(event);
}
