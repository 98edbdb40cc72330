#pragma once

#include "model/records.h"
#include "service/requestbody.h"

#include <QObject>
#include <QQueue>
#include <QSet>
#include <QStringList>

#include <functional>

class NotificationSink;
class QNetworkReply;
class ServiceConnection;

// Fetches the details of tasks: of one at once, of many a few at a time.
class DetailFetcher final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DetailFetcher)

public:
    using User = std::function<Credentials()>;

    // Connection and sink must outlive the fetcher. The user is looked up for each request.
    DetailFetcher(ServiceConnection *service, NotificationSink *notifications, const User &user,
                  QObject *parent);

    void requestTaskInfo(const QString &taskId);
    void processRequestTaskInfo(QNetworkReply *reply);

    // Queues the tasks of a list that have no details; more than limit() of them are not
    // needed. What finds no place in the queue is queued with the lists that follow.
    void prefetch(const QStringList &taskIds);
    int limit() const;
    // A request has ended, with or without details.
    void finish(const QString &taskId);
    // Drops the queue, as for another user.
    void clear();

signals:
    void fetched(const TaskInfo &taskInfo);

private:
    int room() const;
    void fill();

    ServiceConnection *m_service;
    NotificationSink *m_notifications;
    User m_user;
    QQueue<QString> m_order;
    QSet<QString> m_queued; // what m_order holds
    QSet<QString> m_underWay;
    int m_queuedBefore = 0; // tasks without details that earlier lists have queued
};
