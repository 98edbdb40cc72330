#include "keptsockets.h"

#include <cstdlib>

#include <systemd/sd-daemon.h>

QVector<KeptSocket> takeKeptSockets()
{
    char **names = nullptr;
    const int count = sd_listen_fds_with_names(1, &names);
    QVector<KeptSocket> sockets;
    for (int i = 0; i < count; ++i) {
        sockets.append({names[i], SD_LISTEN_FDS_START + i});
        std::free(names[i]);
    }
    std::free(names);
    return sockets;
}

void keepSocket(const QByteArray &name, int descriptor)
{
    const QByteArray message = "FDSTORE=1\nFDNAME=" + name;
    sd_pid_notify_with_fds(0, 0, message.constData(), &descriptor, 1);
}

void forgetSocket(const QByteArray &name)
{
    const QByteArray message = "FDSTOREREMOVE=1\nFDNAME=" + name;
    sd_notify(0, message.constData());
}
