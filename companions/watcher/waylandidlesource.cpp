#include "waylandidlesource.h"

#include <wayland-client.h>

WaylandIdleSource::Seat::Seat(WaylandIdleSource &source, quint32 name, WaylandProxy seat)
    : m_source(source)
    , m_name(name)
    , m_seat(std::move(seat))
{ }

void WaylandIdleSource::Seat::setIdle(bool idle)
{
    m_source.setIdle(m_name, idle);
}

WaylandIdleSource::WaylandIdleSource(std::unique_ptr<WaylandConnection> connection)
    : m_connection(std::move(connection))
{
    connect(m_connection.get(), &WaylandConnection::lost, this, &WaylandIdleSource::lost);
    connect(m_connection.get(), &WaylandConnection::globalAdded, this,
            [this](quint32 name, const QByteArray &interface) {
                if (interface == wl_seat_interface.name)
                    add(name);
            });
    connect(m_connection.get(), &WaylandConnection::globalRemoved, this, [this](quint32 name) {
        if (m_seats.erase(name) > 0)
            removeSeat(name);
    });
}

WaylandIdleSource::~WaylandIdleSource() = default;

void WaylandIdleSource::watchSeats()
{
    for (const quint32 name : m_connection->globals(wl_seat_interface))
        add(name);
    m_connection->flush();
}

void WaylandIdleSource::add(quint32 name)
{
    auto &seat = m_seats[name];
    seat = std::make_unique<Seat>(*this, name, m_connection->bindGlobal(name, wl_seat_interface));
    addSeat(name);
    watch(*seat);
}
