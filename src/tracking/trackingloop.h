#pragma once

#include <QDateTime>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <chrono>

class DesktopScreenshot;
class Orvana;
class QImage;

// Turns working time into counted minutes, reports and screenshots, and polls the service
// and the updater. Whether tracking runs is the session's active state. The client must
// outlive it.
class TrackingLoop final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TrackingLoop)

public:
    explicit TrackingLoop(Orvana *orvana, QObject *parent = nullptr);

public slots:
    // Starts the timers that run in both states.
    void initTimers();
    // When the user starts it, the desktop may ask them to consent to screenshots.
    void startTracking();
    // Drops the unfinished minute.
    void stopTracking();
    // One slice of six seconds; force closes the minute at once, with a screenshot.
    void sendActivity(bool force = false);
    void setHasActivity();
    void clock();
    void screenshotTimeout();
    void sendScreenshot(bool force);
    void syncTime();
    void updateComments();
    void showActivityMessage();
    void closeTask(const QString &taskId);
    void checkUpdate();
    void checkNeedCloseToUpdate();

    // For hot keys and scripts. Without a task, or already there, they do nothing.
    void onStartTimerShortcut_activated();
    void onStopTimerShortcut_activated();

signals:
    // Every second while tracking, after the session's clocks.
    void secondPassed();
    // Every second, tracking or not: for what has to be polled.
    void polled();
    // Every minute, after the lists were requested.
    void listsRequested();
    // The updater is running and waits for the program to end.
    void closeRequested();

private:
    template <typename Slot>
    void setUpTimer(QTimer &timer, const char *name, std::chrono::milliseconds interval, Slot slot);
    void beginMinute();
    void journalStart();
    void onLogin();
    void onScreenshotTaken(const QImage &image);
    void onScreenshotFailed(const QString &reason);
    void dropScreenshot();
    void notifyOnce(const QString &text);

    // What becomes of the screenshot that was requested last.
    enum class Screenshot { Here, Awaited, Dropped };

    Orvana *m_orvana;
    DesktopScreenshot *m_desktop;
    QTimer m_sendActivityTimer{this};
    QTimer m_checkUpdateTimer{this};
    QTimer m_checkNeedCloseTimer{this};
    QTimer m_updateCommentsTimer{this};
    QTimer m_clockTimer{this};
    QTimer m_activityMessageTimer{this};
    QTimer m_syncTimeTimer{this};
    QTimer m_screenshotTimer{this};
    bool m_hasActivity = false;
    qint32 m_tickCount = 0;
    qint32 m_activeTicks = 0;
    QDateTime m_lastSendTime;
    bool m_screenshotDue = false;
    Screenshot m_screenshot = Screenshot::Here;
    QSet<QString> m_notifiedOnce;
    QString m_trackedLogin;
};
