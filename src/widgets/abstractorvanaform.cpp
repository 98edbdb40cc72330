#include "widgets/abstractorvanaform.h"

#include "widgets/artwork.h"

#include <QPainter>

AbstractOrvanaForm::AbstractOrvanaForm(QWidget *parent)
    : QDialog(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
}

void AbstractOrvanaForm::setBackground(const QString &path)
{
    m_backgroundPath = path;
}

void AbstractOrvanaForm::showEvent(QShowEvent *event)
{
    m_background = Artwork::load(m_backgroundPath);
    Artwork::trimToPane(this, m_background);
    QDialog::showEvent(event);
}

// Most of these windows are hidden nearly all day, and a picture takes up to a megabyte.
void AbstractOrvanaForm::hideEvent(QHideEvent *event)
{
    QDialog::hideEvent(event);
    m_drag.end();
    m_background = QImage();
}

void AbstractOrvanaForm::paintEvent(QPaintEvent *event)
{
    QDialog::paintEvent(event);
    QPainter painter(this);
    Artwork::drawPane(painter, rect(), m_background);
}

void AbstractOrvanaForm::mousePressEvent(QMouseEvent *event)
{
    m_drag.press(event, this);
    event->accept();
}

void AbstractOrvanaForm::mouseMoveEvent(QMouseEvent *event)
{
    if (m_drag.move(event, this))
        m_wasDragged = true;
    event->accept();
}

void AbstractOrvanaForm::mouseReleaseEvent(QMouseEvent *event)
{
    m_drag.release(event);
    event->accept();
}
