#include "idlesource.h"

IdleSource::IdleSource()
{
    m_second.setTimerType(Qt::PreciseTimer);
    m_second.setInterval(std::chrono::seconds(1));
    m_second.setSingleShot(true);
    m_second.callOnTimeout(this, [this] {
        m_isReported = false;
        if (!isIdle())
            confirmUse();
    });
}

void IdleSource::addSeat(quint32 seat)
{
    m_busySeats.insert(seat);
    // Somebody who does not pause even now is noticed by the seat's not becoming idle.
    if (!m_second.isActive())
        m_second.start();
}

void IdleSource::removeSeat(quint32 seat)
{
    m_busySeats.remove(seat);
}

void IdleSource::setIdle(quint32 seat, bool idle)
{
    if (idle) {
        m_busySeats.remove(seat);
        return;
    }
    m_busySeats.insert(seat);
    reportUse();
}

void IdleSource::confirmUse()
{
    reportUse();
}

void IdleSource::reportUse()
{
    if (!isIdle() && !m_isReported)
        report();
}

void IdleSource::report()
{
    m_isReported = true;
    m_second.start();
    emit active();
}
