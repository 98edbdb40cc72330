#include "service/serviceconnection.h"

#include "base/deployment.h"
#include "base/log.h"
#include "base/notificationsink.h"
#include "service/gzip.h"
#include "service/replyparser.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslError>
#include <QTextCodec>
#include <QUrl>

#include <algorithm>

namespace {

// A longer body would fill the memory or hold up the window.
constexpr qint64 kMaxListSize = 32 * 1024 * 1024;
constexpr qint64 kMaxAnswerSize = 1024 * 1024;

const char kInvalidCredentialsBody[] = "{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}";
const char kUserProperty[] = "user";
const char kBodyProperty[] = "body"; // of a packed reply; null when it cannot be unpacked

// The service's database answers in its own code page and with a misspelling.
bool isDatabaseError(const QByteArray &body)
{
    static const QByteArray expected = QTextCodec::codecForName("Windows-1251")
                                           ->fromUnicode(QStringLiteral("Не могу соединится с базой данных"));
    return body == expected;
}

qint64 maxSize(int stage)
{
    const bool isList = stage == ServiceCodes::CheckLogin || stage == ServiceCodes::TeamsAndTasks
        || stage == ServiceCodes::TaskDetails;
    return isList ? kMaxListSize : kMaxAnswerSize;
}

void logTooLong(const QNetworkReply &reply)
{
    qCWarning(lcService) << "Error! Reply is too long:" << reply.url().path();
}

void unpackBody(QNetworkReply *reply)
{
    const QByteArray encoding = reply->rawHeader("Content-Encoding").toLower();
    if (encoding.isEmpty() || encoding == "identity" || reply->error() != QNetworkReply::NoError)
        return;
    const qint64 max = maxSize(reply->property("stage").toInt());
    auto body = encoding == "gzip" ? unpackGzip(reply->readAll(), max) : std::nullopt;
    if (!body)
        qCWarning(lcService) << "Error! Reply can't be unpacked:" << reply->url().path() << encoding;
    if (body && body->size() > max) {
        logTooLong(*reply);
        body.reset();
    }
    reply->setProperty(kBodyProperty, body.value_or(QByteArray()));
}

// Cookies are neither kept nor sent, and no redirection is followed.
QNetworkRequest newRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    // With a value of our own Qt leaves unpacking to us. It would turn a megabyte into a gigabyte.
    request.setRawHeader("Accept-Encoding", "gzip");
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    return request;
}

} // namespace

ServiceConnection::ServiceConnection(NotificationSink *notifications, QObject *parent)
    : QObject(parent)
    , m_notifications(notifications)
    , m_url(Deployment::serviceUrl())
    , m_verifyCertificates(Deployment::verifyCertificates())
{ }

QNetworkAccessManager *ServiceConnection::network()
{
    if (m_network)
        return m_network;
    m_network = new QNetworkAccessManager(this);
    connect(m_network, &QNetworkAccessManager::sslErrors, this, &ServiceConnection::sslErrorHandler);
    connect(m_network, &QNetworkAccessManager::finished, this, [this](QNetworkReply *reply) {
        unpackBody(reply);
        m_hasBrokenConnections = m_hasBrokenConnections || !isAnswer(*reply);
        emit finished(reply);
        if (m_hasBrokenConnections)
            QMetaObject::invokeMethod(this, &ServiceConnection::forgetBrokenConnections,
                                      Qt::QueuedConnection);
    });
    return m_network;
}

QNetworkReply *ServiceConnection::get(Stage stage, const QString &path, const RequestFields &fields)
{
    QUrl url(m_url + path);
    if (!fields.isEmpty())
        url.setQuery(QString::fromLatin1(encodeFields(fields)), QUrl::StrictMode);
    return prepared(network()->get(newRequest(url)), stage);
}

QNetworkReply *ServiceConnection::get(Stage stage, const QString &path, const Credentials &user,
                                      const RequestFields &fields)
{
    QNetworkReply *reply = get(stage, path, user.with(fields));
    reply->setProperty(kUserProperty, user.login);
    return reply;
}

