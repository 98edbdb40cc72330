#pragma once

#include "service/requestbody.h"

#include <QList>
#include <QObject>
#include <QString>

class NotificationSink;
class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;
class QSslError;
class QUrl;

// Numbers that requests, their replies and listeners share.
struct ServiceCodes
{
    // The kind of a request, in its reply's property "stage".
    enum Stage {
        CheckLogin = 1,
        TeamsAndTasks = 2,
        CheckUpdate = 3,
        SendActivity = 4,
        DeadlineChange = 5,
        TaskDetails = 6,
        TimeSync = 7
    };

    // Codes of Orvana::error(int).
    enum Error { InvalidCredentials = 0, HtmlReply = 4, DatabaseDown = 5, ServiceError = 6 };
};

// Sends requests to the task service and recognises its error answers. A request waits
// without limit; its reply arrives with finished() and is to be deleted by whoever gets it.
class ServiceConnection final : public QObject, public ServiceCodes
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ServiceConnection)

public:
    // The sink must outlive the connection.
    ServiceConnection(NotificationSink *notifications, QObject *parent);

    // Base URL, without a slash at its end.
    QString url() const { return m_url; }

    QNetworkReply *get(Stage stage, const QString &path, const RequestFields &fields = {});
    // On behalf of a user; the reply remembers which.
    QNetworkReply *get(Stage stage, const QString &path, const Credentials &user,
                       const RequestFields &fields = {});
    // Goes out at most once.
    QNetworkReply *post(Stage stage, const QUrl &url, const QByteArray &body);
    // Makes Qt try when it believes that there is no network.
    void ensureAccessible();

    // False for whatever did not come from the service itself, redirections included, and for
    // what cannot be unpacked.
    static bool isAnswer(const QNetworkReply &reply);
    // The body of an answer, unpacked. Takes it from the reply: to be called once.
    static QByteArray takeBody(QNetworkReply *reply);
    // False when the reply belongs to another user's request.
    static bool isFor(const QString &login, const QNetworkReply &reply);
    // False, after refused(), when the body is one of the service's error answers.
    bool validateReply(const QByteArray &body);
    void sslErrorHandler(QNetworkReply *reply, const QList<QSslError> &errors);

signals:
    void finished(QNetworkReply *reply);
    void refused(int code);

private:
    QNetworkAccessManager *network();
    QNetworkReply *prepared(QNetworkReply *reply, Stage stage);
    void forgetBrokenConnections();

    NotificationSink *m_notifications;
    // Made for the first request: it takes longer than all the rest of the client.
    QNetworkAccessManager *m_network = nullptr;
    QString m_url;
    bool m_verifyCertificates;
    bool m_hasReportedCertificate = false;
    bool m_hasBrokenConnections = false;
};
