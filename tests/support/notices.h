#pragma once

#include "base/notificationsink.h"

#include <QStringList>

#include <utility>

// What the user would be shown, in order.
class Notices final : public NotificationSink
{
    Q_DISABLE_COPY_MOVE(Notices)

public:
    Notices() = default;

    // The texts since the last call, each followed by " #" and the task that a click opens.
    QStringList take() { return std::exchange(m_texts, {}) + std::exchange(m_offers, {}); }

    void addNotification(const QString &text, NotificationType type, const QString &taskId) override
    {
        QString message = notificationMessage(text, type);
        if (opensTask(type) && !taskId.isEmpty())
            message += QLatin1String(" #") + taskId;
        if (type == UpdateAvailable)
            m_offers = QStringList{message};
        else
            m_texts.append(message);
    }
    void clearForNextUser() override { m_texts.clear(); }

private:
    QStringList m_texts;
    QStringList m_offers;
};
