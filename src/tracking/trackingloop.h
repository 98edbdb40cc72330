#pragma once

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <chrono>

class Orvana;

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
    void onLogin();

    Orvana *m_orvana;
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
    QString m_trackedLogin;
};
