#include "ui/mainform.h"

#include "base/timetexts.h"
#include "notifications/notificationmanager.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "tracking/screengrab.h"
#include "ui_mainform.h"

#include <QDebug>
#include <QSignalBlocker>

namespace {

using namespace std::chrono_literals;

constexpr auto kSlice = 6s;
constexpr qint32 kSlicesPerMinute = 10;
constexpr auto kUpdateCheck = 1h;
constexpr auto kCloseCheck = 1s;
constexpr auto kListRefresh = 60s;
constexpr auto kClockStep = 1s;
constexpr auto kReminder = 30min;
constexpr auto kTimeSync = 29min;
constexpr auto kScreenshotPeriod = 5min;

const QString kStart = QStringLiteral("Старт");
const QString kStop = QStringLiteral("Стоп");

void notify(const QString &text)
{
    NotificationManager::instance()->addNotification(text, Plain, QString());
}

} // namespace

template <typename Slot>
void MainForm::initTimer(QTimer &timer, const char *name, std::chrono::milliseconds interval, Slot slot)
{
    timer.setObjectName(QString::fromLatin1(name));
    timer.setParent(this);
    timer.setInterval(interval);
    connect(&timer, &QTimer::timeout, this, slot);
}

void MainForm::initTimers()
{
    // Paid minutes are made of these slices: they may not drift. The monotonic
    // clock behind them stands still while the machine sleeps.
    m_sendActivityTimer.setTimerType(Qt::PreciseTimer);
    m_clockTimer.setTimerType(Qt::PreciseTimer);
    initTimer(m_sendActivityTimer, "sendActivityTimer", kSlice, [this] { sendActivity(false); });
    initTimer(m_checkUpdateTimer, "checkUpdateTimer", kUpdateCheck, &MainForm::checkUpdate);
    initTimer(m_checkNeedCloseTimer, "checkNeedCloseTimer", kCloseCheck, &MainForm::checkNeedCloseToUpdate);
    initTimer(m_updateCommentsTimer, "updateCommentsTimer", kListRefresh, &MainForm::updateComments);
    initTimer(m_clockTimer, "clockTimer", kClockStep, &MainForm::clock);
    initTimer(m_activityMessageTimer, "activityMessageTimer", kReminder, &MainForm::showActivityMessage);
    initTimer(m_syncTimeTimer, "syncTimeTimer", kTimeSync, &MainForm::syncTime);
    initTimer(m_screenshotTimer, "screenshotTimer", kScreenshotPeriod, &MainForm::screenshotTimeout);

    m_checkUpdateTimer.start();
    m_checkNeedCloseTimer.start();
    m_updateCommentsTimer.start();
    m_syncTimeTimer.start();
}

void MainForm::setStartStopText(const QString &text)
{
    m_ui->actionStartStop->setText(text);
    updateTrayIcon();
    updatePlayBtn();
}

void MainForm::startTracking()
{
    m_hasActivity = false;
    m_tickCount = 0;
    m_activeTicks = 0;
    m_trackedLogin = m_orvana->session()->login();
    qDebug() << "Monitor started";
    m_orvana->session()->setActive(true);
    m_sendActivityTimer.start();
    m_clockTimer.start();
    // A picture that fell due before a stop is taken with the first report.
    if (!m_screenshotTimer.isActive() && !m_screenshotDue)
        m_screenshotTimer.start();
    m_activityMessageTimer.start();
    setStartStopText(kStop);
    const QSignalBlocker blocker(m_ui->pbPlay);
    m_ui->pbPlay->setChecked(true);
}

void MainForm::stopTracking()
{
    qDebug() << "Monitor stopped";
    Orvana::Session *session = m_orvana->session();
    session->setActive(false);
    m_sendActivityTimer.stop();
    m_clockTimer.stop();
    m_screenshotTimer.stop();
    m_activityMessageTimer.stop();
    // The unfinished minute is dropped, on the display too.
    session->updateSecondsToDisplayedActiveTime();
    session->updateSecondsToDisplayedWorktime();
    setStartStopText(kStart);
    const QSignalBlocker blocker(m_ui->pbPlay);
    m_ui->pbPlay->setChecked(false);
}

void MainForm::setHasActivity()
{
    m_hasActivity = true;
}

void MainForm::sendActivity(bool force)
{
    ++m_tickCount;
    if (m_hasActivity) {
        ++m_activeTicks;
        m_hasActivity = false;
    }
    if (m_tickCount != kSlicesPerMinute && !force)
        return;
    Orvana::Session *session = m_orvana->session();
    session->addMinuteToWorktime();
    if (m_activeTicks < 1)
        session->updateSecondsToDisplayedActiveTime();
    else
        session->addMinuteToActiveTime();
    m_orvana->sendTaskActivity(m_activeTicks);
    m_tickCount = 0;
    m_activeTicks = 0;
    m_lastSendTime = QDateTime::currentDateTime();
    sendScreenshot(force);
}

void MainForm::screenshotTimeout()
{
    m_screenshotDue = true;
    m_screenshotTimer.stop();
}

void MainForm::sendScreenshot(bool force)
{
    if (!m_screenshotDue && !force)
        return;
    m_screenshotDue = false;
    m_screenshotTimer.start();
    m_orvana->sendScreenshotActivity(grabDesktop());
}

void MainForm::clock()
{
    m_orvana->session()->incrementTodayTime();
    updateOverdueTime();
    updateTrayToolTip();
}

void MainForm::syncTime()
{
    // The service is asked about the team here, not about the task; its answer
    // for the day is the same.
    m_orvana->requestTimeSync(m_orvana->session()->currentTeamID());
}

void MainForm::updateComments()
{
    // In case the disk refused it.
    m_orvana->session()->saveChoice();
    m_orvana->requestTeamsAndTasks();
    updateTrayToolTip();
}

void MainForm::showActivityMessage()
{
    const Orvana::Session *session = m_orvana->session();
    const QString teamId = session->currentTeamID();
    const QString taskId = session->currentTaskID();
    notify(QStringLiteral("Вы работаете по задаче \"") + session->task(teamId, taskId).title
           + QStringLiteral("\" в команде \"") + session->team(teamId).name
           + QStringLiteral("\". Активное время за сегодня ") + durationWords(session->todayActiveTime())
           + QStringLiteral(". Активное время по задаче ") + durationWords(session->todayActiveTime(taskId))
           + QLatin1Char('.'));
}

void MainForm::closeTask(const QString &taskId)
{
    Orvana::Session *session = m_orvana->session();
    if (taskId != session->currentTaskID())
        return;
    const bool wasActive = session->isActive();
    // The change of task stops the timers.
    session->setCurrentTaskID(QString());
    if (!wasActive)
        return;
    session->setActive(false);
    notify(QStringLiteral("Запись активности остановлена!"));
}

void MainForm::on_pbPlay_toggled(bool checked)
{
    qDebug() << "MainForm.cpp on_pbPlay_toggled";
    if (checked)
        startTracking();
    else
        stopTracking();
}

void MainForm::on_actionStartStop_triggered()
{
    qDebug() << "MainForm.cpp on_actionStartStop_triggered";
    m_ui->pbPlay->setChecked(!m_ui->pbPlay->isChecked());
}

void MainForm::onStartTimerShortcut_activated()
{
    const Orvana::Session *session = m_orvana->session();
    if (!session->isActive() && !session->currentTaskID().isEmpty())
        startTracking();
}

void MainForm::onStopTimerShortcut_activated()
{
    if (m_orvana->session()->isActive())
        stopTracking();
}
