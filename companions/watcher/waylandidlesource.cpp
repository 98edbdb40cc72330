#include "waylandidlesource.h"

#include <wayland-client.h>

namespace {
// Shorter than a slice of the client.
constexpr std::chrono::seconds kProbeInterval{4};
// Names of globals are small numbers.
constexpr quint32 kProbeBit = 1U << 31;
// Of the notifications of all protocols.
constexpr quint32 kDestroyRequest = 0;
} // namespace

void WaylandIdleSource::EndNotification::operator()(wl_proxy *notification) const
{
    wl_proxy_marshal_flags(notification, kDestroyRequest, nullptr, wl_proxy_get_version(notification),
                           WL_MARSHAL_FLAG_DESTROY);
}

WaylandIdleSource::WaylandIdleSource(std::unique_ptr<WaylandConnection> connection)
    : m_connection(std::move(connection))
{
    connect(m_connection.get(), &WaylandConnection::lost, this, &WaylandIdleSource::lost);
    connect(m_connection.get(), &WaylandConnection::answered, this, &WaylandIdleSource::reportUse);
    connect(m_connection.get(), &WaylandConnection::globalAdded, this,
            [this](quint32 name, const QByteArray &interface) {
                if (interface == wl_seat_interface.name)
                    add(name);
            });
    connect(m_connection.get(), &WaylandConnection::globalRemoved, this, &WaylandIdleSource::remove);
    m_probeTimer.setInterval(kProbeInterval);
    m_probeTimer.callOnTimeout(this, &WaylandIdleSource::probe);
}

WaylandIdleSource::~WaylandIdleSource() = default;

void WaylandIdleSource::watchSeats()
{
    for (const quint32 name : m_connection->globals(wl_seat_interface))
        add(name);
    m_connection->flush();
    if (!isAboutInputOnly())
        m_probeTimer.start();
}

void WaylandIdleSource::confirmUse()
{
    m_connection->requestAnswer();
}

void WaylandIdleSource::add(quint32 name)
{
    Seat &seat = m_seats[name];
    seat.proxy = m_connection->bindGlobal(name, wl_seat_interface);
    seat.watch = {this, name, nullptr};
    seat.probe = {this, name | kProbeBit, nullptr};
    start(seat, &seat.watch);
}

void WaylandIdleSource::remove(quint32 name)
{
    if (m_seats.erase(name) > 0) {
        removeSeat(name);
        removeSeat(name | kProbeBit);
    }
}

void WaylandIdleSource::start(const Seat &seat, Watch *watch)
{
    addSeat(watch->id);
    watch->notification = request(reinterpret_cast<wl_seat *>(seat.proxy.get()), watch);
}

// The other notification remains: a new one does not report input until it has been idle.
void WaylandIdleSource::probe()
{
    if (!isIdle())
        return;
    for (auto &[name, seat] : m_seats)
        start(seat, &seat.probe);
    m_connection->flush();
}
