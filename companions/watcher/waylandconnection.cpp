#include "waylandconnection.h"

#include <QDeadlineTimer>
#include <QSocketNotifier>
#include <QVector>

#include <algorithm>
#include <chrono>

#include <poll.h>
#include <wayland-client.h>

namespace {

constexpr std::chrono::seconds kPatience{2};

void ignoreMessage(const char *, va_list) { }

} // namespace

void DestroyProxy::operator()(wl_proxy *proxy) const
{
    wl_proxy_destroy(proxy);
}

struct WaylandConnection::Callbacks
{
    static void added(void *data, wl_registry *, quint32 name, const char *interface, quint32 version)
    {
        auto *self = static_cast<WaylandConnection *>(data);
        self->m_globals[name] = {interface, version};
        emit self->globalAdded(name, interface);
    }
    static void removed(void *data, wl_registry *, quint32 name)
    {
        auto *self = static_cast<WaylandConnection *>(data);
        self->m_globals.erase(name);
        emit self->globalRemoved(name);
    }
    static void answered(void *data, wl_callback *, quint32)
    {
        auto *self = static_cast<WaylandConnection *>(data);
        self->m_question.reset();
        emit self->answered();
    }
    static constexpr wl_callback_listener question = {answered};
    static constexpr wl_registry_listener registry = {added, removed};
};

std::unique_ptr<WaylandConnection> WaylandConnection::open()
{
    // What goes wrong is said in the program's own words.
    wl_log_set_handler_client(ignoreMessage);
    wl_display *display = wl_display_connect(nullptr);
    if (!display)
        return nullptr;
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display));
    return connection->roundtrip() ? std::move(connection) : nullptr;
}

WaylandConnection::WaylandConnection(wl_display *display)
    : m_display(display)
    , m_notifier(std::make_unique<QSocketNotifier>(wl_display_get_fd(display), QSocketNotifier::Read))
{
    wl_registry *registry = wl_display_get_registry(display);
    m_registry.reset(reinterpret_cast<wl_proxy *>(registry));
    wl_registry_add_listener(registry, &Callbacks::registry, this);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &WaylandConnection::readEvents);
}

WaylandConnection::~WaylandConnection()
{
    m_notifier.reset();
    m_question.reset();
    m_registry.reset();
    wl_display_disconnect(m_display);
}

quint32 WaylandConnection::versionOf(const wl_interface &interface) const
{
    for (const auto &[name, global] : m_globals) {
        if (global.interface == interface.name)
            return global.version;
    }
    return 0;
}

QVector<quint32> WaylandConnection::globals(const wl_interface &interface) const
{
    QVector<quint32> names;
    for (const auto &[name, global] : m_globals) {
        if (global.interface == interface.name)
            names.append(name);
    }
    return names;
}

WaylandProxy WaylandConnection::bind(const wl_interface &interface)
{
    const QVector<quint32> names = globals(interface);
    return names.isEmpty() ? nullptr : bindGlobal(names.first(), interface);
}

WaylandProxy WaylandConnection::bindGlobal(quint32 name, const wl_interface &interface)
{
    const quint32 version = std::min(m_globals[name].version, static_cast<quint32>(interface.version));
    return WaylandProxy(static_cast<wl_proxy *>(
        wl_registry_bind(reinterpret_cast<wl_registry *>(m_registry.get()), name, &interface, version)));
}

// What does not fit into the socket is sent after the next event.
void WaylandConnection::flush()
{
    wl_display_flush(m_display);
}

void WaylandConnection::requestAnswer()
{
    if (m_question)
        return;
    wl_callback *callback = wl_display_sync(m_display);
    m_question.reset(reinterpret_cast<wl_proxy *>(callback));
    wl_callback_add_listener(callback, &Callbacks::question, this);
    flush();
}

// Unlike wl_display_roundtrip() it does not wait for ever.
bool WaylandConnection::roundtrip()
{
    requestAnswer();
    const QDeadlineTimer deadline(kPatience);
    while (m_question) {
        while (wl_display_prepare_read(m_display) != 0) {
            if (wl_display_dispatch_pending(m_display) < 0)
                return false;
        }
        flush();
        pollfd readable = {wl_display_get_fd(m_display), POLLIN, 0};
        if (::poll(&readable, 1, static_cast<int>(deadline.remainingTime())) <= 0) {
            wl_display_cancel_read(m_display);
            return false;
        }
        if (wl_display_read_events(m_display) < 0 || wl_display_dispatch_pending(m_display) < 0)
            return false;
    }
    return true;
}

void WaylandConnection::readEvents()
{
    bool isAlive = true;
    while (isAlive && wl_display_prepare_read(m_display) != 0)
        isAlive = wl_display_dispatch_pending(m_display) >= 0;
    isAlive =
        isAlive && wl_display_read_events(m_display) >= 0 && wl_display_dispatch_pending(m_display) >= 0;
    flush();
    if (!isAlive) {
        m_notifier->setEnabled(false);
        emit lost();
    }
}
