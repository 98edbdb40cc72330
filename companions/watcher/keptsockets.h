#pragma once

#include <QByteArray>
#include <QVector>

// Sockets that systemd keeps for the next start of this program, however it ends. Without systemd
// nothing is kept.
struct KeptSocket
{
    QByteArray name;
    int descriptor; // owned by whoever has the struct
};

// What the last run left; empty at further calls.
QVector<KeptSocket> takeKeptSockets();
// Keeps a duplicate. The connection ends only when both are closed: see forgetSocket().
void keepSocket(const QByteArray &name, int descriptor);
// Drops all with this name.
void forgetSocket(const QByteArray &name);
