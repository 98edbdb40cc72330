#include "ui/mainform.h"

#include "base/exemptteam.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "ui/loginform.h"
#include "ui/taskform.h"
#include "ui/tasklistform.h"
#include "ui_mainform.h"
#include "widgets/activation.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "x11/windowmanager.h"

#include <QCoreApplication>
#include <QDebug>
#include <QGuiApplication>
#include <QScreen>
#include <QStyleHints>
#include <QWindow>

bool MainForm::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_taskText && isActivation(event)) {
        on_pbTask_clicked();
        return true;
    }
    return QDialog::eventFilter(watched, event);
}

// The shortcut hides the window; the dialog's own meaning of the key is closing.
void MainForm::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        event->accept();
    else
        QDialog::keyPressEvent(event);
}

void MainForm::showEvent(QShowEvent *event)
{
    AbstractOrvanaForm::showEvent(event);
    m_wasShown = true;
    // Flags that change make another handle.
    connect(windowHandle(), &QWindow::screenChanged, this, &MainForm::placePopups, Qt::UniqueConnection);
    placePopups();
    bringBackOthers();
}

void MainForm::hideEvent(QHideEvent *event)
{
    AbstractOrvanaForm::hideEvent(event);
    placePopups();
}

void MainForm::changeEvent(QEvent *event)
{
    QDialog::changeEvent(event);
    if (event->type() != QEvent::WindowStateChange)
        return;
    placePopups();
    bringBackOthers();
}

// By whatever way the window came back: a panel restores it without asking it.
void MainForm::bringBackOthers()
{
    if (m_hidAll && isVisible() && !isMinimized())
        emit showAll();
}

// The window manager's close button hides, like the window's own.
void MainForm::reject()
{
    emit hideAll();
}

void MainForm::showAllHandler()
{
    m_hidAll = false;
    show();
    if (isMinimized())
        showNormal();
    // Some window managers do not bring a window here from another desktop.
    moveToAllDesktops(this);
    raise();
    activateWindow();
}

void MainForm::hideAllHandler()
{
    qDebug() << "MainForm.cpp hideAllHandler";
    m_hidAll = true;
    // Without a tray there would be no way back to a hidden window.
    if (QSystemTrayIcon::isSystemTrayAvailable())
        hide();
    else
        showMinimized();
}

void MainForm::trayActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != QSystemTrayIcon::Trigger && reason != QSystemTrayIcon::DoubleClick)
        return;
    // Panels report a double click as two clicks, or as a click and a double click:
    // what the first has shown, the second may not hide.
    const bool isSecond = reason == QSystemTrayIcon::DoubleClick
        || (m_sinceTrayClick.isValid()
            && !m_sinceTrayClick.hasExpired(QGuiApplication::styleHints()->mouseDoubleClickInterval()));
    m_sinceTrayClick.start();
    if (isSecond)
        emit showAll();
    else
        toggleSeen();
}

void MainForm::toggleSeen()
{
    if (isSeen())
        emit hideAll();
    else
        emit showAll();
}

// Asks the X server what lies on top at a few places of the window: nothing of it does
// when it is covered, on another desktop, or when the bare desktop is shown.
bool MainForm::isSeen() const
{
    if (!isVisible() || isMinimized() || !isOnCurrentDesktop(this))
        return false;
    for (const int x : {1, 2, 3}) {
        for (const int y : {1, 2, 3}) {
            const QPoint place = mapToGlobal(QPoint(width() * x / 4, height() * y / 4));
            if (QGuiApplication::topLevelAt(place) == windowHandle())
                return true;
        }
    }
    return false;
}

void MainForm::on_pbMinimize_clicked()
{
    qDebug() << "MainForm.cpp on_pbMinimize_clicked";
    emit hideAll();
}

void MainForm::on_pbTask_clicked()
{
    finishStart();
    m_taskForm->update();
    Placement::centre(m_taskForm, this);
    m_taskForm->show();
    m_taskForm->raise();
    m_taskForm->activateWindow();
}

void MainForm::on_pbTaskList_clicked()
{
    finishStart();
    m_taskListForm->toggle();
}

void MainForm::onTaskFormAccepted()
{
    selectTask(m_taskForm->currentTeamId(), m_taskForm->currentTaskId());
}

void MainForm::selectTask(const QString &teamId, const QString &taskId)
{
    // The lists may have changed since the choice was shown; the task in hand stays.
    const Orvana::Session *session = m_orvana->session();
    if (session->team(teamId).id.isEmpty() || session->task(teamId, taskId).id.isEmpty())
        return;
    m_orvana->changeTask(teamId, taskId);
    // Two teams may list the same id, and then no change of task is signalled.
    onTaskChange();
}

void MainForm::on_lbActivity_clicked()
{
    m_showsActiveTime = !m_showsActiveTime;
    m_ui->lbActivity->setText(m_showsActiveTime ? QStringLiteral("Активного:") : QStringLiteral("Сегодня:"));
    updateTimerLbl();
}

void MainForm::on_pbNotice_clicked()
{
    NotificationManager::instance()->toggleVisible();
    updateNotificationState();
}

void MainForm::on_actionToggleVisible_triggered()
{
    on_pbNotice_clicked();
}

void MainForm::on_actExit_triggered()
{
    QCoreApplication::quit();
}

void MainForm::on_actionChangeAccount_triggered()
{
    LoginForm login(m_orvana, this);
    login.exec();
}

void MainForm::on_actionAbout_triggered()
{
    if (!m_aboutForm)
        m_aboutForm = std::make_unique<AboutForm>(m_orvana, nullptr);
    m_aboutForm->update();
    Placement::centre(m_aboutForm.get(), this);
    m_aboutForm->show();
    m_aboutForm->raise();
    m_aboutForm->activateWindow();
}

void MainForm::on_pbTimeExtend_clicked()
{
    const Orvana::Session *session = m_orvana->session();
    if (session->currentTaskID() == kCatchAllId || isExemptTeam(session->currentTeamID())) {
        NotificationManager::instance()->addNotification(
            QStringLiteral("Для данной задачи невозможно выполнить перенос дедлайна."), Plain, QString());
        return;
    }
    auto *calendar = new CalendarForm(nullptr);
    connect(calendar, &CalendarForm::accepted, this, &MainForm::onRequestDeadlineAccepted);
    connect(calendar, &CalendarForm::rejected, calendar, &QObject::deleteLater);
    Placement::centre(calendar, this);
    calendar->exec();
}

void MainForm::onRequestDeadlineAccepted()
{
    auto *calendar = qobject_cast<CalendarForm *>(sender());
    if (!calendar)
        return;
    m_orvana->requestDeadlineChange(calendar->selectedDate(), calendar->getReason(),
                                    calendar->selectedTime());
    calendar->deleteLater();
}
