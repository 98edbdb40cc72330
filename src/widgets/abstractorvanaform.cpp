#include "widgets/abstractorvanaform.h"

#include "widgets/artwork.h"

#include <QMouseEvent>
#include <QPainter>

AbstractOrvanaForm::AbstractOrvanaForm(QWidget *parent)
    : QDialog(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
    // A dialog keeps its place in the task switcher, where it is found again on a desktop
    // without a tray.
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
}

void AbstractOrvanaForm::setBackground(const QString &path)
{
    m_backgroundPath = path;
}

void AbstractOrvanaForm::hideForNow()
{
    if (!isVisible())
        return;
    hide();
    m_comesBack = true;
}

void AbstractOrvanaForm::comeBack()
{
    // A window manager may have minimised the window together with the main window, and
    // would minimise both again.
    if (m_comesBack)
        showNormal();
}

void AbstractOrvanaForm::showEvent(QShowEvent *event)
{
    if (!event->spontaneous())
        m_comesBack = false;
    m_background = Artwork::load(m_backgroundPath);
    Artwork::trimToPane(this, m_background);
    QDialog::showEvent(event);
}

// Most of these windows are hidden nearly all day, and an image takes up to a megabyte.
void AbstractOrvanaForm::hideEvent(QHideEvent *event)
{
    QDialog::hideEvent(event);
    m_grip.reset(); // the release will not arrive
    // A minimized window is drawn as well: in previews, or by a window manager that has not minimized it.
    if (!event->spontaneous())
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
    if (event->button() == Qt::LeftButton)
        m_grip = event->globalPos() - frameGeometry().topLeft();
    event->accept();
}

void AbstractOrvanaForm::mouseMoveEvent(QMouseEvent *event)
{
    if (!event->buttons().testFlag(Qt::LeftButton))
        m_grip.reset();
    // Without a grip the press was on one of the controls.
    if (m_grip) {
        move(event->globalPos() - *m_grip);
        m_wasDragged = true;
    }
    event->accept();
}

void AbstractOrvanaForm::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        m_grip.reset();
    event->accept();
}
