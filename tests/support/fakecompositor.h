#pragma once

#include "ext-idle-notify-v1-server-protocol.h"

#include <QByteArray>
#include <QSocketNotifier>

#include <memory>
#include <vector>

#include <wayland-server.h>

/// A compositor with one seat and, unless its version is 0, the protocol ext-idle-notify-v1. Its
/// notifications say what the test tells them to.
class FakeCompositor final
{
public:
    FakeCompositor(const char *name, int version)
        : m_display(wl_display_create(), wl_display_destroy)
        , m_notifier(wl_event_loop_get_fd(loop()), QSocketNotifier::Read)
    {
        wl_display_add_socket(m_display.get(), name);
        wl_global_create(m_display.get(), &wl_seat_interface, 1, this, bindSeat);
        if (version > 0)
            wl_global_create(m_display.get(), &ext_idle_notifier_v1_interface, version, this, bindNotifier);
        QObject::connect(&m_notifier, &QSocketNotifier::activated, &m_notifier, [this] { run(); });
    }
    ~FakeCompositor() { wl_display_destroy_clients(m_display.get()); }
    Q_DISABLE_COPY_MOVE(FakeCompositor)

    void say(bool idle)
    {
        for (wl_resource *notification : m_notifications)
            idle ? ext_idle_notification_v1_send_idled(notification)
                 : ext_idle_notification_v1_send_resumed(notification);
        run();
    }

    void hang() { m_notifier.setEnabled(false); }

    QByteArray requests; // "1" for each request of version 1, "2" for each of version 2

private:
    wl_event_loop *loop() const { return wl_display_get_event_loop(m_display.get()); }
    void run()
    {
        wl_event_loop_dispatch(loop(), 0);
        wl_display_flush_clients(m_display.get());
    }
    static void bindSeat(wl_client *client, void *, uint32_t version, uint32_t id)
    {
        wl_resource_create(client, &wl_seat_interface, int(version), id);
    }
    static void bindNotifier(wl_client *client, void *self, uint32_t version, uint32_t id)
    {
        static constexpr struct ext_idle_notifier_v1_interface kRequests = {destroy, add<'1'>, add<'2'>};
        wl_resource *notifier = wl_resource_create(client, &ext_idle_notifier_v1_interface, int(version), id);
        wl_resource_set_implementation(notifier, &kRequests, self, nullptr);
    }
    template <char version>
    static void add(wl_client *client, wl_resource *notifier, uint32_t id, uint32_t, wl_resource *)
    {
        static constexpr struct ext_idle_notification_v1_interface kRequests = {destroy};
        auto *self = static_cast<FakeCompositor *>(wl_resource_get_user_data(notifier));
        wl_resource *notification = wl_resource_create(client, &ext_idle_notification_v1_interface, 1, id);
        wl_resource_set_implementation(notification, &kRequests, self, forget);
        self->requests += version;
        self->m_notifications.push_back(notification);
    }
    static void destroy(wl_client *, wl_resource *resource) { wl_resource_destroy(resource); }
    static void forget(wl_resource *notification)
    {
        auto &list = static_cast<FakeCompositor *>(wl_resource_get_user_data(notification))->m_notifications;
        list.erase(std::remove(list.begin(), list.end(), notification), list.end());
    }

    std::vector<wl_resource *> m_notifications;
    std::unique_ptr<wl_display, void (*)(wl_display *)> m_display;
    QSocketNotifier m_notifier;
};
