#pragma once

#include "base/notificationtype.h"
#include "model/records.h"
#include "storage/activitycache.h"
#include "storage/storagefolder.h"

#include <QDate>
#include <QDir>
#include <QImage>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QPair>
#include <QQueue>
#include <QSet>
#include <QSslError>
#include <QTime>
#include <QTimer>
#include <QVariantMap>
#include <QVector>

class NotificationSink;
class QFile;

using RequestFields = QVector<QPair<QString, QString>>;

// The one way to the task service. Requests are fired and forgotten; every reply
// comes back through replyFinished, which tells the kinds apart by the reply's
// property "stage". Failures reach the user as error codes, popups and log lines.
class Orvana final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Orvana)

public:
    class Session;

    enum Stage {
        CheckLogin = 1,
        TeamsAndTasks = 2,
        CheckUpdate = 3,
        SendActivity = 4,
        DeadlineChange = 5,
        TaskDetails = 6,
        TimeSync = 7
    };

    // Codes of error(int).
    enum Error { InvalidCredentials = 0, HtmlReply = 4, DatabaseDown = 5, ServiceError = 6 };

    // What the user is to be told goes to the sink, which must outlive the client.
    explicit Orvana(NotificationSink *notifications, QObject *parent = nullptr);
    // Saves the session unless clean mode is on.
    ~Orvana() override;

    StorageFolder &storage() { return m_storage; }
    QDir storageDirectory() const { return m_storage.dir(); }
    Session *session() const { return m_session; }
    // Writes the session, and the reports that the disk has refused so far; nothing in
    // clean mode.
    void save();
    // Clean mode: the session is not written back at the end.
    void setCleanMode(bool clean) { m_cleanMode = clean; }
    static void removeDir(const QString &path) { StorageFolder::removeDir(path); }
    // Deletes what older versions left in the storage directory.
    void removeDeprecatedFiles();

    void openUrl(const QString &url);
    void openTaskUrl(const QString &taskId);
    void changeTask(const QString &teamId, const QString &taskId);
    QString serviceUrl() const { return m_serviceUrl; }
    // Reports under way: posted and not yet answered.
    int pendingActivityRequests() const { return m_pendingActivity; }
    // This user's reports that the service has not accepted yet, on the disk and not.
    ActivityCache::Backlog backlog() const;

    void requestCheckLogin(const QString &login, const QString &password);
    void requestTeamsAndTasks();
    void requestCheckUpdate();
    void requestDeadlineChange(const QDate &date, const QString &message, const QTime &time);
    void requestTaskInfo(const QString &taskId);
    // The day's totals replace the session's counters.
    void requestTimeSync(const QString &taskId);

    // Reports one minute; activeSlices is 0 to 10. The report is on the disk
    // before it is sent.
    void sendTaskActivity(int activeSlices);
    void sendScreenshotActivity(const QImage &image);
    // Sends one waiting record.
    void sendCachedActivity();

    void notify(const QString &text, NotificationType type = Plain, const QString &taskId = QString()) const;
    NotificationSink *notifications() const { return m_notifications; }

    // False, after telling the listeners of error(int), when the body is one of
    // the service's error answers.
    bool validateReply(const QByteArray &body);

public slots:
    // The sender is a push button with the property "task_id".
    void openTaskUrl();
    void replyFinished(QNetworkReply *reply);
    void sslErrorHandler(QNetworkReply *qnr, const QList<QSslError> &errors);
    void networkAccessibleChangedHandler(QNetworkAccessManager::NetworkAccessibility networkAccessibility);

signals:
    void teamChanged(const QString &teamId);
    void error(int code);
    void loginOk();
    void onlineChanged(const QString &reason);
    void updateAvailable(bool isAvailable);
    // The service's description of newer versions, as it came.
    void updateDescriptionReceived(const QByteArray &body);
    void taskInfoUpdated(const TaskInfo &taskInfo);
    // A login check got no answer at all; the credentials were not judged.
    void loginUnanswered();

private:
    struct UnwrittenRecord
    {
        QString login;
        QDateTime createdAt;
        QByteArray bytes;
    };

    void checkOnlineState(int code);
    void handleReply(int stage, QNetworkReply *reply);
    void handleTransportError(int stage, QNetworkReply *reply);
    QNetworkReply *get(Stage stage, const QString &path, const RequestFields &fields);
    QNetworkReply *post(Stage stage, const QUrl &url, const QByteArray &body);
    QNetworkAccessManager *network();
    RequestFields credentials(const Session &session) const;
    void limitReply(QNetworkReply *reply);
    void forgetBrokenConnections();

    void processCheckLoginReply(QNetworkReply *reply);
    void processTeamsAndTasksReply(QNetworkReply *reply);
    void parseTeamsAndTasksReply(const QByteArray &body);
    void processCheckUpdateReply(QNetworkReply *reply);
    void processSendActivityReply(QNetworkReply *reply);
    void processRequestDeadlineChange(QNetworkReply *reply);
    void processRequestTaskInfo(QNetworkReply *reply);
    void processRequestTimeSync(QNetworkReply *reply);

    void prefetchTaskInfo(const QString &taskId);
    void continuePrefetch();
    void prefetchDone(const QString &taskId);
    void forgetPrefetch();

    QString cacheOf(const QString &login) const;
    bool prepareCache();
    QVariantMap newReport() const;
    QFile *saveActivityData(const QVariant &url, const QVariant &body);
    void storeUnwritten();
    bool store(const UnwrittenRecord &record);
    void keepUnwritten(const QDateTime &createdAt, const QByteArray &record, const QString &reason);
    void sendActivityFile(QFile *file);
    void removeCachedActivityFile(QFile *file);
    void removeRecord(const QString &path, const QString &picture);
    void continueSending();
    void sweepPictures();
    void activityNotSent(const QByteArray &body);
    bool isOwnScreenshot(const QString &path) const;
    QVariantMap actualizeActivityTimestamp(const QVariantMap &record) const;
    QVariantMap prepareDataForExport(const QVariantMap &record) const;
    bool isForCurrentUser(int stage, const QNetworkReply *reply) const;

    NotificationSink *m_notifications;
    StorageFolder m_storage;
    Session *m_session = nullptr;
    Session *m_loginAttempt = nullptr;
    // Made for the first request: it takes longer than all the rest of the client.
    QNetworkAccessManager *m_network = nullptr;
    int m_pendingActivity = 0;
    bool m_cleanMode = false;

    QString m_serviceUrl;
    bool m_verifyCertificates = false;
    ActivityCache m_cache;
    QTimer m_sweepTimer;
    // Reports that the disk refused; written as soon as it takes them.
    QVector<UnwrittenRecord> m_unwritten;
    bool m_toldUnwritten = false;
    int m_loginAttempts = 0;
    bool m_toldCertificate = false;
    bool m_hasBrokenConnections = false;
    QQueue<QString> m_prefetchOrder;
    QSet<QString> m_prefetchQueue; // what m_prefetchOrder holds
    QSet<QString> m_prefetching;
    int m_prefetchedBefore = 0; // tasks without details that earlier lists asked for
};
