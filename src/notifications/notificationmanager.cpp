#include "notifications/notificationmanager.h"

#include "base/log.h"
#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"

#include <QApplication>

#include <algorithm>
#include <iterator>

namespace {

// Lists in which everything changes bring tens of thousands, which nobody reads. A thousand
// windows that come back at once, with the bell, would hold up the client for ten seconds.
constexpr std::size_t kMaxWaiting = 200;

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
    for (NotificationForm *form : qAsConst(m_shown))
        form->setMainForm(host);
    updatePositions();
    for (const Waiting &waiting : m_hidden) {
        if (waiting.form)
            waiting.form->setMainForm(host);
    }
    notifyHost();
}

void NotificationManager::notifyHost()
{
    if (m_host)
        m_host->updateNotificationState();
}

// Those kept back first, so that none of them takes the place of one that is shown.
template <typename Predicate>
void NotificationManager::removeTypes(Predicate isRemoved)
{
    for (auto each = m_hidden.begin(); each != m_hidden.end();) {
        if (!isRemoved(each->type)) {
            ++each;
            continue;
        }
        if (each->form)
            each->form->deleteLater();
        each = m_hidden.erase(each);
    }
    const QList<NotificationForm *> shown = m_shown;
    for (NotificationForm *form : shown) {
        if (isRemoved(form->notificationType()))
            hideForm(form);
    }
}

void NotificationManager::addNotification(const QString &text, NotificationType type, const QString &taskId)
{
    // At most one popup offers an update, shown or kept back.
    if (type == UpdateAvailable)
        removeTypes([](NotificationType each) { return each == UpdateAvailable; });
    const Waiting waiting{type, NotificationForm::textToKeep(text), taskId};
    if (!NotificationForm::fitsOnScreen(m_shown.size(), m_host)) {
        keepBack(waiting);
        return;
    }
    show(waiting);
    QApplication::beep();
}

void NotificationManager::clearForNextUser()
{
    removeTypes([](NotificationType each) { return each != UpdateAvailable; });
    notifyHost();
}

void NotificationManager::addHidedForm(NotificationForm *form)
{
    keepBack({form->notificationType(), QString(), QString(), form});
}

void NotificationManager::keepBack(const Waiting &waiting)
{
    m_hidden.push_back(waiting);
    if (m_hidden.size() > kMaxWaiting)
        dropOldest();
    else
        m_hasDropped = false;
    if (m_shown.isEmpty())
        notifyHost();
}

// But never the offer of an update.
void NotificationManager::dropOldest()
{
    if (!m_hasDropped)
        qCWarning(lcNotifications) << "Too many notifications wait, the oldest are dropped";
    m_hasDropped = true;
    const auto oldest =
        m_hidden.front().type == UpdateAvailable ? std::next(m_hidden.begin()) : m_hidden.begin();
    if (oldest->form)
        oldest->form->deleteLater();
    m_hidden.erase(oldest);
}

void NotificationManager::show(const Waiting &waiting)
{
    NotificationForm *form = waiting.form
        ? waiting.form
        : new NotificationForm(waiting.text, waiting.type, waiting.taskId, m_host);
    connect(form, &NotificationForm::notificationClosed, this, qOverload<>(&NotificationManager::hideForm),
            Qt::UniqueConnection);
    form->updatePosition(m_shown.size());
    form->show();
    m_shown.append(form);
    notifyHost();
}

void NotificationManager::showFirstHidden()
{
    const Waiting waiting = m_hidden.front();
    m_hidden.pop_front();
    show(waiting);
}

void NotificationManager::hideForm()
{
    if (auto *form = qobject_cast<NotificationForm *>(sender()))
        hideForm(form);
}

void NotificationManager::hideForm(NotificationForm *form)
{
    if (!form)
        return;
    const auto waiting = std::find_if(m_hidden.begin(), m_hidden.end(),
                                      [form](const Waiting &each) { return each.form == form; });
    if (waiting != m_hidden.end()) {
        m_hidden.erase(waiting);
        form->deleteLater();
        notifyHost();
        return;
    }
    if (!m_shown.removeOne(form))
        return;
    for (int i = form->getPosition(); i < m_shown.size(); ++i) {
        NotificationForm *below = m_shown.at(i);
        below->updatePosition(below->getPosition() - 1);
        below->repaint();
    }
    if (!m_hidden.empty())
        showFirstHidden();
    if (m_shown.isEmpty())
        notifyHost();
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
        m_hidden.push_back({form->notificationType(), QString(), QString(), form});
    }
    // Those that fade out move up, so that slots and places in the list agree.
    for (int i = 0; i < m_shown.size(); ++i)
        m_shown.at(i)->updatePosition(i);
    notifyHost();
}

void NotificationManager::restoreAll()
{
    while (!m_hidden.empty())
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

void NotificationManager::updatePositions()
{
    for (NotificationForm *form : qAsConst(m_shown))
        form->updatePosition(form->getPosition());
}

bool NotificationManager::hasVisibleNotifications() const
{
    return !m_shown.isEmpty() || !m_hidden.empty();
}

void NotificationManager::destroy()
{
    QList<NotificationForm *> all = m_shown;
    for (const Waiting &waiting : m_hidden)
        all.append(waiting.form);
    m_shown.clear();
    m_hidden.clear();
    qDeleteAll(all);
    notifyHost();
}
