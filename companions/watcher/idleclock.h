#pragma once

#include <QString>

#include <chrono>
#include <memory>
#include <optional>

// The time since the last input of any device of an X server.
class IdleClock final
{
public:
    // Connects to the server of the environment variable DISPLAY. Null on failure, with *error set.
    static std::unique_ptr<IdleClock> open(QString *error);
    ~IdleClock();
    Q_DISABLE_COPY_MOVE(IdleClock)

    // Asks the server. Nothing once the connection is lost; it does not come back.
    std::optional<std::chrono::milliseconds> idle();

private:
    struct Connection;
    explicit IdleClock(std::unique_ptr<Connection> connection);

    std::unique_ptr<Connection> m_connection;
};
