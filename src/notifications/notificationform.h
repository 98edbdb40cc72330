#pragma once

#include "base/notificationtype.h"

#include <QDialog>
#include <QRect>
#include <QTimer>

#include <memory>

class NotificationHost;

namespace Ui {
class NotificationForm;
}

// One popup. It closes by a click, some kinds also after five seconds; fading
// out it ignores both, and emits notificationClosed() at the end.
class NotificationForm final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NotificationForm)

public:
    NotificationForm(const QString &text, NotificationType type, const QString &taskId,
                     NotificationHost *host, QWidget *parent = nullptr);
    ~NotificationForm() override;

    static QString getMessage(const QString &text, NotificationType type);
    // As much of a text as a popup shows.
    static QString textToKeep(const QString &text);
    // Whether a popup in this slot lies on the screen; the host may be null.
    static bool fitsOnScreen(int position, const NotificationHost *host);
    // Stays until it is clicked.
    bool isPermanentNotification() const;
    // Opens its task on a left click.
    bool isTaskNotify() const;
    NotificationType notificationType() const { return m_type; }
    bool isClosing() const { return m_closing; }
    // The slot in the stack, 0 at the top.
    int getPosition() const { return m_position; }
    void updatePosition(int position);
    void closeNotification();
    void setVisible(bool visible) override;
    void setMainForm(NotificationHost *host) { m_host = host; }

public slots:
    // What a left click does.
    void press();
    void onPbLateClicked();
    void onPbUpdateClicked();
    void reject() override;

signals:
    void notificationClosed();

protected:
    void showEvent(QShowEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    bool focusNextPrevChild(bool next) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void openTaskIfAny();
    bool isStrayKey(const QEvent *event) const;

    std::unique_ptr<Ui::NotificationForm> m_ui; // the buttons, which only an update has
    QTimer m_closeTimer;
    NotificationType m_type;
    NotificationHost *m_host;
    bool m_closing = false;
    bool m_isAttended = false; // the user clicked or tabbed into it, and stayed
    int m_movesBack = 0; // left since it was shown
    QString m_taskId;
    int m_position = 0;
};
