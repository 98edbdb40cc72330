#include "tracking/socketowner.h"

#include <QByteArray>
#include <QtEndian>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

constexpr quint32 kAnyAddress = 0;

// One line of the kernel's lists; ends and state as the kernel writes them.
struct Socket
{
    char local[64];
    char remote[64];
    char state[8];
    uid_t user;

    bool isEstablished() const { return qstrcmp(state, "01") == 0; }
    bool isListening() const { return qstrcmp(state, "0A") == 0; }
};

template <typename Visit>
void forEachSocket(const Visit &visit)
{
    for (const char *path : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream list(path);
        std::string line;
        Socket socket;
        while (std::getline(list, line)) {
            if (std::sscanf(line.c_str(), "%*s %63s %63s %7s %*s %*s %*s %u", socket.local, socket.remote,
                            socket.state, &socket.user)
                == 4)
                visit(socket);
        }
    }
}

// An address is written as 32-bit words of the machine's byte order.
QByteArray word(quint32 networkOrder)
{
    return QByteArray::number(networkOrder, 16).rightJustified(8, '0').toUpper();
}

// Both ways in which an IPv4 address can be listed: as it is, and mapped into IPv6.
QVector<QByteArray> endpoints(quint32 address, quint16 port)
{
    const QByteArray ipv4 =
        word(qToBigEndian(address)) + ':' + QByteArray::number(port, 16).rightJustified(4, '0').toUpper();
    return {ipv4, word(0) + word(0) + word(qToBigEndian(0xffffU)) + ipv4};
}

bool isOneOf(const QVector<QByteArray> &texts, const char *text)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

} // namespace

std::optional<uid_t> connectionOwner(quint32 local, quint16 localPort, quint32 remote, quint16 remotePort)
{
    // In other states a socket may have lost its owner, and is listed as root's.
    const auto locals = endpoints(local, localPort);
    const auto remotes = endpoints(remote, remotePort);
    std::optional<uid_t> owner;
    // The list can lack a line when it changes while it is read.
    for (int attempt = 0; attempt < 2 && !owner; ++attempt) {
        forEachSocket([&](const Socket &socket) {
            if (socket.isEstablished() && isOneOf(locals, socket.local) && isOneOf(remotes, socket.remote))
                owner = socket.user;
        });
    }
    return owner;
}

QVector<uid_t> listenerOwners(quint32 address, quint16 port)
{
    const auto any = endpoints(kAnyAddress, port);
    const auto ipv4 = endpoints(address, port) + any;
    const QByteArray ipv6 = word(0) + word(0) + word(0) + any.first();
    QVector<uid_t> owners;
    QVector<uid_t> ipv6Owners;
    forEachSocket([&](const Socket &socket) {
        if (!socket.isListening())
            return;
        if (isOneOf(ipv4, socket.local))
            owners.append(socket.user);
        else if (ipv6 == socket.local)
            ipv6Owners.append(socket.user);
    });
    // Next to a listener for IPv4, the port's other listener can only be one for IPv6 alone.
    return owners.isEmpty() ? ipv6Owners : owners;
}
