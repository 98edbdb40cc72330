#pragma once

#include <QVector>

#include <optional>

#include <sys/types.h>

class QHostAddress;

// The users behind the TCP sockets of this machine, as the kernel lists them. Only IPv4 connections,
// whichever family their sockets were made for. Reads the whole list: a matter of milliseconds.

// The user of the socket at `local` that is connected to `remote`. Nothing when there is none, or its
// owner has closed it.
std::optional<uid_t> connectionOwner(const QHostAddress &local, quint16 localPort, const QHostAddress &remote,
                                     quint16 remotePort);

// The users that accept connections to `address`, each as often as it has listeners there. Empty when
// nobody does, or the list cannot be read.
QVector<uid_t> listenerOwners(const QHostAddress &address, quint16 port);
