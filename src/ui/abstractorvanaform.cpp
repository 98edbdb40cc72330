#include "ui/abstractorvanaform.h"

#include "ui/artwork.h"

#include <QMouseEvent>
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
    if (event->button() == Qt::LeftButton) {
        m_grip = event->globalPos() - frameGeometry().topLeft();
        m_dragging = true;
    }
    event->accept();
}

void AbstractOrvanaForm::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragging && event->buttons().testFlag(Qt::LeftButton))
        move(event->globalPos() - m_grip);
    event->accept();
}

void AbstractOrvanaForm::mouseReleaseEvent(QMouseEvent *event)
{
    m_dragging = false;
    event->accept();
}