QNetworkReply *ServiceConnection::post(Stage stage, const QUrl &url, const QByteArray &body)
{
    QNetworkRequest request = newRequest(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
    auto *device = new OneShotBody(body, nullptr);
    QNetworkReply *reply = network()->post(request, device);
    device->setParent(reply);
    return prepared(reply, stage);
}

QNetworkReply *ServiceConnection::prepared(QNetworkReply *reply, Stage stage)
{
    reply->setProperty("stage", static_cast<int>(stage));
    connect(reply, &QNetworkReply::redirected, this, [reply](const QUrl &target) {
        qCWarning(lcService) << "Error! Redirect refused:" << reply->request().url().path() << "to"
                             << target.host();
        reply->abort();
    });
    connect(reply, &QNetworkReply::readyRead, this, [reply, max = maxSize(stage)] {
        if (reply->bytesAvailable() <= max)
            return;
        logTooLong(*reply);
        reply->abort();
    });
    return reply;
}

void ServiceConnection::ensureAccessible()
{
    if (network()->networkAccessible() != QNetworkAccessManager::NotAccessible)
        return;
    qCDebug(lcService) << "Network is not accessbile! Try to fix it.";
    network()->setNetworkAccessible(QNetworkAccessManager::Accessible);
}

// Qt reports only some redirections, and ends a request at an interim status but 100.
bool ServiceConnection::isAnswer(const QNetworkReply &reply)
{
    const int kind = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() / 100;
    const QVariant unpacked = reply.property(kBodyProperty);
    const bool isReadable = !unpacked.isValid() || !unpacked.toByteArray().isNull();
    return reply.error() == QNetworkReply::NoError && kind != 1 && kind != 3 && isReadable;
}

QByteArray ServiceConnection::takeBody(QNetworkReply *reply)
{
    const QVariant unpacked = reply->property(kBodyProperty);
    return unpacked.isValid() ? unpacked.toByteArray() : reply->readAll();
}

bool ServiceConnection::isFor(const QString &login, const QNetworkReply &reply)
{
    const QVariant user = reply.property(kUserProperty);
    return !user.isValid() || user.toString() == login;
}

bool ServiceConnection::validateReply(const QByteArray &body)
{
    if (body == kInvalidCredentialsBody) {
        qCDebug(lcService) << "Invalid email/pswd/client";
        emit refused(InvalidCredentials);
    } else if (body.startsWith("{\"status\":\"error\"") || body.startsWith("{\"status\":-1")) {
        qCDebug(lcService).noquote() << "Unknown error!" << bodyForLog(body);
        emit refused(ServiceError);
    } else if (body.startsWith("\t<!DOCTYPE")) {
        qCDebug(lcService) << "Error! Invalid URL!";
        emit refused(HtmlReply);
    } else if (isDatabaseError(body)) {
        qCDebug(lcService).noquote() << QStringLiteral("Не могу соединиться с базой данных");
        emit refused(DatabaseDown);
    } else {
        return true;
    }
    return false;
}

void ServiceConnection::sslErrorHandler(QNetworkReply *reply, const QList<QSslError> &errors)
{
    if (!m_verifyCertificates) {
        reply->ignoreSslErrors();
        return;
    }
    for (const QSslError &sslError : errors)
        qCWarning(lcService) << "Certificate refused:" << sslError.errorString();
    if (m_hasReportedCertificate)
        return;
    m_hasReportedCertificate = true;
    m_notifications->addNotification(
        QStringLiteral("Сертификат сервера не прошёл проверку. Обратитесь к системному администратору."));
}

// Qt keeps some kilobytes of every encrypted connection that broke until the service
// has not been asked anything for two minutes, and it is asked every minute. Clearing
// them would also end the requests that still wait.
void ServiceConnection::forgetBrokenConnections()
{
    const auto replies = m_network->findChildren<QNetworkReply *>(QString(), Qt::FindDirectChildrenOnly);
    const bool isBusy = std::any_of(replies.cbegin(), replies.cend(),
                                    [](const QNetworkReply *reply) { return reply->isRunning(); });
    if (isBusy || !m_hasBrokenConnections)
        return;
    m_hasBrokenConnections = false;
    m_network->clearConnectionCache();
}
