#include "tracking/socketowner.h"

#include <QByteArray>
#include <QtEndian>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

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

// Visits each listener at the port by its address as the lists write it. Returns false where the kernel
// has no such answer.
template <typename Visit>
bool askForListeners(int kernel, quint8 family, quint16 port, const Visit &visit)
{
    struct
    {
        nlmsghdr header;
        inet_diag_req_v2 body;
    } request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.sdiag_family = family;
    request.body.sdiag_protocol = IPPROTO_TCP;
    request.body.idiag_states = 1U << TCP_LISTEN;
    request.body.id.idiag_sport = qToBigEndian(port);
    if (send(kernel, &request, sizeof request, 0) < 0)
        return false;
    alignas(nlmsghdr) char answer[16 * 1024];
    while (true) {
        const ssize_t length = recv(kernel, answer, sizeof answer, 0);
        if (length <= 0)
            return false;
        const char *const end = answer + length;
        const nlmsghdr *each = nullptr;
        for (const char *at = answer; end - at >= NLMSG_HDRLEN; at += NLMSG_ALIGN(each->nlmsg_len)) {
            each = reinterpret_cast<const nlmsghdr *>(at);
            if (each->nlmsg_len < NLMSG_HDRLEN || each->nlmsg_len > end - at)
                return false;
            if (each->nlmsg_type != SOCK_DIAG_BY_FAMILY)
                return each->nlmsg_type == NLMSG_DONE;
            if (each->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
                return false;
            const auto *listener = reinterpret_cast<const inet_diag_msg *>(at + NLMSG_HDRLEN);
            QByteArray address;
            for (int i = 0; i < (family == AF_INET ? 1 : 4); ++i)
                address += word(listener->id.idiag_src[i]);
            visit(address + ':' + QByteArray::number(port, 16).rightJustified(4, '0').toUpper(),
                  listener->idiag_uid);
        }
    }
}

// The kernel's list walks through its table for all connections, empty or not, which takes milliseconds.
template <typename Visit>
bool forEachListener(quint16 port, const Visit &visit)
{
    const int kernel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (kernel < 0)
        return false;
    const timeval patience = {1, 0};
    setsockopt(kernel, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const bool isAnswered =
        askForListeners(kernel, AF_INET, port, visit) && askForListeners(kernel, AF_INET6, port, visit);
    close(kernel);
    return isAnswered;
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
    const auto note = [&](const QByteArray &local, uid_t user) {
        if (isOneOf(ipv4, local.constData()))
            owners.append(user);
        else if (ipv6 == local)
            ipv6Owners.append(user);
    };
    if (!forEachListener(port, note)) {
        owners.clear();
        ipv6Owners.clear();
        forEachSocket([&](const Socket &socket) {
            if (socket.isListening())
                note(socket.local, socket.user);
        });
    }
    // Next to a listener for IPv4, the port's other listener can only be one for IPv6 alone.
    return owners.isEmpty() ? ipv6Owners : owners;
}
