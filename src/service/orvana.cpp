#include "service/orvana.h"

#include "base/deployment.h"
#include "base/exemptteam.h"
#include "base/log.h"
#include "base/programstart.h"
#include "service/minuterecovery.h"
#include "service/ovsession.h"
#include "service/replyparser.h"
#include "storage/recordtime.h"

#include <QDesktopServices>
#include <QLocale>
#include <QMetaEnum>

#include <utility>

namespace {

constexpr int kUnreachable = 1;
constexpr int kSiteDown = 2;
constexpr int kOtherFailure = 3;
constexpr int kReachable = 7;

const QString kStorageFolder = QStringLiteral(".orvana");
const char kAttemptProperty[] = "login_attempt";
const char kListNumberProperty[] = "list_number";
const char kDayProperty[] = "day";
// Stands for "by the end of the day" and is not sent.
const QTime kEndOfDay(23, 59);

QString reasonPrefix(int code)
{
    return code == kUnreachable ? QStringLiteral("Ошибка соединения. ")
        : code == kSiteDown     ? QStringLiteral("Сайт недоступен. ")
                                : QString();
}

int onlineStateCode(QNetworkReply::NetworkError error)
{
    if (error == QNetworkReply::HostNotFoundError || error == QNetworkReply::UnknownNetworkError)
        return kUnreachable;
    return error == QNetworkReply::ProtocolUnknownError ? kSiteDown : kOtherFailure;
}

} // namespace

Orvana::Orvana(NotificationSink *notifications, QObject *parent)
    : QObject(parent)
    , m_notifications(notifications)
    , m_storage(QDir(Deployment::storageRoot()).absoluteFilePath(kStorageFolder))
    , m_journal(new MinuteJournal(&m_storage, notifications, this))
    , m_service(new ServiceConnection(notifications, this))
    , m_reports(new ReportSender(
          &m_storage, m_service, m_journal, notifications,
          [this] {
              return ReportSubject{m_session->login(), m_session->currentTeamID(),
                                   m_session->currentTaskID()};
          },
          this))
    , m_details(new DetailFetcher(
          m_service, notifications,
          [this] {
              return Credentials{m_session->login(), m_session->password()};
          },
          this))
    , m_recovery(new MinuteRecovery(&m_storage, m_journal, m_reports, this))
{
    connect(m_service, &ServiceConnection::finished, this, &Orvana::replyFinished);
    connect(m_service, &ServiceConnection::refused, this, &Orvana::error);
    connect(m_details, &DetailFetcher::fetched, this, [this](const TaskInfo &info) {
        m_session->addTaskInfoData(info.id, info);
        emit taskInfoUpdated(info);
    });
    QDir().mkpath(Deployment::storageRoot());
    const bool usable = m_storage.prepare();
    m_session = new Session(this, this);
    if (usable) {
        m_session->initLastLogin();
        loadReports();
    } else {
        qCWarning(lcService) << "Storage directory can't be used:" << storageDirectory().path();
    }
    m_loginAttempt = new Session(this, this);
    // A user's own were removed as their files were loaded.
    m_storage.removeDeprecatedFiles(QString(), {});
}

Orvana::~Orvana()
{
    save();
    m_recovery->stop();
    m_journal->close(MinuteJournal::End::Exit, true);
    qCDebug(lcService) << "Exit Orvana Team Monitor OK";
}

void Orvana::setCleanMode(bool clean)
{
    m_cleanMode = clean;
    m_journal->setEnabled(!clean);
}

void Orvana::loadReports()
{
    m_reports->loadCache();
    m_recovery->start(m_storage.ofUser(m_session->login()));
}

void Orvana::save()
{
    if (m_cleanMode)
        return;
    m_reports->storeUnwritten();
    m_session->save();
}

void Orvana::openUrl(const QString &url)
{
    const QUrl target(url);
    if (target.scheme() != QLatin1String("https") && target.scheme() != QLatin1String("http")) {
        qCWarning(lcService) << "Not a web address:" << url;
        return;
    }
    const UserSurroundings surroundings;
    QDesktopServices::openUrl(target);
}

void Orvana::openTaskUrl(const QString &taskId)
{
    openUrl(serviceUrl() + QLatin1String("/task?id=") + QString::fromLatin1(QUrl::toPercentEncoding(taskId)));
}

