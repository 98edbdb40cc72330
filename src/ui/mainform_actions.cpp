#include "ui/mainform.h"

#include "base/exemptteam.h"
#include "base/log.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "ui/aboutform.h"
#include "ui/calendarform.h"
#include "ui/loginform.h"
#include "ui/taskform.h"
#include "ui/trayicon.h"
#include "ui_mainform.h"
#include "widgets/activation.h"
#include "widgets/placement.h"
#include "widgets/scrolltext.h"
#include "x11/windowmanager.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QSystemTrayIcon>

namespace {

void showCentred(QWidget *window, const QWidget *other)
{
    Placement::centre(window, other);
    window->show();
    window->raise();
    window->activateWindow();
}

} // namespace

bool MainForm::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_taskText && isActivation(event)) {
        on_pbTask_clicked();
        return true;
    }
    return TrackingForm::eventFilter(watched, event);
}

// The shortcut hides the window; the dialog's own meaning of the key is closing.
void MainForm::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        event->accept();
    else
        TrackingForm::keyPressEvent(event);
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
    qCDebug(lcUi) << "MainForm.cpp hideAllHandler";
    m_hidAll = true;
    // Without a tray there would be no way back to a hidden window.
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        hide();
    } else {
        makeMinimizable(this);
        showMinimized();
    }
}

void MainForm::trayActivated(QSystemTrayIcon::ActivationReason reason)
{
    m_trayIcon->handleActivation(reason);
}

void MainForm::on_pbPlay_toggled(bool checked)
{
    qCDebug(lcUi) << "MainForm.cpp on_pbPlay_toggled";
    if (checked)
        startTracking();
    else
        stopTracking();
}

void MainForm::on_actionStartStop_triggered()
{
    qCDebug(lcUi) << "MainForm.cpp on_actionStartStop_triggered";
    m_ui->pbPlay->setChecked(!m_ui->pbPlay->isChecked());
}

void MainForm::on_pbMinimize_clicked()
{
    qCDebug(lcUi) << "MainForm.cpp on_pbMinimize_clicked";
    emit hideAll();
}

void MainForm::on_pbTask_clicked()
{
    if (m_taskForm) {
        m_taskForm->update();
    } else {
        m_taskForm = new TaskForm(this, this);
        connect(m_taskForm, &TaskForm::accepted, this, &MainForm::onTaskFormAccepted);
    }
    showCentred(m_taskForm, this);
}

void MainForm::onTaskFormAccepted()
{
    selectTask(m_taskForm->currentTeamId(), m_taskForm->currentTaskId());
}

void MainForm::selectTask(const QString &teamId, const QString &taskId)
{
    // The lists may have changed since the choice was shown; then the current task stays.
    const Orvana::Session *session = m_orvana->session();
    if (session->team(teamId).id.isEmpty() || session->task(teamId, taskId).id.isEmpty())
        return;
    m_orvana->changeTask(teamId, taskId);
    // Between two teams that list the same id, no change of task is signalled.
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
    showCentred(m_aboutForm.get(), this);
}

void MainForm::on_pbTimeExtend_clicked()
{
    const Orvana::Session *session = m_orvana->session();
    if (session->currentTaskID() == kCatchAllId || isExemptTeam(session->currentTeamID())) {
        m_orvana->notify(QStringLiteral("Для данной задачи невозможно выполнить перенос дедлайна."));
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
