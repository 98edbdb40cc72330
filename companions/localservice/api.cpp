#include "localservice/api.h"

#include "localservice/replies.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace localservice {

namespace {

struct Call
{
    const RecordedRequest &request;
    const World &world;
    Journal &journal;
    const User *user = nullptr; // whose credentials came along
};

struct Endpoint
{
    enum class Needs { Nothing, Credentials };

    QByteArray method;
    Needs needs;
    Reply (*answer)(const Call &);
};

// Not through a JSON object, which sorts its keys: clients check how the text begins.
Reply refused(const QString &status, const QString &message)
{
    const QByteArray quoted =
        QJsonDocument(QJsonArray{message}).toJson(QJsonDocument::Compact).chopped(1).mid(1);
    return {200, "{\"status\":\"" + status.toLatin1() + "\",\"message\":" + quoted + '}'};
}

Reply errorReply(const QString &message)
{
    Reply reply = refused(QStringLiteral("error"), message);
    reply.note = QStringLiteral("отклонено: ") % message;
    return reply;
}

Reply failReply(const QString &message)
{
    return refused(QStringLiteral("fail"), message);
}

// A full store refuses one upload after another; it is logged once.
Reply notKept(const Call &call, Journal::Outcome outcome, const QString &status)
{
    const bool isFull = outcome == Journal::Outcome::Full;
    const QString problem =
        isFull ? QStringLiteral("Место для данных исчерпано") : QStringLiteral("Не удалось сохранить");
    Reply reply = refused(status, problem);
    if (!isFull || call.journal.takeFullNotice())
        reply.note = QStringLiteral("отклонено: ") % problem;
    return reply;
}

Reply jsonReply(const QJsonDocument &document)
{
    return {200, document.toJson(QJsonDocument::Compact)};
}

bool userSeesTask(const Call &call, const QString &taskId)
{
    const Team *team = call.world.teamOf(taskId);
    return team && call.user->sees(team->id);
}

Reply answerTeams(const Call &call)
{
    return jsonReply(QJsonDocument(teamsJson(call.world, *call.user)));
}

Reply answerTeamsAndTasks(const Call &call)
{
    return jsonReply(QJsonDocument(teamsAndTasksJson(call.world, *call.user)));
}

Reply answerTask(const Call &call)
{
    const QString id = call.request.queryValue(QStringLiteral("task_id"));
    if (!userSeesTask(call, id))
        return failReply(QStringLiteral("Задача не найдена"));
    return jsonReply(
        QJsonDocument(QJsonObject{{QStringLiteral("status"), QStringLiteral("ok")},
                                  {QStringLiteral("message"), detailsJson(*call.world.task(id))}}));
}

Reply answerTotals(const Call &call)
{
    const DayTotals totals = call.journal.totals(*call.user, call.request.arrived.date());
    const QString task = call.request.queryValue(QStringLiteral("task_id"));
    return jsonReply(QJsonDocument(QJsonObject{{QStringLiteral("today_active"), totals.active},
                                               {QStringLiteral("today_total"), totals.total},
                                               {QStringLiteral("today_task"), totals.tasks.value(task)}}));
}

Reply answerDeadlineRequest(const Call &call)
{
    const DeadlineRequest request{call.request.arrived,
                                  call.user->login,
                                  call.request.formValue(QStringLiteral("task_id")),
                                  call.request.formValue(QStringLiteral("dl_date")),
                                  call.request.formValue(QStringLiteral("dl_time")),
                                  call.request.formValue(QStringLiteral("message"))};
    const bool timeGiven = hasName(call.request.formPairs, QStringLiteral("dl_time"));
    if (!userSeesTask(call, request.taskId))
        return failReply(QStringLiteral("Задача не найдена"));
    if (!QDate::fromString(request.date, QStringLiteral("yyyy-MM-dd")).isValid()
        || (timeGiven && !QTime::fromString(request.time, QStringLiteral("HH:mm")).isValid()))
        return failReply(QStringLiteral("Неверная дата или время"));
    const Journal::Outcome outcome = call.journal.add(request);
    if (outcome != Journal::Outcome::Kept)
        return notKept(call, outcome, QStringLiteral("fail"));
    Reply reply{200, QByteArrayLiteral("{\"status\":\"ok\"}")};
    reply.note = QStringLiteral("перенос дедлайна: %1, задача %2, %3 %4: %5")
                     .arg(request.login, request.taskId, request.date, request.time, request.message);
    return reply;
}

// The one object of the uploaded list, or an empty one.
QJsonObject uploadedObject(const RecordedRequest &request)
{
    const std::optional<QByteArray> json = jsonOfFormValue(request.formValue(QStringLiteral("data")));
    const QJsonArray list = json ? QJsonDocument::fromJson(*json).array() : QJsonArray();
    return list.size() == 1 ? list.first().toObject() : QJsonObject();
}

QString text(const QJsonObject &object, const QString &key)
{
    return object.value(key).toVariant().toString();
}

// Reads what reports and screenshots have in common. Returns false for invalid values.
template <typename Record>
bool readIdentity(const Call &call, const QJsonObject &object, Record *record)
{
    record->arrived = call.request.arrived;
    record->email = text(object, QStringLiteral("email"));
    record->teamId = text(object, QStringLiteral("team_id"));
    record->taskId = text(object, QStringLiteral("task_id"));
    record->version = text(object, QStringLiteral("version"));
    bool isNumber = false;
    record->pastSeconds = text(object, QStringLiteral("past")).toLongLong(&isNumber);
    return isNumber && record->pastSeconds >= 0 && record->pastSeconds <= ActivityReport::kLargestPast
        && call.world.user(record->email);
}

Reply answerReport(const Call &call)
{
    const QJsonObject object = uploadedObject(call.request);
    ActivityReport report;
    bool isNumber = false;
    report.active = text(object, QStringLiteral("active")).toInt(&isNumber);
    if (!readIdentity(call, object, &report) || !isNumber || report.active < 0
        || report.active > ActivityReport::kSlicesOfMinute)
        return errorReply(QStringLiteral("Неверный отчёт об активности"));
    const Journal::Outcome outcome = call.journal.add(report);
    if (outcome != Journal::Outcome::Kept)
        return notKept(call, outcome, QStringLiteral("error"));
    Reply reply{200, QByteArrayLiteral("{\"status\":\"ok\"}")};
    reply.note = QStringLiteral("отчёт: %1, команда %2, задача %3, активность %4, возраст %5 с, версия %6")
                     .arg(report.email, report.teamId, report.taskId)
                     .arg(report.active)
                     .arg(report.pastSeconds)
                     .arg(report.version);
    return reply;
}

Reply answerScreenshot(const Call &call)
{
    const QJsonObject object = uploadedObject(call.request);
    Screenshot shot;
    if (!readIdentity(call, object, &shot))
        return errorReply(QStringLiteral("Неверный снимок экрана"));
    shot.fileName = text(object, QStringLiteral("fileName"));
    // A client that has lost the image sends none; if it were refused, it would retry for ever.
    if (object.contains(QStringLiteral("file"))) {
        shot.jpeg = QByteArray::fromBase64(text(object, QStringLiteral("file")).toLatin1());
        if (!shot.jpeg.startsWith(QByteArrayLiteral("\xFF\xD8\xFF")))
            return errorReply(QStringLiteral("Снимок экрана не в формате JPEG"));
    }
    const Journal::Outcome outcome = call.journal.add(shot);
    if (outcome != Journal::Outcome::Kept)
        return notKept(call, outcome, QStringLiteral("error"));
    Reply reply{200, QByteArrayLiteral("ok"), QByteArrayLiteral("text/plain; charset=utf-8")};
    reply.note = QStringLiteral("снимок экрана: %1, команда %2, задача %3, %4 байт")
                     .arg(shot.email, shot.teamId, shot.taskId)
                     .arg(shot.jpeg.size());
    return reply;
}

Reply answerVersions(const Call &call)
{
    return jsonReply(QJsonDocument(call.world.versions));
}

Reply answerTaskPage(const Call &call)
{
    return taskPage(call.world.task(call.request.queryValue(QStringLiteral("id"))));
}

Reply answerDownloadPage(const Call &call)
{
    return downloadPage(call.world.versions);
}

const QHash<QString, Endpoint> &endpoints()
{
    using Needs = Endpoint::Needs;
    static const QHash<QString, Endpoint> table{
        {QStringLiteral("/api_teams"), {"GET", Needs::Credentials, answerTeams}},
        {QStringLiteral("/api_teams_tasks"), {"GET", Needs::Credentials, answerTeamsAndTasks}},
        {QStringLiteral("/api_get_task"), {"GET", Needs::Credentials, answerTask}},
        {QStringLiteral("/api_get_active"), {"GET", Needs::Credentials, answerTotals}},
        {QStringLiteral("/api_task_deadline_request"), {"POST", Needs::Credentials, answerDeadlineRequest}},
        {QStringLiteral("/api_active2"), {"POST", Needs::Nothing, answerReport}},
        {QStringLiteral("/api_screenshot"), {"POST", Needs::Nothing, answerScreenshot}},
        {QStringLiteral("/monitor/ubuntu64/ortm.version"), {"GET", Needs::Nothing, answerVersions}},
        {QStringLiteral("/monitor/"), {"GET", Needs::Nothing, answerDownloadPage}},
        {QStringLiteral("/task"), {"GET", Needs::Nothing, answerTaskPage}},
    };
    return table;
}

} // namespace

QByteArray invalidCredentialsBody()
{
    return QByteArrayLiteral("{\"status\":-1,\"err_msg\":\"Invalid email|pswd|client\"}");
}

Reply answerClient(const RecordedRequest &request, const World &world, Journal &journal)
{
    constexpr int kNotFound = 404;
    constexpr int kWrongMethod = 405;
    const auto endpoint = endpoints().constFind(request.path);
    if (endpoint == endpoints().constEnd())
        return textPage(kNotFound, QStringLiteral("Страница не найдена"));
    if (endpoint->method != request.method && !(endpoint->method == "GET" && request.method == "HEAD"))
        return textPage(kWrongMethod, QStringLiteral("Так к этой странице не обращаются"));
    Call call{request, world, journal};
    if (endpoint->needs == Endpoint::Needs::Credentials) {
        const Pairs &fields = endpoint->method == "GET" ? request.queryPairs : request.formPairs;
        call.user = world.user(valueOf(fields, QStringLiteral("login")));
        if (!call.user || call.user->password != valueOf(fields, QStringLiteral("password")))
            return {200, invalidCredentialsBody()};
    }
    return endpoint->answer(call);
}

} // namespace localservice
