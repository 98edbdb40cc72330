#pragma once

#include <QObject>

#include <map>
#include <memory>

struct wl_display;
struct wl_interface;
struct wl_proxy;
struct wl_registry;
class QSocketNotifier;

struct DestroyProxy
{
    void operator()(wl_proxy *proxy) const;
};
// To be destroyed before its connection.
using WaylandProxy = std::unique_ptr<wl_proxy, DestroyProxy>;

// A connection to the compositor of the environment (WAYLAND_DISPLAY), read in the event loop.
class WaylandConnection final : public QObject
{
    Q_OBJECT

public:
    // Null when no compositor answers within two seconds.
    static std::unique_ptr<WaylandConnection> open();
    ~WaylandConnection() override;
    Q_DISABLE_COPY_MOVE(WaylandConnection)

    // 0 when the compositor does not offer it.
    quint32 versionOf(const wl_interface &interface) const;
    // Null when the compositor does not offer it. A newer version than the interface has is not used.
    WaylandProxy bind(const wl_interface &interface);
    WaylandProxy bindGlobal(quint32 name, const wl_interface &interface);
    // The names of all globals of this kind.
    QVector<quint32> globals(const wl_interface &interface) const;
    void flush();
    // To be emitted as answered(), after the events that the compositor has sent before. While the last
    // request waits, nothing more is requested.
    void requestAnswer();

signals:
    void answered();
    void globalAdded(quint32 name, const QByteArray &interface);
    void globalRemoved(quint32 name);
    // Emitted at most once, and last.
    void lost();

private:
    struct Global
    {
        QByteArray interface;
        quint32 version;
    };
    struct Callbacks;
    explicit WaylandConnection(wl_display *display);
    bool roundtrip();
    void readEvents();

    wl_display *m_display; // owned
    WaylandProxy m_registry;
    WaylandProxy m_question; // without an answer yet
    std::map<quint32, Global> m_globals;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
