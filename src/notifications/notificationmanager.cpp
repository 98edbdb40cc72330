#include "notifications/notificationmanager.h"

#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"

#include <QApplication>

namespace {

// Lists that change altogether bring tens of thousands, which nobody reads; the memory
// is not the service's to fill.
constexpr int kMostWaiting = 1000;

} // namespace

NotificationManager::NotificationManager() = default;
NotificationManager::~NotificationManager() = default;

NotificationManager *NotificationManager::instance()
{
    static NotificationManager manager;
    return &manager;
}

void NotificationManager::setMainForm(NotificationHost *host)
{
    m_host = host;
    for (NotificationForm *form : qAsConst(m_shown)) {
        form->setMainForm(host);
        form->updatePosition(form->getPosition());
    }
    for (NotificationForm *form : qAsConst(m_hidden))
        form->setMainForm(host);
    tellHost();
}

void NotificationManager::tellHost()
{
    if (m_host)
        m_host->updateNotificationState();
}

void NotificationManager::addNotification(const QString &text, NotificationType type, const QString &taskId)
{
    if (type == UpdateAvailable)
        removeUpdateForms();
    auto *form = new NotificationForm(text, type, taskId, m_host);
    connect(form, &NotificationForm::notificationClosed, this, qOverload<>(&NotificationManager::hideForm));
    form->updatePosition(m_shown.size());
    if (!form->isOnScreen()) {
        addHidedForm(form);
        return;
    }
    showForm(form);
    QApplication::beep();
}

// At most one popup offers an update, shown or kept back.
void NotificationManager::removeUpdateForms()
{
    const QList<NotificationForm *> all = m_hidden + m_shown;
    for (NotificationForm *form : all) {
        if (form->notificationType() == UpdateAvailable)
            hideForm(form);
    }
}

void NotificationManager::addHidedForm(NotificationForm *form)
{
    m_hidden.append(form);
    if (m_hidden.size() > kMostWaiting)
        delete m_hidden.takeFirst();
    if (m_shown.isEmpty())
        tellHost();
}

void NotificationManager::showForm(NotificationForm *form)
{
    form->show();
    m_shown.append(form);
    tellHost();
}

void NotificationManager::showFirstHidden()
{
    NotificationForm *form = m_hidden.takeFirst();
    form->updatePosition(m_shown.size());
    showForm(form);
}

void NotificationManager::hideForm()
{
    if (auto *form = qobject_cast<NotificationForm *>(sender()))
        hideForm(form);
}

void NotificationManager::hideForm(NotificationForm *form)
{
    if (m_hidden.removeOne(form)) {
        form->deleteLater();
        tellHost();
        return;
    }
    if (!m_shown.removeOne(form))
        return;
    for (int i = form->getPosition(); i < m_shown.size(); ++i) {
        NotificationForm *below = m_shown.at(i);
        below->updatePosition(below->getPosition() - 1);
        below->repaint();
    }
    if (!m_hidden.isEmpty())
        showFirstHidden();
    if (m_shown.isEmpty())
        tellHost();
    form->hide();
    form->deleteLater();
}

void NotificationManager::hideAll()
{
    const QList<NotificationForm *> shown = m_shown;
    for (NotificationForm *form : shown) {
        if (form->isClosing())
            continue;
        form->hide();
        m_shown.removeOne(form);
        m_hidden.append(form);
    }
    // Those that fade out move up, so that slots and places in the list agree.
    for (int i = 0; i < m_shown.size(); ++i)
        m_shown.at(i)->updatePosition(i);
    tellHost();
}

void NotificationManager::restoreAll()
{
    while (!m_hidden.isEmpty())
        showFirstHidden();
}

void NotificationManager::toggleVisible()
{
    if (m_shown.isEmpty())
        restoreAll();
    else
        hideAll();
}

void NotificationManager::repaint()
{
    for (NotificationForm *form : qAsConst(m_shown)) {
        form->repaint();
        form->activateWindow();
        form->raise();
    }
}

bool NotificationManager::hasVisibleNotifications() const
{
    return !m_shown.isEmpty() || !m_hidden.isEmpty();
}

void NotificationManager::destroy()
{
    const QList<NotificationForm *> all = m_shown + m_hidden;
    m_shown.clear();
    m_hidden.clear();
    qDeleteAll(all);
    tellHost();
}
