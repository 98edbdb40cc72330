#pragma once

#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"
#include "notifications/notificationmanager.h"
#include "texts.h"
#include "widgets/autoscrolllineedit.h"

#include <QApplication>
#include <QMap>
#include <QMouseEvent>
#include <QStringList>

inline QList<NotificationForm *> popupForms()
{
    QList<NotificationForm *> found;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (auto *popup = qobject_cast<NotificationForm *>(window))
            found.append(popup);
    }
    return found;
}

// Those on the screen, from the top down.
inline QList<NotificationForm *> shownPopups()
{
    QMap<int, NotificationForm *> bySlot;
    const QList<NotificationForm *> popups = popupForms();
    for (NotificationForm *popup : popups) {
        if (popup->isVisible())
            bySlot.insert(popup->getPosition(), popup);
    }
    return bySlot.values();
}

inline QStringList textsOf(const QList<NotificationForm *> &popups)
{
    QStringList texts;
    for (const NotificationForm *popup : popups) {
        if (const auto *message = popup->findChild<AutoScrollLineEdit *>(s("leMessage")))
            texts.append(message->toPlainText());
    }
    return texts;
}

// Stands in for the main window: a screen high enough for every popup.
class Popups final : public NotificationHost
{
    Q_DISABLE_COPY_MOVE(Popups)

public:
    Popups() { NotificationManager::instance()->setMainForm(this); }
    ~Popups() override
    {
        NotificationManager::instance()->setMainForm(nullptr);
        NotificationManager::instance()->destroy();
    }

    // The texts raised since the last call, in their order; behind " #" the task
    // that a click would open.
    QStringList take()
    {
        QStringList texts;
        const QList<NotificationForm *> forms = shownPopups();
        for (NotificationForm *form : forms) {
            QString text = textsOf({form}).first();
            m_openedTask.clear();
            QMouseEvent press(QEvent::MouseButtonPress, QPointF(), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(form, &press);
            if (!m_openedTask.isEmpty())
                text += QLatin1String(" #") + m_openedTask;
            texts.append(text);
        }
        NotificationManager::instance()->destroy();
        return texts;
    }

    int notificationOffset() const override { return 0; }
    QRect notificationArea() const override { return {0, 0, 1000, 10000000}; }
    void updateNotificationState() override { }
    void openTask(const QString &taskId) override { m_openedTask = taskId; }
    bool installUpdate() override { return false; }

private:
    QString m_openedTask;
};
