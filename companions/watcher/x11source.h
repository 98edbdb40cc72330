#pragma once

#include "activitysource.h"

#include <QTimer>

#include <memory>

class QSocketNotifier;

// Detects use of the keyboard, mouse, touch screen or pen of an X server. Costs nothing while
// there is none.
class X11Source final : public ActivitySource
{
    Q_OBJECT

public:
    // Connects to the server of the environment variable DISPLAY. Null on failure, with *error set.
    static std::unique_ptr<X11Source> open(QString *error);
    ~X11Source() override;
    Q_DISABLE_COPY_MOVE(X11Source)

    QString name() const override;

private:
    struct Connection;
    explicit X11Source(std::unique_ptr<Connection> connection);

    void select(bool input);
    void readEvents();
    void resume();
    bool isKeyRepeating();
    void report();

    std::unique_ptr<Connection> m_connection;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_pause; // runs while no input is selected
};