void Orvana::openTaskUrl()
{
    if (const QObject *button = sender())
        openTaskUrl(button->property("task_id").toString());
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

void Orvana::sslErrorHandler(QNetworkReply *qnr, const QList<QSslError> &errors)
{
    m_service->sslErrorHandler(qnr, errors);
}

void Orvana::replyFinished(QNetworkReply *reply)
{
    const int stage = reply->property("stage").toInt();
    const bool isAnswer = ServiceConnection::isAnswer(*reply);
    if (!isAnswer) {
        const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
        qCDebug(lcService) << "Request: " << reply->request().url();
        qCDebug(lcService) << "Reply finished:" << errors.valueToKey(reply->error()) << " - "
                           << reply->errorString();
    }
    // The account may be changed while replies are under way; one user's lists and
    // totals must not end in another's session.
    const bool isWanted = isAnswer && ServiceConnection::isFor(m_session->login(), *reply);
    switch (stage) {
    case CheckLogin:
        if (isAnswer)
            processCheckLoginReply(reply);
        else
            emit loginUnanswered();
        break;
    case TeamsAndTasks:
        if (isWanted)
            processTeamsAndTasksReply(reply);
        break;
    case CheckUpdate:
        if (isAnswer)
            processCheckUpdateReply(reply);
        break;
    case SendActivity:
        m_reports->processSendActivityReply(reply);
        break;
    case DeadlineChange:
        if (isAnswer)
            processRequestDeadlineChange(reply);
        else
            notify(
                QStringLiteral("Запрос на продление задачи не удалось отправить, повторите попытку позже."));
        break;
    case TaskDetails:
        // The request stores its id under "task_id"; a lookup by "id" finds none, and
        // listeners get an empty record. They have relied on it.
        if (!isAnswer)
            emit taskInfoUpdated(m_session->taskInfo(reply->property("id").toString()));
        else if (isWanted)
            m_details->processRequestTaskInfo(reply);
        break;
    case TimeSync:
        if (isWanted)
            processRequestTimeSync(reply);
        break;
    default:
        break;
    }
    checkOnlineState(isAnswer ? kReachable : onlineStateCode(reply->error()));
    if (stage == TaskDetails)
        m_details->finish(reply->property("task_id").toString());
    reply->deleteLater();
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

void Orvana::requestCheckLogin(const QString &login, const QString &password)
{
    m_loginAttempt->setLogin(login);
    m_loginAttempt->setPassword(password);
    QNetworkReply *reply = m_service->get(CheckLogin, QStringLiteral("/api_teams"), {login, password}, {});
    reply->setProperty(kAttemptProperty, ++m_loginAttempts);
}

void Orvana::processCheckLoginReply(QNetworkReply *reply)
{
    if (!validateReply(ServiceConnection::takeBody(reply)))
        return;
    // Only the latest attempt's answer speaks of the credentials held now.
    const QString login = m_loginAttempt->login();
    if (login.isEmpty() || reply->property(kAttemptProperty).toInt() != m_loginAttempts)
        return;
    const QString password = m_loginAttempt->password();
    qCDebug(lcService) << "Login as " << login;
    if (!m_session->login().isEmpty()) {
        m_reports->storeUnwritten();
        m_session->save();
        const bool isOther = m_session->login() != login;
        if (isOther)
            m_notifications->clearForNextUser();
        m_recovery->stop();
        m_journal->close(MinuteJournal::End::SignOut, isOther);
        m_session->clear();
    }
    m_details->clear();
    m_session->init(login, password);
    loadReports();
    m_session->setLogged(true);
    m_session->save();
    m_loginAttempt->clear();
    emit loginOk();
}

void Orvana::requestTeamsAndTasks()
{
    QNetworkReply *reply = m_service->get(TeamsAndTasks, QStringLiteral("/api_teams_tasks"),
                                          Credentials{m_session->login(), m_session->password()});
    reply->setProperty(kListNumberProperty, ++m_listsRequested);
}

void Orvana::processTeamsAndTasksReply(QNetworkReply *reply)
{
    const QByteArray body = ServiceConnection::takeBody(reply);
    if (!validateReply(body))
        return;
    // A slow reply may come after the next one. It lacks newer tasks: the timer of one would stop.
    const QVariant number = reply->property(kListNumberProperty);
    if (number.isValid() && number.toInt() < m_listTaken) {
        qCDebug(lcService) << "Teams and tasks are older than those known";
        return;
    }
    m_listTaken = number.toInt();
    qCDebug(lcService).noquote() << "Teams and tasks data:" << bodyForLog(body);
    parseTeamsAndTasksReply(body);
}

// Most replies are the same as the one before.
QList<TeamTasks> Orvana::teamsAndTasksOf(const QByteArray &body)
{
    const TaskLists &known = m_session->lists();
    QList<TeamTasks> all;
    if (known.areFrom(body)) {
        const QList<Team> teams = known.teams();
        all.reserve(teams.size());
        for (const Team &team : teams)
            all.append({team, known.ofTeam(team.id)});
        return all;
    }
    int leftOut = 0;
    all = parseTeamsAndTasks(body, known, &leftOut);
    if (leftOut > 0)
        qCWarning(lcService) << "Error! Too many teams or tasks, left out:" << leftOut;
    m_session->setListSource(leftOut > 0 ? QByteArray() : body);
    return all;
}

void Orvana::parseTeamsAndTasksReply(const QByteArray &body)
{
    QList<Team> teams;
    const QList<TeamTasks> all = teamsAndTasksOf(body);
    teams.reserve(all.size());
    QStringList missing;
    for (const TeamTasks &entry : all) {
        teams.append(entry.team);
        m_session->addTasksData(entry.tasks, entry.team.id);
        const int limit = m_details->limit() - missing.size();
        const QStringList ofTeam = m_session->tasksWithoutDetails(entry.team.id, limit);
        if (!isExemptTeam(entry.team.id))
            missing += ofTeam;
    }
    m_details->prefetch(missing);
    m_session->addTeamsData(teams);
}

void Orvana::requestCheckUpdate()
{
    m_service->get(CheckUpdate, QStringLiteral("/monitor/ubuntu64/ortm.version"));
}

void Orvana::processCheckUpdateReply(QNetworkReply *reply)
{
    const QByteArray body = ServiceConnection::takeBody(reply);
    // A refused body is stored all the same: the last description received is
    // what counts.
    if (!validateReply(body))
        qCDebug(lcService) << reply->request().url();
    qCDebug(lcService).noquote() << "Update data: " << bodyForLog(body);
    emit updateDescriptionReceived(body);
}

void Orvana::journalMinute(int activeSlices)
{
    WorkDay day = m_session->day();
    const DayCounters before = DayCounters::of(day);
    day.work.addMinute();
    if (activeSlices > 0)
        day.active.addMinute();
    m_minuteOver = QDateTime::currentDateTime();
    m_journal->minute(
        m_minuteOver,
        {recordTimeText(m_minuteOver), m_session->currentTeamID(), m_session->currentTaskID(), activeSlices},
        m_reports->reportUrl(), before, DayCounters::of(day));
}

void Orvana::sendTaskActivity(int activeSlices)
{
    const QDateTime moment = std::exchange(m_minuteOver, QDateTime());
    m_reports->sendTaskActivity(activeSlices, moment.isValid() ? moment : QDateTime::currentDateTime());
}

void Orvana::requestTimeSync(const QString &taskId)
{
    RequestFields fields;
    if (taskId != kCatchAllId)
        fields.append({QStringLiteral("task_id"), taskId});
    QNetworkReply *reply = m_service->get(TimeSync, QStringLiteral("/api_get_active"),
                                          Credentials{m_session->login(), m_session->password()}, fields);
    reply->setProperty("task_id", taskId);
    reply->setProperty(kDayProperty, QDate::currentDate());
}

void Orvana::processRequestTimeSync(QNetworkReply *reply)
{
    const QByteArray body = ServiceConnection::takeBody(reply);
    qCDebug(lcService).noquote() << "time sync :" << bodyForLog(body);
    // An error answer sets the counters to zero: a user whom the service does not know
    // has no time today.
    if (!validateReply(body))
        qCDebug(lcService) << reply->request().url();
    // The counters may have begun the next day.
    const QDate day = reply->property(kDayProperty).toDate();
    if (day.isValid() && day != QDate::currentDate()) {
        qCDebug(lcService) << "Totals were requested on another day:" << day;
        return;
    }
    const DayTotals totals = parseDayTotals(parseObject(body));
    // Totals without a day would be taken for yesterday's at the first tick.
    if (!m_session->worktimeDate().isValid())
        m_session->setWorktimeDate(QDate::currentDate());
    const DayCounters before = DayCounters::of(m_session->day());
    m_session->setActiveTime(totals.active);
    m_session->setWorktime(totals.total);
    m_journal->corrected(before, DayCounters::of(m_session->day()));
    // The request keeps its id under "task_id", so the time lands under an empty
    // id. Kept: under its own id it would overwrite the day total that the
    // reminder shows for the task.
    const QString taskId = reply->property("taskId").toString();
    if (taskId != kCatchAllId)
        m_session->setActiveTaskTime(taskId, totals.task);
    // While the timer is stopped no step follows that would show the new totals.
    emit m_session->timeUpdated();
    qCDebug(lcService) << "Active:" << totals.active << "total:" << totals.total;
}

void Orvana::requestDeadlineChange(const QDate &date, const QString &message, const QTime &time)
{
    RequestFields fields = Credentials{m_session->login(), m_session->password()}.with();
    fields.append({QStringLiteral("task_id"), m_session->currentTaskID()});
    fields.append({QStringLiteral("dl_date"), QLocale::c().toString(date, QStringLiteral("yyyy-MM-dd"))});
    if (time != kEndOfDay)
        fields.append({QStringLiteral("dl_time"), QLocale::c().toString(time, QStringLiteral("HH:mm"))});
    fields.append({QStringLiteral("message"), message});
    m_service->post(DeadlineChange, QUrl(serviceUrl() + QStringLiteral("/api_task_deadline_request")),
                    encodeFields(fields));
}

void Orvana::processRequestDeadlineChange(QNetworkReply *reply)
{
    const QByteArray body = ServiceConnection::takeBody(reply);
    if (!validateReply(body))
        qCDebug(lcService) << reply->request().url();
    const QVariantMap answer = parseObject(body);
    if (answer.value(QStringLiteral("status")).toString() == QLatin1String("ok")) {
        qCDebug(lcService).noquote() << "Request for deadline change: " << bodyForLog(body);
        notify(QStringLiteral("Запрос на продление задачи успешно отправлен"));
        return;
    }
    qCDebug(lcService) << reply->url();
    qCDebug(lcService).noquote() << "Request for deadline change: " << bodyForLog(body);
    notify(QStringLiteral("Ошибка переноса задачи:") + answer.value(QStringLiteral("message")).toString());
}
