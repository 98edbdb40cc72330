#pragma once

#include <QObject>

class QScreen;
class QWidget;

// Puts a window into the corner of the primary screen, keeps it where the user can reach
// it, and has the popups follow it. Belongs to the window.
class WindowPlace final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WindowPlace)

public:
    explicit WindowPlace(QWidget *window);

    // False if the window is covered, on another desktop, or behind the bare desktop.
    bool isInSight() const;

public slots:
    // Moves the window back from a screen that is gone. To be polled as well: nothing
    // signals that the tray is gone.
    void stayReachable();

signals:
    // The window is hidden, and there is no tray icon to show it by.
    void unreachable();
    // Shown or restored, by whatever means.
    void cameBack();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private slots:
    void placePopups();

private:
    void moveToCorner();
    void followScreen(QScreen *screen);

    QWidget *m_window;
    bool m_wasShown = false;
};
