#include "service/orvana.h"

#include "base/deployment.h"
#include "base/notificationsink.h"
#include "base/programstart.h"
#include "service/ovsession.h"
#include "service/replyparser.h"
#include "service/requestbody.h"

#include <QDebug>
#include <QDesktopServices>
#include <QFile>
#include <QMetaEnum>
#include <QTextCodec>

#include <algorithm>
#include <chrono>

namespace {

constexpr std::chrono::milliseconds kSweepPause(100);
constexpr int kUnreachable = 1;
constexpr int kSiteDown = 2;
constexpr int kOtherFailure = 3;
constexpr int kReachable = 7;
// What is longer would fill the memory or hold up the window.
constexpr qint64 kLongestList = 32 * 1024 * 1024;
constexpr qint64 kLongestAnswer = 1024 * 1024;

const char kInvalidCredentialsBody[] = "{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}";
const char kUserProperty[] = "user";
const QString kStorageFolder = QStringLiteral(".orvana");

QString reasonPrefix(int code)
{
    switch (code) {
    case kUnreachable:
        return QStringLiteral("Ошибка соединения. ");
    case kSiteDown:
        return QStringLiteral("Сайт недоступен. ");
    default:
        return QString();
    }
}

int onlineStateCode(QNetworkReply::NetworkError error)
{
    switch (error) {
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::UnknownNetworkError:
        return kUnreachable;
    case QNetworkReply::ProtocolUnknownError:
        return kSiteDown;
    default:
        return kOtherFailure;
    }
}

// The service's database answers in its own code page and with a misspelling.
bool isDatabaseError(const QByteArray &body)
{
    static const QByteArray expected = QTextCodec::codecForName("Windows-1251")
                                           ->fromUnicode(QStringLiteral("Не могу соединится с базой данных"));
    return body == expected;
}

// Nothing of one reply goes into a later request, and what leads elsewhere is refused:
// that is no answer of the service.
QNetworkRequest newRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    return request;
}

// Qt knows some of them only; none of them is an answer.
bool isRedirect(const QNetworkReply &reply)
{
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return status >= 300 && status < 400;
}

QString upToFirstNul(const QString &text)
{
    return QString::fromUtf8(text.toUtf8().constData());
}

} // namespace

Orvana::Orvana(NotificationSink *notifications, QObject *parent)
    : QObject(parent)
    , m_notifications(notifications)
    , m_storage(QDir(Deployment::storageRoot()).absoluteFilePath(kStorageFolder))
    , m_serviceUrl(Deployment::serviceUrl())
    , m_verifyCertificates(Deployment::verifyCertificates())
{
    registerRecordTypes();
    m_sweepTimer.setInterval(kSweepPause);
    connect(&m_sweepTimer, &QTimer::timeout, this, &Orvana::sweepPictures);
    QDir().mkpath(Deployment::storageRoot());
    const bool usable = m_storage.prepare();
    m_session = new Session(this, this);
    if (usable) {
        m_session->initLastLogin();
        prepareCache();
    } else {
        qWarning() << "Storage directory can't be used:" << storageDirectory().path();
    }
    m_loginAttempt = new Session(this, this);
    removeDeprecatedFiles();
}

Orvana::~Orvana()
{
    save();
    qDebug() << "Exit Orvana Team Monitor OK";
}

void Orvana::save()
{
    if (m_cleanMode)
        return;
    storeUnwritten();
    m_session->save();
}

void Orvana::removeDeprecatedFiles()
{
    if (!m_storage.isUsable())
        return;
    QDir storage = m_storage.dir();
    const QStringList records = storage.entryList({QStringLiteral("json*")}, QDir::Files, QDir::Unsorted);
    for (const QString &name : records)
        storage.remove(name);
    for (const char *name : {".orvana.db", "comments.data", "session.json"})
        storage.remove(QString::fromLatin1(name));

    if (!m_session || m_session->login().isEmpty())
        return;
    const QDir user(m_storage.ofUser(m_session->login()));
    for (const char *name : {"session.json", "tasks.json", "teams.json"})
        QFile::remove(user.filePath(QString::fromLatin1(name)));
    const QList<Team> teams = m_session->teams();
    for (const Team &team : teams) {
        // An id with a slash is no folder name.
        if (!team.id.contains(QLatin1Char('/')))
            removeDir(user.filePath(QStringLiteral("team_") + team.id));
    }
}

