#pragma once

#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"
#include "notifications/notificationmanager.h"
#include "texts.h"
#include "widgets/autoscrolllineedit.h"

#include <QAccessible>
#include <QtTest>
#include <QtWidgets>

#include <algorithm>

// Finding and using parts of windows as a person does.

template <typename Widget = QWidget>
Widget *part(const QObject *window, const char *name)
{
    return window->findChild<Widget *>(QString::fromLatin1(name));
}

inline QPushButton *button(const QWidget *window, const QString &text)
{
    const auto all = window->findChildren<QPushButton *>();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto *each) { return each->text() == text; });
    return found == all.end() ? nullptr : *found;
}

inline void click(QWidget *widget)
{
    QTest::mouseClick(widget, Qt::LeftButton);
}

// As a screen reader does.
inline void press(QWidget *widget)
{
    if (auto *actions = QAccessible::queryAccessibleInterface(widget)->actionInterface())
        actions->doAction(QAccessibleActionInterface::pressAction());
}

inline bool focus(QWidget *widget)
{
    widget->window()->activateWindow();
    widget->setFocus(Qt::TabFocusReason);
    return QTest::qWaitFor([widget] { return widget->hasFocus(); });
}

// In two steps, without the event loop in between: the window manager answers each move later.
inline void drag(QWidget *target, const QPoint &by)
{
    const QPoint start = target->mapToGlobal(QPoint(3, 3));
    const auto send = [&](QEvent::Type type, const QPoint &place, Qt::MouseButtons held) {
        QMouseEvent event(type, target->mapFromGlobal(place), place, Qt::LeftButton, held, {});
        QApplication::sendEvent(target, &event);
    };
    send(QEvent::MouseButtonPress, start, Qt::LeftButton);
    send(QEvent::MouseMove, start + by / 2, Qt::LeftButton);
    send(QEvent::MouseMove, start + by, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, start + by, Qt::NoButton);
}

// Acts on the dialog that the next call opens and waits for.
template <typename Dialog, typename Action>
void whenOpen(QObject *context, Action action)
{
    QTimer::singleShot(0, context, [action] {
        auto *dialog = qobject_cast<Dialog *>(QApplication::activeModalWidget());
        QVERIFY(dialog);
        action(dialog);
    });
}

// Those on the screen, from the top down.
inline QList<NotificationForm *> shownPopups()
{
    QMap<int, NotificationForm *> bySlot;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        auto *popup = qobject_cast<NotificationForm *>(window);
        if (popup && popup->isVisible())
            bySlot.insert(popup->getPosition(), popup);
    }
    return bySlot.values();
}

inline QStringList popupTexts()
{
    QStringList texts;
    const QList<NotificationForm *> popups = shownPopups();
    for (const NotificationForm *popup : popups)
        texts.append(part<AutoScrollLineEdit>(popup, "leMessage")->text());
    return texts;
}
