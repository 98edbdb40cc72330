#include "activityserver.h"

#include "tracking/socketowner.h"

#include <QHostAddress>
#include <QTcpSocket>

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

bool ActivityServer::listen(quint16 port, QString *error)
{
    if (m_server.listen(QHostAddress(QHostAddress::LocalHost), port))
        return true;
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
        if (m_clients.size() >= kMaxClients || !isOwnUsers(*client)) {
            client->abort();
            client->deleteLater();
            continue;
        }
        client->setReadBufferSize(kReadBufferSize);
        client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(client, &QTcpSocket::readyRead, client, [client] { client->skip(client->bytesAvailable()); });
        // Otherwise a client that closed its end with a byte unread would keep its place for ever.
        connect(client, &QTcpSocket::readChannelFinished, client, &QTcpSocket::abort, Qt::QueuedConnection);
        connect(client, &QTcpSocket::disconnected, this, [this, client] { forget(client); });
        m_clients.append(client);
        if (client->state() != QAbstractSocket::ConnectedState)
            forget(client);
    }
}

void ActivityServer::forget(QTcpSocket *client)
{
    m_clients.removeOne(client);
    client->deleteLater();
}
