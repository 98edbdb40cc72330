#include "service/detailfetcher.h"

#include "base/log.h"
#include "base/notificationsink.h"
#include "service/replyparser.h"
#include "service/serviceconnection.h"

#include <QNetworkReply>

namespace {

// A first load may ask for the details of thousands of tasks.
constexpr int kMaxUnderWay = 4;
constexpr int kMaxQueued = 1000;

} // namespace

DetailFetcher::DetailFetcher(ServiceConnection *service, NotificationSink *notifications, const User &user,
                             QObject *parent)
    : QObject(parent)
    , m_service(service)
    , m_notifications(notifications)
    , m_user(user)
{ }

void DetailFetcher::requestTaskInfo(const QString &taskId)
{
    if (taskId == kCatchAllId)
        return;
    QNetworkReply *reply = m_service->get(ServiceConnection::TaskDetails, QStringLiteral("/api_get_task"),
                                          m_user(), {{QStringLiteral("task_id"), taskId}});
    reply->setProperty("task_id", taskId);
}

void DetailFetcher::processRequestTaskInfo(QNetworkReply *reply)
{
    const QByteArray body = ServiceConnection::takeBody(reply);
    if (!m_service->validateReply(body)) {
        qCDebug(lcService) << reply->request().url();
        return;
    }
    qCDebug(lcService).noquote() << "TaskInfo for" << reply->property("task_id").toString() << ":"
                                 << bodyForLog(body);
    const TaskAnswer answer = parseTaskAnswer(body);
    if (answer.leftOut > 0)
        qCWarning(lcService) << "Error! Too many parts of a task, left out:" << answer.leftOut;
    if (answer.status == QLatin1String("ok")) {
        emit fetched(answer.task);
        return;
    }
    qCDebug(lcService) << reply->url();
    // The same words as for a refused deadline: log readers look for them.
    qCDebug(lcService).noquote() << "Request for deadline change: " << bodyForLog(body);
    m_notifications->addNotification(QStringLiteral("Ошибка получения данных по задаче: ") + answer.message);
}

int DetailFetcher::room() const
{
    return kMaxQueued - m_order.size();
}

int DetailFetcher::limit() const
{
    return m_queuedBefore + room();
}

void DetailFetcher::prefetch(const QStringList &taskIds)
{
    const QStringList next = taskIds.mid(m_queuedBefore, room());
    m_queuedBefore = next.size() < room() ? 0 : m_queuedBefore + next.size();
    for (const QString &taskId : next) {
        if (m_queued.contains(taskId) || m_underWay.contains(taskId))
            continue;
        m_queued.insert(taskId);
        m_order.enqueue(taskId);
    }
    fill();
}

void DetailFetcher::fill()
{
    while (!m_order.isEmpty() && m_underWay.size() < kMaxUnderWay) {
        const QString taskId = m_order.dequeue();
        m_queued.remove(taskId);
        m_underWay.insert(taskId);
        requestTaskInfo(taskId);
    }
}

void DetailFetcher::finish(const QString &taskId)
{
    if (m_underWay.remove(taskId))
        fill();
}

void DetailFetcher::clear()
{
    m_queuedBefore = 0;
    m_order.clear();
    m_queued.clear();
}
