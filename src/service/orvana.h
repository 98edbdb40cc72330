#pragma once

#include "base/notificationsink.h"
#include "model/records.h"
#include "service/detailfetcher.h"
#include "service/minutejournal.h"
#include "service/reportsender.h"
#include "service/serviceconnection.h"
#include "storage/storagefolder.h"

#include <QDate>
#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QSslError>
#include <QTime>

class MinuteRecovery;
struct TeamTasks;

// The one way to the task service. Requests are fired and forgotten; every reply
// arrives in replyFinished, which dispatches it by its property "stage". Failures reach
// the user as error codes, popups and log lines.
class Orvana final : public QObject, public ServiceCodes
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Orvana)

public:
    class Session;

    // The sink must outlive the client.
    explicit Orvana(NotificationSink *notifications, QObject *parent = nullptr);
    // Saves the session unless clean mode is on.
    ~Orvana() override;

    StorageFolder &storage() { return m_storage; }
    QDir storageDirectory() const { return m_storage.dir(); }
    Session *session() const { return m_session; }
    MinuteJournal &journal() { return *m_journal; }
    // Writes the session, and the reports that the disk has refused so far; nothing in
    // clean mode.
    void save();
    // Clean mode: nothing is written any more, and the session is not written back at the end.
    void setCleanMode(bool clean);
    static void removeDir(const QString &path) { StorageFolder::removeDir(path); }

    void openUrl(const QString &url);
    void openTaskUrl(const QString &taskId);
    void changeTask(const QString &teamId, const QString &taskId);
    QString serviceUrl() const { return m_service->url(); }
    // Reports posted and not answered yet.
    int pendingActivityRequests() const { return m_reports->pendingActivityRequests(); }
    // This user's reports that the service has not accepted yet, on the disk and not.
    ActivityCache::Backlog backlog() const { return m_reports->backlog(); }

    void requestCheckLogin(const QString &login, const QString &password);
    void requestTeamsAndTasks();
    void requestCheckUpdate();
    void requestDeadlineChange(const QDate &date, const QString &message, const QTime &time);
    void requestTaskInfo(const QString &taskId) { m_details->requestTaskInfo(taskId); }
    // The day's totals replace the session's counters.
    void requestTimeSync(const QString &taskId);

    // A minute is over, before it is counted or reported; activeSlices is 0 to 10.
    void journalMinute(int activeSlices);
    // Reports the minute that was journaled last, or else one that is over now. The report is on
    // the disk before it is sent.
    void sendTaskActivity(int activeSlices);
    void sendScreenshotActivity(const QImage &image) { m_reports->sendScreenshotActivity(image); }
    // Sends one waiting record.
    void sendCachedActivity() { m_reports->sendCachedActivity(); }

    void notify(const QString &text, NotificationType type = Plain, const QString &taskId = QString()) const
    {
        m_notifications->addNotification(text, type, taskId);
    }

    // False, after error(int), when the body is one of the service's error answers.
    bool validateReply(const QByteArray &body) { return m_service->validateReply(body); }

public slots:
    // The sender is a push button with the property "task_id".
    void openTaskUrl();
    void replyFinished(QNetworkReply *reply);
    void sslErrorHandler(QNetworkReply *qnr, const QList<QSslError> &errors);
    void networkAccessibleChangedHandler(QNetworkAccessManager::NetworkAccessibility) { }

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
    void loadReports();
    void checkOnlineState(int code);
    void processCheckLoginReply(QNetworkReply *reply);
    void processTeamsAndTasksReply(QNetworkReply *reply);
    QList<TeamTasks> teamsAndTasksOf(const QByteArray &body);
    void parseTeamsAndTasksReply(const QByteArray &body);
    void processCheckUpdateReply(QNetworkReply *reply);
    void processRequestDeadlineChange(QNetworkReply *reply);
    void processRequestTimeSync(QNetworkReply *reply);

    NotificationSink *m_notifications;
    StorageFolder m_storage;
    MinuteJournal *m_journal;
    Session *m_session = nullptr;
    Session *m_loginAttempt = nullptr;
    int m_loginAttempts = 0;
    int m_listsRequested = 0;
    int m_listTaken = 0; // its number among those requested
    ServiceConnection *m_service;
    ReportSender *m_reports;
    DetailFetcher *m_details;
    MinuteRecovery *m_recovery;
    QDateTime m_minuteOver; // of a minute that was journaled and not yet reported
    bool m_cleanMode = false;
};
