#pragma once

#include <QObject>
#include <QTcpServer>
#include <QVector>

class QTcpSocket;

// Reports to the TCP clients of this process's user that the user was active: one byte for each
// announcement. Never waits for a client, and holds at most one unsent byte for it however slow it is.
class ActivityServer final : public QObject
{
    Q_OBJECT

public:
    // Clients beyond this number are turned away, and so are other users' at once.
    static constexpr int kMaxClients = 64;

    explicit ActivityServer(QObject *parent = nullptr);
    ~ActivityServer() override;
    Q_DISABLE_COPY_MOVE(ActivityServer)

    // Listens on 127.0.0.1; port 0 takes any free one. False, with *error set, when it cannot.
    bool listen(quint16 port, QString *error);
    quint16 port() const;
    int clientCount() const;

    void announce();

private:
    void acceptClients();
    void forget(QTcpSocket *client);

    QTcpServer m_server;
    QVector<QTcpSocket *> m_clients;
};
