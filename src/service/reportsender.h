#pragma once

#include "storage/activitycache.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QVariantMap>
#include <QVector>

#include <functional>

class NotificationSink;
class QImage;
class QNetworkReply;
class ServiceConnection;
class StorageFolder;

// Whose report it is, and about what.
struct ReportSubject
{
    QString login;
    QString teamId;
    QString taskId;
};

// Takes each report and screenshot from its creation to the deletion of its record. The record
// is on the disk before it is sent, and stays there until the service has accepted it.
class ReportSender final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ReportSender)

public:
    using Subject = std::function<ReportSubject()>;

    // Storage, connection and sink must outlive the sender. The subject is looked up
    // whenever it is needed.
    ReportSender(StorageFolder *storage, ServiceConnection *service, NotificationSink *notifications,
                 const Subject &subject, QObject *parent);

    // Loads the cache of the current user, even if it is loaded already.
    void loadCache();
    // Writes the reports that the disk has refused so far, if it takes them now.
    void storeUnwritten();

    // Reports posted and not answered yet.
    int pendingActivityRequests() const { return m_underWay.size(); }
    // The current user's reports that have not been accepted, on the disk and not.
    ActivityCache::Backlog backlog() const;

    void sendTaskActivity(int activeSlices);
    void sendScreenshotActivity(const QImage &image);
    void sendCachedActivity();
    void processSendActivityReply(QNetworkReply *reply);

private:
    struct UnwrittenRecord
    {
        QString login;
        QDateTime createdAt;
        QByteArray bytes;
    };

    QString cacheOf(const QString &login) const;
    bool prepareCache();
    void sweepPictures();

    QVariantMap commonFields() const;
    QString saveActivityData(const QVariant &url, const QVariant &body);
    bool store(const UnwrittenRecord &record);
    void keepUnwritten(const UnwrittenRecord &record, const QString &reason);

    void sendActivityFile(const QString &path);
    QVariantMap prepareDataForExport(const QVariantMap &record) const;
    bool isOwnScreenshot(const QString &path) const;
    bool isAccepted(const QNetworkReply &reply, const QByteArray &body) const;
    void removeCachedActivityFile(const QString &path, const QString &picture);
    void continueSending();

    StorageFolder *m_storage;
    ServiceConnection *m_service;
    NotificationSink *m_notifications;
    Subject m_subject;
    ActivityCache m_cache;
    QTimer m_sweepTimer;
    QSet<QString> m_underWay; // paths of records
    // Refused by the disk; written as soon as it takes them.
    QVector<UnwrittenRecord> m_unwritten;
    bool m_hasReportedUnwritten = false;
};
