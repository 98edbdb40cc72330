#pragma once

#include <QObject>
#include <QTimer>

#include <memory>

class QSocketNotifier;

// Detects use of the keyboard, mouse, touch screen or pen of an X server. Costs nothing while
// there is none.
class InputWatch final : public QObject
{
    Q_OBJECT

public:
    // Connects to the server of the environment variable DISPLAY. Null on failure, with *error set.
    static std::unique_ptr<InputWatch> open(QString *error);
    ~InputWatch() override;
    Q_DISABLE_COPY_MOVE(InputWatch)

signals:
    // At most once a second.
    void active();
    // The connection is lost; emitted at most once, and last.
    void lost();

private:
    struct Connection;
    explicit InputWatch(std::unique_ptr<Connection> connection);

    void select(bool input);
    void readEvents();
    void resume();
    bool isKeyRepeating();
    void report();

    std::unique_ptr<Connection> m_connection;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_pause; // runs while no input is selected
};