void Orvana::openUrl(const QString &url)
{
    const QUrl target(url);
    if (target.scheme() != QLatin1String("https") && target.scheme() != QLatin1String("http")) {
        qWarning() << "Not a web address:" << url;
        return;
    }
    const UserSurroundings surroundings;
    QDesktopServices::openUrl(target);
}

void Orvana::openTaskUrl(const QString &taskId)
{
    openUrl(m_serviceUrl + QLatin1String("/task?id=") + QString::fromLatin1(QUrl::toPercentEncoding(taskId)));
}

void Orvana::openTaskUrl()
{
    if (const QObject *button = sender())
        openTaskUrl(button->property("task_id").toString());
}

void Orvana::notify(const QString &text, NotificationType type, const QString &taskId) const
{
    m_notifications->addNotification(text, type, taskId);
}

void Orvana::changeTask(const QString &teamId, const QString &taskId)
{
    if (teamId != m_session->currentTeamID()) {
        m_session->setCurrentTeamID(teamId);
        emit teamChanged(teamId);
    }
    m_session->setCurrentTaskID(taskId);
    // Two teams may list the same task.
    m_session->saveChoice();
}

RequestFields Orvana::credentials(const Session &session) const
{
    return {{QStringLiteral("login"), session.login()},
            {QStringLiteral("password"), upToFirstNul(session.password())}};
}

QNetworkAccessManager *Orvana::network()
{
    if (m_network)
        return m_network;
    m_network = new QNetworkAccessManager(this);
    connect(m_network, &QNetworkAccessManager::finished, this, &Orvana::replyFinished);
    connect(m_network, &QNetworkAccessManager::sslErrors, this, &Orvana::sslErrorHandler);
    connect(m_network, &QNetworkAccessManager::networkAccessibleChanged, this,
            &Orvana::networkAccessibleChangedHandler);
    return m_network;
}

QNetworkReply *Orvana::get(Stage stage, const QString &path, const RequestFields &fields)
{
    QUrl url(m_serviceUrl + path);
    if (!fields.isEmpty())
        url.setQuery(QString::fromLatin1(encodeFields(fields)), QUrl::StrictMode);
    QNetworkReply *reply = network()->get(newRequest(url));
    reply->setProperty("stage", static_cast<int>(stage));
    reply->setProperty(kUserProperty, m_session->login());
    limitReply(reply);
    return reply;
}

