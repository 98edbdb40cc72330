#include "tracking/socketowner.h"

#include <QFile>
#include <QHostAddress>
#include <QtEndian>

namespace {

// As the kernel writes the states.
constexpr char kEstablished[] = "01";
constexpr char kListening[] = "0A";

// Columns of a line.
enum Column { Local = 1, Remote = 2, State = 3, User = 7 };

constexpr qint64 kMaxLineLength = 512;

// Calls visit(local, remote, state, user) for each socket.
template <typename Visit>
void forEachSocket(const Visit &visit)
{
    for (const QString &path : {QStringLiteral("/proc/net/tcp"), QStringLiteral("/proc/net/tcp6")}) {
        QFile table(path);
        if (!table.open(QIODevice::ReadOnly))
            continue;
        for (QByteArray line = table.readLine(kMaxLineLength); !line.isEmpty();
             line = table.readLine(kMaxLineLength)) {
            const QList<QByteArray> columns = line.simplified().split(' ');
            bool isNumber = false;
            const uid_t user = columns.value(User).toUInt(&isNumber);
            if (isNumber)
                visit(columns.at(Local), columns.at(Remote), columns.at(State), user);
        }
    }
}

// An address is written as 32-bit words of the machine's byte order.
QByteArray word(quint32 networkOrder)
{
    return QByteArray::number(networkOrder, 16).rightJustified(8, '0').toUpper();
}

// Both ways in which an IPv4 address can be listed: as it is, and mapped into IPv6.
QVector<QByteArray> endpoints(const QHostAddress &address, quint16 port)
{
    const QByteArray ipv4 = word(qToBigEndian(address.toIPv4Address())) + ':'
        + QByteArray::number(port, 16).rightJustified(4, '0').toUpper();
    return {ipv4, word(0) + word(0) + word(qToBigEndian(0xffffU)) + ipv4};
}

} // namespace

std::optional<uid_t> connectionOwner(const QHostAddress &local, quint16 localPort, const QHostAddress &remote,
                                     quint16 remotePort)
{
    // In other states a socket may have lost its owner, and is listed as root's.
    const auto locals = endpoints(local, localPort);
    const auto remotes = endpoints(remote, remotePort);
    std::optional<uid_t> owner;
    forEachSocket([&](const QByteArray &from, const QByteArray &to, const QByteArray &state, uid_t user) {
        if (state == kEstablished && locals.contains(from) && remotes.contains(to))
            owner = user;
    });
    return owner;
}

QVector<uid_t> listenerOwners(const QHostAddress &address, quint16 port)
{
    const auto ipv4 = endpoints(address, port) + endpoints(QHostAddress(QHostAddress::AnyIPv4), port);
    const QByteArray ipv6 =
        word(0) + word(0) + word(0) + endpoints(QHostAddress(QHostAddress::AnyIPv4), port).first();
    QVector<uid_t> owners;
    QVector<uid_t> ipv6Owners;
    forEachSocket([&](const QByteArray &at, const QByteArray &, const QByteArray &state, uid_t user) {
        if (state != kListening)
            return;
        if (ipv4.contains(at))
            owners.append(user);
        else if (at == ipv6)
            ipv6Owners.append(user);
    });
    // Next to a listener for IPv4, the port's other listener can only be one for IPv6 alone.
    return owners.isEmpty() ? ipv6Owners : owners;
}
