#pragma once

#include "base/notificationsink.h"

#include <QByteArray>
#include <QNetworkReply>
#include <QString>

// Replies that look like the service's: Cyrillic titles, dates, numbers and
// escapes, the same in every run.

struct ListShape
{
    int teams = 1;
    int tasksPerTeam = 1;
    // Every n-th task has another deadline or comment than in the same shape
    // without it; 0: none.
    int changeEvery = 0;
    // Every n-th task is missing; 0: none.
    int goneEvery = 0;
    int firstId = 1;
    // Each team lists the same tasks.
    bool isShared = false;
};

QByteArray listBody(const ListShape &shape);

// A body of about so many bytes.
QByteArray listBodyOfSize(int bytes);

// The details of one task, without what is around them in a reply.
QByteArray taskInfoBody(int id);

// What a notice costs is not what is measured.
class Silence final : public NotificationSink
{
    Q_DISABLE_COPY_MOVE(Silence)

public:
    Silence() = default;

    void addNotification(const QString &, NotificationType, const QString &) override { }
    void clearForNextUser() override { }
};

// A finished reply as the network hands it over.
class ReadyReply final : public QNetworkReply
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ReadyReply)

public:
    ReadyReply(int stage, const QByteArray &body, QObject *parent = nullptr);

    void abort() override { }
    qint64 bytesAvailable() const override
    {
        return m_body.size() - m_read + QNetworkReply::bytesAvailable();
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override;

private:
    QByteArray m_body;
    qint64 m_read = 0;
};
