#include "tracking/trackingloop.h"

#include "base/log.h"
#include "base/timetexts.h"
#include "service/orvana.h"
#include "service/ovsession.h"
#include "tracking/desktopscreenshot.h"
#include "tracking/x11_useractivitywatcher.h"
#include "update/orvanaupdate.h"
#include "update/updater.h"

#include <utility>

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
const QString kOneColour =
    QStringLiteral("На снимке экрана ничего не видно: он весь одного цвета. Если на экране в это время были "
                   "окна, обратитесь в техподдержку.");

} // namespace

TrackingLoop::TrackingLoop(Orvana *orvana, QObject *parent)
    : QObject(parent)
    , m_orvana(orvana)
    , m_desktop(DesktopScreenshot::forSession(orvana->storage(), this))
{
    // Paid minutes are made of these slices: they may not drift. The monotonic
    // clock behind them stands still while the machine sleeps.
    m_sendActivityTimer.setTimerType(Qt::PreciseTimer);
    m_clockTimer.setTimerType(Qt::PreciseTimer);
    m_checkNeedCloseTimer.setTimerType(Qt::PreciseTimer);
    setUpTimer(m_sendActivityTimer, "sendActivityTimer", kSlice, [this] { sendActivity(false); });
    setUpTimer(m_checkUpdateTimer, "checkUpdateTimer", kUpdateCheck, &TrackingLoop::checkUpdate);
    setUpTimer(m_checkNeedCloseTimer, "checkNeedCloseTimer", kCloseCheck,
               &TrackingLoop::checkNeedCloseToUpdate);
    setUpTimer(m_updateCommentsTimer, "updateCommentsTimer", kListRefresh, &TrackingLoop::updateComments);
    setUpTimer(m_clockTimer, "clockTimer", kClockStep, &TrackingLoop::clock);
    setUpTimer(m_activityMessageTimer, "activityMessageTimer", kReminder, &TrackingLoop::showActivityMessage);
    setUpTimer(m_syncTimeTimer, "syncTimeTimer", kTimeSync, &TrackingLoop::syncTime);
    setUpTimer(m_screenshotTimer, "screenshotTimer", kScreenshotPeriod, &TrackingLoop::screenshotTimeout);

    connect(m_desktop, &DesktopScreenshot::taken, this, &TrackingLoop::onScreenshotTaken);
    connect(m_desktop, &DesktopScreenshot::failed, this, &TrackingLoop::onScreenshotFailed);
    connect(orvana, &Orvana::loginOk, this, &TrackingLoop::onLogin);
    connect(orvana->session(), &Orvana::Session::taskClosed, this, &TrackingLoop::closeTask);
    connect(UserActivityWatcher::instance(), &UserActivityWatcher::wasActivity, this,
            &TrackingLoop::setHasActivity);
}

template <typename Slot>
void TrackingLoop::setUpTimer(QTimer &timer, const char *name, std::chrono::milliseconds interval, Slot slot)
{
    timer.setObjectName(QString::fromLatin1(name));
    timer.setInterval(interval);
    connect(&timer, &QTimer::timeout, this, slot);
}

void TrackingLoop::initTimers()
{
    m_checkUpdateTimer.start();
    m_checkNeedCloseTimer.start();
    m_updateCommentsTimer.start();
    m_syncTimeTimer.start();
}

void TrackingLoop::beginMinute()
{
    m_hasActivity = false;
    m_tickCount = 0;
    m_activeTicks = 0;
}

void TrackingLoop::startTracking()
{
    beginMinute();
    m_trackedLogin = m_orvana->session()->login();
    qCDebug(lcTracking) << "Monitor started";
    // A session that is active already resumes by itself: nobody is there to answer.
    const bool isUsersWish = !m_orvana->session()->isActive();
    m_orvana->session()->setActive(true);
    // Together: what happens each second and each slice then wakes the process once.
    m_sendActivityTimer.start();
    journalStart();
    m_clockTimer.start();
    if (m_checkNeedCloseTimer.isActive())
        m_checkNeedCloseTimer.start();
    // A screenshot that fell due before a stop is taken with the first report.
    if (!m_screenshotTimer.isActive() && !m_screenshotDue)
        m_screenshotTimer.start();
    m_activityMessageTimer.start();
    if (isUsersWish)
        m_desktop->askForConsent();
}

void TrackingLoop::stopTracking()
{
    qCDebug(lcTracking) << "Monitor stopped";
    Orvana::Session *session = m_orvana->session();
    session->setActive(false);
    m_orvana->journal().stopped(session->currentTaskID());
    m_sendActivityTimer.stop();
    m_clockTimer.stop();
    m_screenshotTimer.stop();
    m_activityMessageTimer.stop();
    dropScreenshot();
    // The unfinished minute is dropped from the display too.
    session->updateSecondsToDisplayedActiveTime();
    session->updateSecondsToDisplayedWorktime();
}

void TrackingLoop::journalStart()
{
    const Orvana::Session *session = m_orvana->session();
    m_orvana->journal().started(session->currentTeamID(), session->currentTaskID());
}

