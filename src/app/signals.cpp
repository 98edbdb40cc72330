#include "app/signals.h"

#include "base/log.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>

#include <sys/socket.h>
#include <unistd.h>

namespace {

volatile int s_wakeup = -1;
volatile std::sig_atomic_t s_areReceived = 0;

void wake(int)
{
    const int before = errno;
    s_areReceived = 1;
    const char byte = 1;
    if (write(s_wakeup, &byte, sizeof byte) < 0)
        errno = before;
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent)
    : QObject(parent)
{
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, m_sockets) != 0)
        return;
    s_wakeup = m_sockets[0];
    auto *notifier = new QSocketNotifier(m_sockets[1], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        while (read(m_sockets[1], &byte, sizeof byte) > 0) { }
        qCDebug(lcApp) << "Asked to terminate";
        QCoreApplication::quit();
    });
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        // It stays ignored if it was ignored at the start, as by nohup.
        if (std::signal(number, wake) == SIG_IGN && number == SIGHUP)
            std::signal(number, SIG_IGN);
    }
}

bool TerminationSignals::areReceived()
{
    return s_areReceived != 0;
}

TerminationSignals::~TerminationSignals()
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        std::signal(number, SIG_DFL);
    s_wakeup = -1;
    for (const int socket : m_sockets) {
        if (socket >= 0)
            close(socket);
    }
}
