#pragma once

#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"
#include "notifications/notificationmanager.h"
#include "texts.h"
#include "widgets/autoscrolllineedit.h"

#include <QApplication>
#include <QMap>
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