// Ticks of the previous user must not count towards a minute of this one.
void TrackingLoop::onLogin()
{
    const QString login = m_orvana->session()->login();
    if (m_trackedLogin == login)
        return;
    beginMinute();
    dropScreenshot();
    m_trackedLogin = login;
    // The timer keeps running for a user whose session records.
    if (m_sendActivityTimer.isActive() && m_orvana->session()->isActive())
        journalStart();
}

void TrackingLoop::setHasActivity()
{
    m_hasActivity = true;
}

void TrackingLoop::sendActivity(bool force)
{
    ++m_tickCount;
    if (m_hasActivity) {
        ++m_activeTicks;
        m_hasActivity = false;
    }
    m_orvana->journal().slicePassed();
    if (m_tickCount != kSlicesPerMinute && !force)
        return;
    Orvana::Session *session = m_orvana->session();
    m_orvana->journalMinute(m_activeTicks);
    session->addMinuteToWorktime();
    if (m_activeTicks < 1)
        session->updateSecondsToDisplayedActiveTime();
    else
        session->addMinuteToActiveTime();
    m_orvana->sendTaskActivity(m_activeTicks);
    beginMinute();
    m_lastSendTime = QDateTime::currentDateTime();
    sendScreenshot(force);
}

void TrackingLoop::screenshotTimeout()
{
    m_screenshotDue = true;
    m_screenshotTimer.stop();
}

void TrackingLoop::sendScreenshot(bool force)
{
    if (!m_screenshotDue && !force)
        return;
    m_screenshotDue = false;
    m_screenshotTimer.start();
    if (m_screenshot != Screenshot::Here) {
        qCWarning(lcTracking) << "The desktop has not answered the last request for a screenshot";
        return;
    }
    m_screenshot = Screenshot::Awaited;
    m_desktop->take();
}

void TrackingLoop::onScreenshotTaken(const QImage &image)
{
    if (std::exchange(m_screenshot, Screenshot::Here) != Screenshot::Awaited)
        return;
    m_orvana->sendScreenshotActivity(image);
    if (isOneColour(image))
        notifyOnce(kOneColour);
}

void TrackingLoop::onScreenshotFailed(const QString &reason)
{
    m_screenshot = Screenshot::Here;
    notifyOnce(reason);
}

// One that comes after a stop or for another user must not be sent.
void TrackingLoop::dropScreenshot()
{
    if (m_screenshot == Screenshot::Awaited)
        m_screenshot = Screenshot::Dropped;
}

void TrackingLoop::notifyOnce(const QString &text)
{
    if (m_notifiedOnce.contains(text))
        return;
    m_notifiedOnce.insert(text);
    m_orvana->notify(text);
}

void TrackingLoop::clock()
{
    m_orvana->session()->incrementTodayTime();
    emit secondPassed();
}

void TrackingLoop::syncTime()
{
    // The service is asked about the team here, not about the task; its answer
    // for the day is the same.
    m_orvana->requestTimeSync(m_orvana->session()->currentTeamID());
}

void TrackingLoop::updateComments()
{
    // In case the disk refused it.
    m_orvana->session()->saveChoice();
    m_orvana->requestTeamsAndTasks();
    emit listsRequested();
}

void TrackingLoop::showActivityMessage()
{
    const Orvana::Session *session = m_orvana->session();
    const QString teamId = session->currentTeamID();
    const QString taskId = session->currentTaskID();
    m_orvana->notify(QStringLiteral("Вы работаете по задаче \"") + session->task(teamId, taskId).title
                     + QStringLiteral("\" в команде \"") + session->team(teamId).name
                     + QStringLiteral("\". Активное время за сегодня ")
                     + durationWords(session->todayActiveTime())
                     + QStringLiteral(". Активное время по задаче ")
                     + durationWords(session->todayActiveTime(taskId)) + QLatin1Char('.'));
}

void TrackingLoop::closeTask(const QString &taskId)
{
    Orvana::Session *session = m_orvana->session();
    if (taskId != session->currentTaskID())
        return;
    const bool wasActive = session->isActive();
    session->setCurrentTaskID(QString());
    if (!wasActive)
        return;
    // The play button has done so already where there is one.
    if (session->isActive())
        stopTracking();
    m_orvana->notify(QStringLiteral("Запись активности остановлена!"));
}

void TrackingLoop::checkUpdate()
{
    m_orvana->requestCheckUpdate();
}

void TrackingLoop::checkNeedCloseToUpdate()
{
    emit polled();
    OrvanaUpdate *update = OrvanaUpdate::instance();
    if (!update->isForceUpdate())
        return;
    if (Updater::isRunning())
        emit closeRequested();
    else
        update->setForceUpdate(false); // left by an updater that is gone
}

void TrackingLoop::onStartTimerShortcut_activated()
{
    const Orvana::Session *session = m_orvana->session();
    if (!session->isActive() && !session->currentTaskID().isEmpty())
        startTracking();
}

void TrackingLoop::onStopTimerShortcut_activated()
{
    if (m_orvana->session()->isActive())
        stopTracking();
}
