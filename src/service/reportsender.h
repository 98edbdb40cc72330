#pragma once

#include "service/minutejournal.h"
#include "storage/activitycache.h"
#include "storage/unwrittenrecords.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <functional>
#include <optional>

class NotificationSink;
class QImage;
class QNetworkReply;
class ServiceConnection;
struct JournaledMinute;
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

    // Storage, connection, journal and sink must outlive the sender. The subject is looked up
    // whenever it is needed.
    ReportSender(StorageFolder *storage, ServiceConnection *service, MinuteJournal *journal,
                 NotificationSink *notifications, const Subject &subject, QObject *parent);

    // Loads the cache of the current user, even if it is loaded already.
    void loadCache();
    // Writes the reports that the disk has refused so far, if it takes them now.
    void storeUnwritten();

    // Reports posted and not answered yet.
    int pendingActivityRequests() const { return m_underWay.size(); }
    // The current user's reports that have not been accepted, on the disk and not.
    ActivityCache::Backlog backlog() const;

    // Where a minute's report goes.
    QString reportUrl() const;
    // The moment is that of its line in the journal.
    void sendTaskActivity(int activeSlices, const QDateTime &moment);
    void sendScreenshotActivity(const QImage &image);
    void sendCachedActivity();
    void processSendActivityReply(QNetworkReply *reply);

    // The current user's records that have not been accepted, by the second in which they were made.
    struct Waiting
    {
        QMultiHash<QString, QString> onDisk; // paths
        QMultiHash<QString, QByteArray> inMemory;
    };
    // None when the folder cannot be read.
    std::optional<Waiting> waiting() const;
    static MinuteName nameOf(const QVariantMap &record);
    // Gives a minute of the current user its record again. False when the disk refuses it.
    bool restore(const JournaledMinute &minute);

private:
    QString cacheOf(const QString &login) const;
    bool prepareCache();
    void sweepPictures();

    QVariantMap commonFields() const;
    QString saveActivityData(const QString &url, const QVariantMap &body, const QDateTime &moment);
    bool store(const UnwrittenRecords::Record &record);
    void keepUnwritten(const UnwrittenRecords::Record &record, const QString &reason);

    void sendActivityFile(const QString &path);
    QVariantMap prepareDataForExport(const QVariantMap &record, const QString &folder) const;
    bool isOwnScreenshot(const QString &path) const;
    bool isAccepted(const QNetworkReply &reply, const QByteArray &body) const;
    void removeCachedActivityFile(const QString &path, const QString &picture);
    void continueSending();

    StorageFolder *m_storage;
    ServiceConnection *m_service;
    MinuteJournal *m_journal;
    NotificationSink *m_notifications;
    Subject m_subject;
    ActivityCache m_cache;
    QTimer m_sweepTimer;
    struct UnderWay
    {
        MinuteName name;
        bool isMinute = false;
        QString picture; // of a screenshot
    };
    QHash<QString, UnderWay> m_underWay; // by the path of the record
    // Refused by the disk; written as soon as it takes them.
    UnwrittenRecords m_unwritten;
    bool m_hasReportedUnwritten = false;
};
