#include "service/orvana.h"

#include "service/ovsession.h"
#include "service/replyparser.h"
#include "service/requestbody.h"

#include <QDebug>
#include <QLocale>

namespace {

const QString kStatusKey = QStringLiteral("status");
const QString kMessageKey = QStringLiteral("message");
const QString kOk = QStringLiteral("ok");
// Stands for "by the end of the day" and is not sent.
const QTime kEndOfDay(23, 59);

} // namespace

void Orvana::requestTaskInfo(const QString &taskId)
{
    if (taskId == kCatchAllId)
        return;
    RequestFields fields = credentials(*m_session);
    fields.append({QStringLiteral("task_id"), taskId});
    QNetworkReply *reply = get(TaskDetails, QStringLiteral("/api_get_task"), fields);
    reply->setProperty("task_id", taskId);
}

void Orvana::processRequestTaskInfo(QNetworkReply *reply)
{
    const QByteArray body = reply->readAll();
    if (!validateReply(body)) {
        qDebug() << reply->request().url();
        return;
    }
    qDebug().noquote() << "TaskInfo for" << reply->property("task_id").toString() << ":" << bodyForLog(body);
    const TaskAnswer answer = parseTaskAnswer(body);
    if (answer.leftOut > 0)
        qWarning() << "Error! Too many parts of a task, left out:" << answer.leftOut;
    if (answer.status != kOk) {
        qDebug() << reply->url();
        // The same words as for a refused deadline: log readers look for them.
        qDebug().noquote() << "Request for deadline change: " << bodyForLog(body);
        notify(QStringLiteral("Ошибка получения данных по задаче: ") + answer.message);
        return;
    }
    m_session->addTaskInfoData(answer.task.id, answer.task);
    emit taskInfoUpdated(answer.task);
}

void Orvana::requestTimeSync(const QString &taskId)
{
    RequestFields fields = credentials(*m_session);
    if (taskId != kCatchAllId)
        fields.append({QStringLiteral("task_id"), taskId});
    QNetworkReply *reply = get(TimeSync, QStringLiteral("/api_get_active"), fields);
    reply->setProperty("task_id", taskId);
}

void Orvana::processRequestTimeSync(QNetworkReply *reply)
{
    const QByteArray body = reply->readAll();
    qDebug().noquote() << "time sync :" << bodyForLog(body);
    // An error answer goes on and sets the counters to zero: a user whom the
    // service does not know has no time today.
    if (!validateReply(body))
        qDebug() << reply->request().url();
    const DayTotals totals = parseDayTotals(parseObject(body));
    // Totals without a day would be taken for yesterday's at the first tick.
    if (!m_session->worktimeDate().isValid())
        m_session->setWorktimeDate(QDate::currentDate());
    m_session->setActiveTime(totals.active);
    m_session->setWorktime(totals.total);
    // The request keeps its id under "task_id", so the time lands under an empty
    // id. Kept: under its own id it would overwrite the day total that the
    // reminder shows for the task.
    const QString taskId = reply->property("taskId").toString();
    if (taskId != kCatchAllId)
        m_session->setActiveTaskTime(taskId, totals.task);
    // While the timer is stopped no step follows that would show the new totals.
    emit m_session->timeUpdated();
    qDebug() << "Active:" << totals.active << "total:" << totals.total;
}

void Orvana::requestDeadlineChange(const QDate &date, const QString &message, const QTime &time)
{
    RequestFields fields = credentials(*m_session);
    fields.append({QStringLiteral("task_id"), m_session->currentTaskID()});
    fields.append({QStringLiteral("dl_date"), QLocale::c().toString(date, QStringLiteral("yyyy-MM-dd"))});
    if (time != kEndOfDay)
        fields.append({QStringLiteral("dl_time"), QLocale::c().toString(time, QStringLiteral("HH:mm"))});
    fields.append({QStringLiteral("message"), message});
    post(DeadlineChange, QUrl(m_serviceUrl + QStringLiteral("/api_task_deadline_request")),
         encodeFields(fields));
}

void Orvana::processRequestDeadlineChange(QNetworkReply *reply)
{
    const QByteArray body = reply->readAll();
    if (!validateReply(body))
        qDebug() << reply->request().url();
    const QVariantMap answer = parseObject(body);
    if (answer.value(kStatusKey).toString() == kOk) {
        qDebug().noquote() << "Request for deadline change: " << bodyForLog(body);
        notify(QStringLiteral("Запрос на продление задачи успешно отправлен"));
        return;
    }
    qDebug() << reply->url();
    qDebug().noquote() << "Request for deadline change: " << bodyForLog(body);
    notify(QStringLiteral("Ошибка переноса задачи:") + answer.value(kMessageKey).toString());
}
