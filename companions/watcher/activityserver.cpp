#include "activityserver.h"

#include "keptsockets.h"
#include "tracking/socketowner.h"

#include <QHostAddress>
#include <QTcpSocket>

#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace {
constexpr char kActivity = '.';
// What clients send is discarded; at most this many bytes of it are buffered.
constexpr qint64 kReadBufferSize = 512;

bool isOwnUsers(const QTcpSocket &client)
{
    return connectionOwner(client.peerAddress().toIPv4Address(), client.peerPort(),
                           client.localAddress().toIPv4Address(), client.localPort())
        == geteuid();
}

QByteArray listenerName()
{
    return QByteArrayLiteral("listener");
}

// Of one connection at a time: all are to the same port.
QByteArray nameOf(const QTcpSocket &client)
{
    return "client-" + QByteArray::number(client.peerAddress().toIPv4Address(), 16) + '-'
        + QByteArray::number(client.peerPort());
}
} // namespace

ActivityServer::ActivityServer(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ActivityServer::acceptClients);
}

ActivityServer::~ActivityServer()
{
    for (QTcpSocket *client : qAsConst(m_clients))
        client->disconnect(this);
}

void ActivityServer::restore(quint16 port, const QVector<KeptSocket> &sockets)
{
    for (const KeptSocket &socket : sockets) {
        const int descriptor = socket.descriptor;
        const bool isListener = socket.name == listenerName();
        bool isUsed = false;
        bool isOpen = true;
        if (sd_is_socket_inet(descriptor, AF_INET, SOCK_STREAM, isListener, isListener ? port : 0) > 0) {
            if (isListener) {
                isUsed = !m_server.isListening() && m_server.setSocketDescriptor(descriptor);
            } else {
                auto *client = new QTcpSocket(this);
                isOpen = !client->setSocketDescriptor(descriptor); // else the client closes it
                isUsed = admit(client);
                if (!isUsed)
                    delete client;
            }
        }
        if (isUsed)
            continue;
        forgetSocket(socket.name);
        if (isOpen)
            ::close(descriptor);
    }
}

bool ActivityServer::listen(quint16 port, QString *error)
{
    if (m_server.isListening())
        return true;
    if (m_server.listen(QHostAddress(QHostAddress::LocalHost), port)) {
        keepSocket(listenerName(), static_cast<int>(m_server.socketDescriptor()));
        return true;
    }
    *error = m_server.serverError() == QAbstractSocket::AddressInUseError
        ? QStringLiteral("порт %1 уже занят: возможно, orvana-watcher уже запущен").arg(port)
        : QStringLiteral("не удалось открыть порт %1: %2").arg(port).arg(m_server.errorString());
    return false;
}

quint16 ActivityServer::port() const
{
    return m_server.serverPort();
}

int ActivityServer::clientCount() const
{
    return m_clients.size();
}

void ActivityServer::announce()
{
    for (QTcpSocket *client : qAsConst(m_clients)) {
        if (client->bytesToWrite() == 0)
            client->write(&kActivity, 1);
    }
}

void ActivityServer::acceptClients()
{
    while (QTcpSocket *client = m_server.nextPendingConnection()) {
        if (admit(client)) {
            keepSocket(nameOf(*client), static_cast<int>(client->socketDescriptor()));
        } else {
            client->abort();
            client->deleteLater();
        }
    }
}

// False: the client has to go.
bool ActivityServer::admit(QTcpSocket *client)
{
    if (m_clients.size() >= kMaxClients || client->state() != QAbstractSocket::ConnectedState
        || !isOwnUsers(*client))
        return false;
    client->setReadBufferSize(kReadBufferSize);
    client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(client, &QTcpSocket::readyRead, client, [client] { client->skip(client->bytesAvailable()); });
    // Otherwise a client that closed its end with a byte unread would keep its place for ever.
    connect(client, &QTcpSocket::readChannelFinished, client, &QTcpSocket::abort, Qt::QueuedConnection);
    connect(client, &QTcpSocket::disconnected, this, [this, client, name = nameOf(*client)] {
        forgetSocket(name);
        forget(client);
    });
    m_clients.append(client);
    return true;
}

void ActivityServer::forget(QTcpSocket *client)
{
    m_clients.removeOne(client);
    client->deleteLater();
}
