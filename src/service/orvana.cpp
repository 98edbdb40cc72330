#include "service/orvana.h"

#include "app/deployment.h"
#include "app/programstart.h"
#include "notifications/notificationmanager.h"
#include "service/ovsession.h"
#include "service/replyparser.h"
#include "service/requestbody.h"

#include <QDebug>
#include <QDesktopServices>
#include <QFile>
#include <QMetaEnum>
#include <QPushButton>
#include <QTextCodec>

#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kUnreachable = 1;
constexpr int kSiteDown = 2;
constexpr int kOtherFailure = 3;
constexpr int kReachable = 7;
// What is longer would fill the memory or hold up the window.
constexpr qint64 kMaxReplySize = 32 * 1024 * 1024;

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

// Ours alone: a folder, no link, made or owned by this user.
bool isPrivateFolder(const QString &path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISDIR(info.st_mode)
        && info.st_uid == geteuid();
}

QString upToFirstNul(const QString &text)
{
    return QString::fromUtf8(text.toUtf8().constData());
}

} // namespace

Orvana::Orvana(QObject *parent)
    : QObject(parent)
    , m_serviceUrl(Deployment::serviceUrl())
    , m_verifyCertificates(Deployment::verifyCertificates())
{
    registerRecordTypes();
    m_storage.setPath(QDir(Deployment::storageRoot()).absoluteFilePath(kStorageFolder));
    QDir().mkpath(Deployment::storageRoot());
    const bool usable = prepareStorage();
    m_session = new Session(this, this);
    if (usable) {
        m_session->initLastLogin();
        useCacheOf(m_session->login());
    } else {
        qWarning() << "Storage directory can't be used:" << m_storage.path();
    }
    m_loginAttempt = new Session(this, this);
    if (usable)
        removeDeprecatedFiles();
}

Orvana::~Orvana()
{
    if (!m_cleanMode) {
        storeUnwritten();
        m_session->save();
    }
    qDebug() << "Exit Orvana Team Monitor OK";
}

bool Orvana::isStorageUsable() const
{
    return isPrivateFolder(m_storage.path());
}

bool Orvana::prepareStorage() const
{
    const QByteArray path = QFile::encodeName(m_storage.path());
    mkdir(path.constData(), S_IRWXU);
    if (!isStorageUsable())
        return false;
    // Everything below it is then out of reach for others, whatever its mode.
    chmod(path.constData(), S_IRWXU);
    return true;
}

QString Orvana::unusableStorageText() const
{
    return QStringLiteral("Папка программы \"") + m_storage.path()
        + QStringLiteral("\" недоступна или принадлежит другому пользователю. "
                         "Обратитесь к системному администратору.");
}

void Orvana::removeDir(const QString &path)
{
    QDir folder(path);
    if (!folder.exists())
        return;
    const QFileInfoList entries = folder.entryInfoList(
        QDir::NoDotAndDotDot | QDir::System | QDir::Hidden | QDir::AllDirs | QDir::Files, QDir::DirsFirst);
    for (const QFileInfo &entry : entries) {
        // A link to a folder is a file here: what it points to is not ours.
        if (entry.isDir() && !entry.isSymLink())
            removeDir(entry.absoluteFilePath());
        else
            QFile::remove(entry.absoluteFilePath());
    }
    folder.rmdir(folder.absolutePath());
}

void Orvana::removeDeprecatedFiles()
{
    const QStringList records = m_storage.entryList({QStringLiteral("json*")}, QDir::Files, QDir::Unsorted);
    for (const QString &name : records)
        m_storage.remove(name);
    for (const char *name : {".orvana.db", "comments.data", "session.json"})
        m_storage.remove(QString::fromLatin1(name));

    if (!m_session || m_session->login().isEmpty())
        return;
    const QDir user(Session::directoryOf(m_storage, m_session->login()));
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
    if (const auto *button = qobject_cast<QPushButton *>(sender()))
        openTaskUrl(button->property("task_id").toString());
}

void Orvana::changeTask(const QString &teamId, const QString &taskId)
{
    if (teamId != m_session->currentTeamID()) {
        m_session->setCurrentTeamID(teamId);
        emit teamChanged(teamId);
    }
    m_session->setCurrentTaskID(taskId);
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
    QNetworkReply *reply = network()->get(QNetworkRequest(url));
    reply->setProperty("stage", static_cast<int>(stage));
    reply->setProperty(kUserProperty, m_session->login());
    limitLength(reply);
    return reply;
}

QNetworkReply *Orvana::post(Stage stage, const QUrl &url, const QByteArray &body)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
    auto *device = new OneShotBody(body, nullptr);
    QNetworkReply *reply = network()->post(request, device);
    device->setParent(reply);
    reply->setProperty("stage", static_cast<int>(stage));
    limitLength(reply);
    return reply;
}

void Orvana::limitLength(QNetworkReply *reply)
{
    connect(reply, &QNetworkReply::readyRead, this, [reply] {
        if (reply->bytesAvailable() <= kMaxReplySize)
            return;
        qWarning() << "Error! Reply is too long:" << reply->url().path();
        reply->abort();
    });
}

void Orvana::replyFinished(QNetworkReply *reply)
{
    const int stage = reply->property("stage").toInt();
    if (reply->error() == QNetworkReply::NoError) {
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
        NotificationManager::instance()->addNotification(
            QStringLiteral("Запрос на продление задачи не удалось отправить, повторите попытку позже."),
            Plain, QString());
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
    NotificationManager::instance()->addNotification(
        QStringLiteral("Сертификат сервера не прошёл проверку. Обратитесь к системному администратору."),
        Plain, QString());
}

void Orvana::networkAccessibleChangedHandler(QNetworkAccessManager::NetworkAccessibility networkAccessibility)
{
    Q_UNUSED(networkAccessibility)
}