QNetworkReply *Orvana::post(Stage stage, const QUrl &url, const QByteArray &body)
{
    QNetworkRequest request = newRequest(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
    auto *device = new OneShotBody(body, nullptr);
    QNetworkReply *reply = network()->post(request, device);
    device->setParent(reply);
    reply->setProperty("stage", static_cast<int>(stage));
    limitReply(reply);
    return reply;
}

void Orvana::limitReply(QNetworkReply *reply)
{
    connect(reply, &QNetworkReply::redirected, this, [reply](const QUrl &target) {
        qWarning() << "Error! Redirect refused:" << reply->request().url().path() << "to" << target.host();
        reply->abort();
    });
    const int stage = reply->property("stage").toInt();
    const bool isList = stage == CheckLogin || stage == TeamsAndTasks || stage == TaskDetails;
    connect(reply, &QNetworkReply::readyRead, this, [reply, longest = isList ? kLongestList : kLongestAnswer] {
        if (reply->bytesAvailable() <= longest)
            return;
        qWarning() << "Error! Reply is too long:" << reply->url().path();
        reply->abort();
    });
}

void Orvana::replyFinished(QNetworkReply *reply)
{
    const int stage = reply->property("stage").toInt();
    if (reply->error() == QNetworkReply::NoError && !isRedirect(*reply)) {
        if (isForCurrentUser(stage, reply))
            handleReply(stage, reply);
        checkOnlineState(kReachable);
    } else {
        handleTransportError(stage, reply);
    }
    if (stage == TaskDetails)
        prefetchDone(reply->property("task_id").toString());
    reply->deleteLater();
    if (m_hasBrokenConnections)
        QMetaObject::invokeMethod(this, &Orvana::forgetBrokenConnections, Qt::QueuedConnection);
}

// Qt keeps some kilobytes of every encrypted connection that broke until the service
// has not been asked anything for two minutes, and it is asked every minute. Letting
// go of them would also take those along that still wait.
void Orvana::forgetBrokenConnections()
{
    const auto replies = m_network->findChildren<QNetworkReply *>(QString(), Qt::FindDirectChildrenOnly);
    const bool isBusy = std::any_of(replies.cbegin(), replies.cend(),
                                    [](const QNetworkReply *reply) { return reply->isRunning(); });
    if (isBusy || !m_hasBrokenConnections)
        return;
    m_hasBrokenConnections = false;
    m_network->clearConnectionCache();
}

// The account may be changed while replies are under way; one user's lists and
// totals must not end in another's session.
bool Orvana::isForCurrentUser(int stage, const QNetworkReply *reply) const
{
    if (stage != TeamsAndTasks && stage != TaskDetails && stage != TimeSync)
        return true;
    const QVariant user = reply->property(kUserProperty);
    return !user.isValid() || user.toString() == m_session->login();
}

void Orvana::handleReply(int stage, QNetworkReply *reply)
{
    switch (stage) {
    case CheckLogin:
        processCheckLoginReply(reply);
        break;
    case TeamsAndTasks:
        processTeamsAndTasksReply(reply);
        break;
    case CheckUpdate:
        processCheckUpdateReply(reply);
        break;
    case SendActivity:
        processSendActivityReply(reply);
        break;
    case DeadlineChange:
        processRequestDeadlineChange(reply);
        break;
    case TaskDetails:
        processRequestTaskInfo(reply);
        break;
    case TimeSync:
        processRequestTimeSync(reply);
        break;
    default:
        break;
    }
}

void Orvana::handleTransportError(int stage, QNetworkReply *reply)
{
    m_hasBrokenConnections = true;
    const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
    qDebug() << "Request: " << reply->request().url();
    qDebug() << "Reply finished:" << errors.valueToKey(reply->error()) << " - " << reply->errorString();
    switch (stage) {
    case CheckLogin:
        emit loginUnanswered();
        break;
    case SendActivity:
        --m_pendingActivity;
        break;
    case DeadlineChange:
        notify(QStringLiteral("Запрос на продление задачи не удалось отправить, повторите попытку позже."));
        break;
    case TaskDetails:
        // The request stores its id under "task_id"; asking for "id" finds none,
        // and listeners are told of an empty record. They have relied on it.
        emit taskInfoUpdated(m_session->taskInfo(reply->property("id").toString()));
        break;
    default:
        break;
    }
    checkOnlineState(onlineStateCode(reply->error()));
}

void Orvana::checkOnlineState(int code)
{
    if (m_session->isOnline() && code != kReachable) {
        m_session->setOnline(false);
        emit onlineChanged(reasonPrefix(code));
    } else if (!m_session->isOnline() && code == kReachable) {
        m_session->setOnline(true);
        emit onlineChanged(QString());
    }
}

bool Orvana::validateReply(const QByteArray &body)
{
    if (body == kInvalidCredentialsBody) {
        qDebug() << "Invalid email/pswd/client";
        emit error(InvalidCredentials);
        return false;
    }
    if (body.startsWith("{\"status\":\"error\"") || body.startsWith("{\"status\":-1")) {
        qDebug().noquote() << "Unknown error!" << bodyForLog(body);
        emit error(ServiceError);
        return false;
    }
    if (body.startsWith("\t<!DOCTYPE")) {
        qDebug() << "Error! Invalid URL!";
        emit error(HtmlReply);
        return false;
    }
    if (isDatabaseError(body)) {
        qDebug().noquote() << QStringLiteral("Не могу соединиться с базой данных");
        emit error(DatabaseDown);
        return false;
    }
    return true;
}

void Orvana::sslErrorHandler(QNetworkReply *qnr, const QList<QSslError> &errors)
{
    if (!m_verifyCertificates) {
        qnr->ignoreSslErrors();
        return;
    }
    for (const QSslError &sslError : errors)
        qWarning() << "Certificate refused:" << sslError.errorString();
    if (m_toldCertificate)
        return;
    m_toldCertificate = true;
    notify(QStringLiteral("Сертификат сервера не прошёл проверку. Обратитесь к системному администратору."));
}

void Orvana::networkAccessibleChangedHandler(QNetworkAccessManager::NetworkAccessibility networkAccessibility)
{
    Q_UNUSED(networkAccessibility)
}
