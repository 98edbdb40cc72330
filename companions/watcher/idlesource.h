#pragma once

#include "activitysource.h"

#include <QSet>
#include <QTimer>

#include <chrono>

// Makes reports of what compositors say: which seat is idle, and when it is in use again. They say
// nothing more while it stays in use, so that each second of it is reported here.
class IdleSource : public ActivitySource
{
    Q_OBJECT

public:
    // For which compositors are asked. A report at the end of a second comes at most this much later
    // than the input. Nor does a click, pressed and released, count as two seconds.
    static constexpr std::chrono::milliseconds kIdleAfter{200};

protected:
    IdleSource();

    // A seat is in use until the contrary is known, but nothing is reported for that.
    void addSeat(quint32 seat);
    void removeSeat(quint32 seat);
    void setIdle(quint32 seat, bool idle);
    bool isIdle() const { return m_busySeats.isEmpty(); }
    // Leads to reportUse() when it is certain that the seats in use still are: a compositor that hangs
    // says nothing of those that become idle.
    virtual void confirmUse();
    void reportUse();

private:
    void report();

    QSet<quint32> m_busySeats;
    QTimer m_second; // runs after each report, and after a seat was added
    bool m_isReported = false; // something in the second that runs
};
