#pragma once

#include "base/controlsocket.h"

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include <memory>
#include <utility>

class Orvana;
class QJsonObject;
class QLocalSocket;
class QSocketNotifier;

// Answers scripts and the desktop's own key bindings, which reach this client through a socket in
// the storage folder. Only its user may connect. The client must outlive it.
class ControlServer final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ControlServer)

public:
    // Listens at once where the folder allows it; otherwise the log says why not.
    explicit ControlServer(Orvana *orvana, QObject *parent = nullptr);
    ~ControlServer() override;

signals:
    // Whoever tracks is to obey before the emission returns.
    void startRequested();
    void stopRequested();

private:
    using Reply = std::pair<ControlSocket::Outcome, QString>;

    // Does nothing while the socket is in its place on the disk.
    void listen();
    void close();
    bool isInPlace() const;
    QString open();
    void accept();
    void read(QLocalSocket *peer);
    QByteArray answer(QByteArray request);
    Reply obey(const QByteArray &command);
    Reply start();
    bool isRunning() const;
    QJsonObject state() const;
    QString stateText() const;

    Orvana *m_orvana;
    QByteArray m_path;
    int m_socket = -1;
    ino_t m_inode = 0;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_upkeep{this};
    QString m_problem;
};
