#pragma once

#include <QElapsedTimer>
#include <QSystemTrayIcon>

#include <memory>

class Orvana;
class QAction;
class QMenu;

// The icon in the desktop's panel: whether tracking runs, whether popups wait, and, in
// its tool tip, the task and the day's time. The client must outlive it.
class TrayIcon final : public QSystemTrayIcon
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TrayIcon)

public:
    TrayIcon(Orvana *orvana, QAction *startStop, QAction *exit, QObject *parent);
    ~TrayIcon() override;

    void setTaskTitle(const QString &title);

public slots:
    void update();
    void updateToolTip();
    void handleActivation(QSystemTrayIcon::ActivationReason reason);

signals:
    void toggleRequested(); // by a click or the menu
    void showRequested(); // by the second click of two

private:
    Orvana *m_orvana;
    std::unique_ptr<QMenu> m_menu;
    QElapsedTimer m_sinceClick;
    QString m_taskTitle;
    QString m_iconName;
    int m_minute = 0; // of the day's time in the tool tip
};
