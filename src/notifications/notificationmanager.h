#pragma once

#include "base/notificationsink.h"

#include <QList>
#include <QObject>

#include <deque>

class NotificationForm;
class NotificationHost;

// Creates the popups, stacks them under the main window, keeps back those that
// do not fit on the screen and closes up the gap that one leaves.
class NotificationManager final : public QObject, public NotificationSink
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NotificationManager)

public:
    static NotificationManager *instance();

    // May be null: popups can be raised before the main window exists and after
    // it is gone. The host is notified of every change.
    void setMainForm(NotificationHost *host);
    NotificationHost *mainForm() const { return m_host; }

    void addNotification(const QString &text, NotificationType type, const QString &taskId) override;

    // Hidden popups stay and come back with restoreAll(), or one by one as shown
    // ones are closed.
    void hideAll();
    void restoreAll();
    void toggleVisible();
    void repaint();
    // Puts every shown popup where the host wants it now; asks for no focus.
    void updatePositions();
    // True while any popup waits, shown or hidden.
    bool hasVisibleNotifications() const;
    bool hasShownNotifications() const { return !m_shown.isEmpty(); }
    void clearForNextUser() override;
    // Removes every popup at once.
    void destroy();

    void addHidedForm(NotificationForm *form);
    void hideForm(NotificationForm *form);

public slots:
    // The sender is the popup.
    void hideForm();

private:
    struct Waiting
    {
        NotificationType type;
        QString text;
        QString taskId;
        NotificationForm *form = nullptr; // null until it is shown
    };

    NotificationManager();
    ~NotificationManager() override;

    void keepBack(const Waiting &waiting);
    void dropOldest();
    void show(const Waiting &waiting);
    void showFirstHidden();
    template <typename Predicate>
    void removeTypes(Predicate isRemoved);
    void notifyHost();

    NotificationHost *m_host = nullptr;
    QList<NotificationForm *> m_shown; // in the order of their slots
    std::deque<Waiting> m_hidden;
    bool m_hasDropped = false;
};
