#pragma once

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>

// Answers every request over plain HTTP with the bytes it was given, and keeps the
// requests.
class ScriptedServer final : public QTcpServer
{
    Q_DISABLE_COPY_MOVE(ScriptedServer)

public:
    enum class Then { Close, Reset, Wait, Pour };

    ScriptedServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *peer = nextPendingConnection()) {
                connect(peer, &QTcpSocket::disconnected, peer, &QObject::deleteLater);
                connect(peer, &QTcpSocket::readyRead, this, [this, peer] { read(peer); });
            }
        });
        listen(QHostAddress::LocalHost);
    }

    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(serverPort()); }
    void set(const QByteArray &reply, Then then = Then::Close)
    {
        m_reply = reply;
        m_then = then;
    }
    // A whole reply with that body.
    static QByteArray ok(const QByteArray &body, const QByteArray &headers = QByteArray())
    {
        return "HTTP/1.1 200 OK\r\nConnection: close\r\n" + headers
            + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    }

    QList<QByteArray> requests;

private:
    void read(QTcpSocket *peer)
    {
        const QByteArray sofar = peer->peek(peer->bytesAvailable());
        const int end = sofar.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const int field = sofar.left(end).toLower().indexOf("content-length:");
        const int length =
            field < 0 ? 0 : sofar.mid(field + 15, sofar.indexOf('\r', field) - field - 15).toInt();
        if (sofar.size() < end + 4 + length)
            return;
        requests.append(peer->readAll());
        peer->write(m_reply);
        if (m_then == Then::Reset)
            peer->abort();
        else if (m_then == Then::Close)
            peer->disconnectFromHost();
        else if (m_then == Then::Pour)
            connect(peer, &QTcpSocket::bytesWritten, peer, [peer] {
                if (peer->bytesToWrite() == 0)
                    peer->write(QByteArray(1024 * 1024, 'x'));
            });
    }

    QByteArray m_reply;
    Then m_then = Then::Close;
};
