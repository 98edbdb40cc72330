#pragma once

#include "idlesource.h"
#include "waylandconnection.h"

#include <map>
#include <memory>

struct wl_seat;

// The seats of a compositor, each watched by what a derived class gets from it.
//
// While a program keeps the screen on, most compositors say nothing at all: a seat stays in use or idle,
// as it was when that began. So as not to lose the work of somebody who has a film or a call running, such
// a time counts as use: a second notification, which should soon say idle, is asked for again and again.
class WaylandIdleSource : public IdleSource
{
    Q_OBJECT

public:
    ~WaylandIdleSource() override;
    Q_DISABLE_COPY_MOVE(WaylandIdleSource)

protected:
    // Ends it at the compositor too, unlike other proxies, which last as long as the connection.
    struct EndNotification
    {
        void operator()(wl_proxy *notification) const;
    };
    using Notification = std::unique_ptr<wl_proxy, EndNotification>;

    // What the events of one notification are about.
    struct Watch
    {
        WaylandIdleSource *source;
        quint32 id;
        Notification notification;
    };
    // An event of a notification whose listener has its watch as data.
    template <bool isIdle, typename Proxy>
    static void note(void *watch, Proxy *)
    {
        const auto *about = static_cast<Watch *>(watch);
        about->source->setIdle(about->id, isIdle);
    }

    explicit WaylandIdleSource(std::unique_ptr<WaylandConnection> connection);
    // To be called once, by the derived class when it is complete.
    void watchSeats();
    // Requests a notification, with `data` for its listener.
    virtual Notification request(wl_seat *seat, Watch *data) = 0;
    // Whether it reports input even while the screen is kept on.
    virtual bool isAboutInputOnly() const = 0;
    void confirmUse() override;

    WaylandConnection &connection() { return *m_connection; }

private:
    struct Seat
    {
        WaylandProxy proxy;
        Watch watch;
        Watch probe;
    };
    void add(quint32 name);
    void remove(quint32 name);
    void start(const Seat &seat, Watch *watch);
    void probe();

    // In this order: proxies are destroyed first.
    const std::unique_ptr<WaylandConnection> m_connection;
    std::map<quint32, Seat> m_seats;
    QTimer m_probeTimer;
};
