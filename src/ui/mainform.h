#pragma once

#include "notifications/notificationhost.h"
#include "widgets/abstractorvanaform.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QIcon>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>
#include <memory>

class AboutForm;
class Orvana;
class QMenu;
class QScreen;
class ScrollText;
class TaskForm;
class TaskListForm;
struct Task;

namespace Ui {
class MainForm;
}

// The small window that is always there: task, play button, clocks, overdue
// time; it owns the tray icon, the menu and the timers that turn a running timer
// into counted and reported minutes. The client must outlive it.
class MainForm final : public AbstractOrvanaForm, public NotificationHost
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MainForm)

public:
    explicit MainForm(Orvana *orvana, QWidget *parent = nullptr);
    ~MainForm() override;

    Orvana *orvana() const { return m_orvana; }
    QIcon getTaskIcon(const Task &task) const;

    int notificationOffset() const override;
    QRect notificationArea() const override;
    void updateNotificationState() override;
    void openTask(const QString &taskId) override;
    bool installUpdate() override;

public slots:
    void updatePlayBtn();
    void updateTimerLbl();
    void updateOverdueTime();
    void updateTrayIcon();
    void updateNoticeBtn();
    void onTaskChange();
    void updateForNewLogin();
    void updateOnlineState(const QString &reason);
    void onTaskUpdated(const QString &teamId);
    void closeTask(const QString &taskId);
    // Makes it the task that time is counted on; one that the session's team does not
    // have changes nothing.
    void selectTask(const QString &teamId, const QString &taskId);

    void initTimers();
    void startTracking();
    void stopTracking();
    // One slice of six seconds; force closes the minute at once, with a picture.
    void sendActivity(bool force = false);
    void setHasActivity();
    void clock();
    void screenshotTimeout();
    void sendScreenshot(bool force);
    void syncTime();
    void updateComments();
    void showActivityMessage();
    void checkUpdate();
    void checkNeedCloseToUpdate();
    bool isUpdateProcessRunning();

    // For a hot key; nothing in the program is bound to them.
    void onStartTimerShortcut_activated();
    void onStopTimerShortcut_activated();

    void reject() override;

signals:
    void hideAll();
    void showAll();
    void teamChanged(const QString &teamId);

protected:
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;

private slots:
    void on_pbTask_clicked();
    void on_pbTaskList_clicked();
    void on_lbActivity_clicked();
    void on_pbPlay_toggled(bool checked);
    void on_actionStartStop_triggered();
    void on_pbNotice_clicked();
    void on_pbMinimize_clicked();
    void on_actExit_triggered();
    void on_actionChangeAccount_triggered();
    void on_actionAbout_triggered();
    void on_actionToggleVisible_triggered();
    void on_pbTimeExtend_clicked();
    void onRequestDeadlineAccepted();
    void trayActivated(QSystemTrayIcon::ActivationReason reason);
    void showAllHandler();
    void hideAllHandler();
    void onTaskFormAccepted();

private:
    void initMenu();
    void initTrayIcon();
    void finishStart();
    void connectSignals();
    void placeOnScreen();
    void stayReachable();
    void followScreen(QScreen *screen);
    void placePopups();
    bool isSeen() const;
    void toggleSeen();
    void bringBackOthers();
    void updateTrayToolTip();
    void setStartStopText(const QString &text);
    template <typename Slot>
    void initTimer(QTimer &timer, const char *name, std::chrono::milliseconds interval, Slot slot);

    std::unique_ptr<Ui::MainForm> m_ui;
    Orvana *m_orvana;
    ScrollText *m_taskText = nullptr;
    TaskListForm *m_taskListForm = nullptr;
    TaskForm *m_taskForm = nullptr;
    std::unique_ptr<AboutForm> m_aboutForm;
    QSystemTrayIcon *m_trayIcon = nullptr;
    QMenu *m_menu = nullptr;
    std::unique_ptr<QMenu> m_trayMenu;
    bool m_showsActiveTime = false;
    bool m_hidAll = false; // the other windows come back with this one
    QElapsedTimer m_sinceTrayClick;
    QString m_playStyle;
    QString m_trayIconName;
    bool m_wasShown = false;
    bool m_wasPainted = false;

    QTimer m_sendActivityTimer;
    QTimer m_checkUpdateTimer;
    QTimer m_checkNeedCloseTimer;
    QTimer m_updateCommentsTimer;
    QTimer m_clockTimer;
    QTimer m_activityMessageTimer;
    QTimer m_syncTimeTimer;
    QTimer m_screenshotTimer;
    bool m_hasActivity = false;
    qint32 m_tickCount = 0;
    qint32 m_activeTicks = 0;
    QDateTime m_lastSendTime;
    bool m_screenshotDue = false;
    QString m_trackedLogin;
};
