#pragma once

#include <QObject>

class Orvana;

// Saves the client's state where the program ends without a return from main(): with
// the desktop's session, and with the connection to the X server or to the session
// manager, after which Qt or their libraries call exit().
class SessionEnd final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SessionEnd)

public:
    // One at a time, on the GUI thread; the client must outlive it.
    explicit SessionEnd(Orvana *orvana);
    ~SessionEnd() override;
};
