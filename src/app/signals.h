#pragma once

#include <QObject>

// Ends the program as its exit action does when the system asks for it (SIGTERM,
// SIGINT, SIGHUP).
class TerminationSignals final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TerminationSignals)

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

    // For code outside the event loops, which are all that QCoreApplication::quit() ends.
    static bool areReceived();

private:
    int m_sockets[2] = {-1, -1};
};
