#include "service/orvana.h"

#include "base/exemptteam.h"
#include "base/notificationsink.h"
#include "service/ovsession.h"
#include "service/replyparser.h"

#include <QDebug>

#include <algorithm>

namespace {

const char kAttemptProperty[] = "login_attempt";
// A first load may ask for the details of thousands of tasks, a few at a time.
constexpr int kMaxPrefetching = 4;
// The next list continues where this one stopped.
constexpr int kMostPrefetches = 1000;

} // namespace

void Orvana::requestCheckLogin(const QString &login, const QString &password)
{
    m_loginAttempt->setLogin(login);
    m_loginAttempt->setPassword(password);
    QNetworkReply *reply = get(CheckLogin, QStringLiteral("/api_teams"), credentials(*m_loginAttempt));
    reply->setProperty(kAttemptProperty, ++m_loginAttempts);
}

void Orvana::processCheckLoginReply(QNetworkReply *reply)
{
    if (!validateReply(reply->readAll()))
        return;
    // Only the latest attempt's answer speaks of the credentials held now.
    const QString login = m_loginAttempt->login();
    if (login.isEmpty() || reply->property(kAttemptProperty).toInt() != m_loginAttempts)
        return;
    const QString password = m_loginAttempt->password();
    qDebug() << "Login as " << login;
    if (!m_session->login().isEmpty()) {
        storeUnwritten();
        m_session->save();
        if (m_session->login() != login)
            m_notifications->clearForNextUser();
        m_session->clear();
    }
    forgetPrefetch();
    m_session->init(login, password);
    m_cache.setDirectory(QString());
    prepareCache();
    m_session->setLogged(true);
    m_session->save();
    m_loginAttempt->clear();
    emit loginOk();
}

void Orvana::requestTeamsAndTasks()
{
    get(TeamsAndTasks, QStringLiteral("/api_teams_tasks"), credentials(*m_session));
}

void Orvana::processTeamsAndTasksReply(QNetworkReply *reply)
{
    const QByteArray body = reply->readAll();
    if (!validateReply(body))
        return;
    qDebug().noquote() << "Teams and tasks data:" << bodyForLog(body);
    parseTeamsAndTasksReply(body);
}

void Orvana::parseTeamsAndTasksReply(const QByteArray &body)
{
    QList<Team> teams;
    int leftOut = 0;
    const QList<TeamTasks> all = parseTeamsAndTasks(body, m_session->lists(), &leftOut);
    if (leftOut > 0)
        qWarning() << "Error! Too many teams or tasks, left out:" << leftOut;
    teams.reserve(all.size());
    int passedOver = m_prefetchedBefore;
    int room = kMostPrefetches - m_prefetchOrder.size();
    int asked = 0;
    for (const TeamTasks &entry : all) {
        teams.append(entry.team);
        m_session->addTasksData(entry.tasks, entry.team.id);
        const QStringList unknown = m_session->tasksWithoutDetails(entry.team.id, passedOver + room);
        if (isExemptTeam(entry.team.id))
            continue;
        const int first = std::min(passedOver, unknown.size());
        passedOver -= first;
        for (int i = first; i < unknown.size() && room > 0; ++i, --room, ++asked)
            prefetchTaskInfo(unknown.at(i));
    }
    m_prefetchedBefore = room > 0 ? 0 : m_prefetchedBefore + asked;
    m_session->addTeamsData(teams);
}

void Orvana::prefetchTaskInfo(const QString &taskId)
{
    if (m_prefetchQueue.contains(taskId) || m_prefetching.contains(taskId))
        return;
    m_prefetchQueue.insert(taskId);
    m_prefetchOrder.enqueue(taskId);
    continuePrefetch();
}

void Orvana::continuePrefetch()
{
    while (!m_prefetchOrder.isEmpty() && m_prefetching.size() < kMaxPrefetching) {
        const QString taskId = m_prefetchOrder.dequeue();
        m_prefetchQueue.remove(taskId);
        m_prefetching.insert(taskId);
        requestTaskInfo(taskId);
    }
}

void Orvana::prefetchDone(const QString &taskId)
{
    if (m_prefetching.remove(taskId))
        continuePrefetch();
}

void Orvana::forgetPrefetch()
{
    m_prefetchedBefore = 0;
    m_prefetchOrder.clear();
    m_prefetchQueue.clear();
}
