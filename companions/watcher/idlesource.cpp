#include "idlesource.h"

IdleSource::IdleSource()
{
    m_pause.setTimerType(Qt::PreciseTimer);
    m_pause.setInterval(std::chrono::seconds(1));
    m_pause.setSingleShot(true);
    m_pause.callOnTimeout(this, [this] {
        if (!m_busySeats.isEmpty())
            report();
    });
}

void IdleSource::addSeat(quint32 seat)
{
    m_busySeats.insert(seat);
    // Somebody who does not pause even now is noticed by the seat's not becoming idle.
    if (!m_pause.isActive())
        m_pause.start();
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
    if (!m_pause.isActive() || !m_hasReported)
        report();
}

void IdleSource::report()
{
    m_hasReported = true;
    m_pause.start();
    emit active();
}
