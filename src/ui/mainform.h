#pragma once

#include "notifications/notificationhost.h"
#include "ui/trackingform.h"

#include <QIcon>
#include <QSystemTrayIcon>

#include <memory>

class AboutForm;
class ScrollText;
class TaskForm;
class TaskListForm;
class TrayIcon;
class WindowPlace;
struct Task;

namespace Ui {
class MainForm;
}

// The small window that is always there: task, play button, clocks, overdue
// time. It owns the tray icon and the menu. The client must outlive it.
class MainForm final : public TrackingForm, public NotificationHost
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MainForm)

public:
    explicit MainForm(Orvana *orvana, QWidget *parent = nullptr);
    ~MainForm() override;

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
    void onTeamsUpdated();
    // Makes it the task that time is counted on. Does nothing if the session's team does
    // not have it.
    void selectTask(const QString &teamId, const QString &taskId);

    void reject() override;

signals:
    void hideAll();
    void showAll();
    void teamChanged(const QString &teamId);

protected:
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private slots:
    void on_pbTask_clicked();
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

    std::unique_ptr<Ui::MainForm> m_ui;
    ScrollText *m_taskText;
    TaskListForm *m_taskListForm = nullptr; // this and the next once they were opened
    TaskForm *m_taskForm = nullptr;
    std::unique_ptr<AboutForm> m_aboutForm;
    TrayIcon *m_trayIcon = nullptr;
    WindowPlace *m_place;
    bool m_showsActiveTime = false;
    bool m_hidAll = false; // the other windows come back with this one
    QString m_playStyle;
    bool m_wasPainted = false;
    bool m_isTaskOutdated = false; // its team was in the reply
};
