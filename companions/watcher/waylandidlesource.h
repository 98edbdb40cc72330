#pragma once

#include "idlesource.h"
#include "waylandconnection.h"

#include <map>
#include <memory>

struct wl_seat;

// The seats of a compositor, each watched by what a derived class gets from it.
class WaylandIdleSource : public IdleSource
{
    Q_OBJECT

public:
    ~WaylandIdleSource() override;
    Q_DISABLE_COPY_MOVE(WaylandIdleSource)

protected:
    class Seat
    {
    public:
        Seat(WaylandIdleSource &source, quint32 name, WaylandProxy seat);
        void setIdle(bool idle);
        wl_seat *handle() const { return reinterpret_cast<wl_seat *>(m_seat.get()); }
        WaylandProxy notification;

    private:
        WaylandIdleSource &m_source;
        const quint32 m_name;
        const WaylandProxy m_seat;
    };

    explicit WaylandIdleSource(std::unique_ptr<WaylandConnection> connection);
    // An event of a notification whose listener has its seat as data.
    template <bool isIdle, typename Notification>
    static void note(void *seat, Notification *)
    {
        static_cast<Seat *>(seat)->setIdle(isIdle);
    }
    // To be called once, by the derived class when it is complete.
    void watchSeats();
    // Sets the seat's notification. The seat lives as long as that.
    virtual void watch(Seat &seat) = 0;

    WaylandConnection &connection() { return *m_connection; }

private:
    void add(quint32 name);

    // In this order: proxies are destroyed first.
    const std::unique_ptr<WaylandConnection> m_connection;
    std::map<quint32, std::unique_ptr<Seat>> m_seats;
};
