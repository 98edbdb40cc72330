#pragma once

#include <QVector>
#include <QtGlobal>

#include <optional>

#include <sys/types.h>

// The users behind the TCP sockets of this machine, as the kernel lists them. Only IPv4 connections,
// whichever family their sockets were made for; addresses are in the machine's byte order.

// Reads the whole list, a matter of milliseconds. The user of the socket at `local` that is connected to
// `remote`. Nothing when there is none, or its owner has closed it.
std::optional<uid_t> connectionOwner(quint32 local, quint16 localPort, quint32 remote, quint16 remotePort);

// The users that accept connections to `address`, each as often as it has listeners there. Empty when
// nobody does, or the list cannot be read.
QVector<uid_t> listenerOwners(quint32 address, quint16 port);
