#pragma once

#include "notifications/notificationform.h"
#include "notifications/notificationhost.h"
#include "notifications/notificationmanager.h"
#include "texts.h"
#include "ui/autoscrolllineedit.h"

#include <QApplication>
#include <QKeyEvent>
#include <QStringList>

#include <algorithm>

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
        QList<NotificationForm *> forms;
        const QWidgetList windows = QApplication::topLevelWidgets();
        for (QWidget *window : windows) {
            auto *form = qobject_cast<NotificationForm *>(window);
            if (form && form->isVisible())
                forms.append(form);
        }
        std::sort(forms.begin(), forms.end(),
                  [](const auto *a, const auto *b) { return a->getPosition() < b->getPosition(); });
        QStringList texts;
        for (NotificationForm *form : qAsConst(forms)) {
            QString text = form->findChild<AutoScrollLineEdit *>(s("leMessage"))->toPlainText();
            m_openedTask.clear();
            QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
            QApplication::sendEvent(form, &enter);
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
