#pragma once

#include <QObject>
#include <QTcpServer>
#include <QVector>

struct KeptSocket;
class QTcpSocket;

// Reports activity to the TCP clients of this process's user: one byte for each announcement.
// Never waits for a client, and holds at most one unsent byte for it.
class ActivityServer final : public QObject
{
    Q_OBJECT

public:
    // Further clients are rejected, and those of other users always.
    static constexpr int kMaxClients = 64;

    explicit ActivityServer(QObject *parent = nullptr);
    ~ActivityServer() override;
    Q_DISABLE_COPY_MOVE(ActivityServer)

    // Goes on with the connections that a former run of this program left, and with its listening socket
    // if that has the port; closes whatever else is among them. To be called before listen().
    void restore(quint16 port, const QVector<KeptSocket> &sockets);
    // Listens on 127.0.0.1; port 0 means any free one. Returns false, with *error set, on failure.
    bool listen(quint16 port, QString *error);
    quint16 port() const;
    int clientCount() const;

    void announce();

private:
    void acceptClients();
    bool admit(QTcpSocket *client);
    void forget(QTcpSocket *client);

    QTcpServer m_server;
    QVector<QTcpSocket *> m_clients;
};
