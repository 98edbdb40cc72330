#include "localservice/replies.h"

#include <QFile>
#include <QLocale>

namespace localservice {

namespace {

const QString kWireFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");

QJsonObject taskJson(const Task &task)
{
    QJsonObject object{{QStringLiteral("id"), task.id},
                       {QStringLiteral("title"), task.title},
                       {QStringLiteral("block"), task.block},
                       {QStringLiteral("importance"), task.importance}};
    if (task.deadline.isValid())
        object.insert(QStringLiteral("deadline"), wireTime(task.deadline));
    if (task.lastComment.isValid())
        object.insert(QStringLiteral("last_comment"), wireTime(task.lastComment));
    return object;
}

QJsonObject attachmentJson(const Attachment &file)
{
    return {{QStringLiteral("id"), file.id},
            {QStringLiteral("filename"), file.fileName},
            {QStringLiteral("filename_orig"), file.originalName},
            {QStringLiteral("size"), file.size}};
}

QJsonObject textJson(const TextAssignment &text)
{
    QJsonArray keywords;
    for (const Keyword &keyword : text.keywords) {
        keywords.append(QJsonObject{{QStringLiteral("id"), keyword.id},
                                    {QStringLiteral("keyword"), keyword.phrase},
                                    {QStringLiteral("count"), keyword.count},
                                    {QStringLiteral("count2"), keyword.count2}});
    }
    return {{QStringLiteral("id"), text.id},       {QStringLiteral("title"), text.title},
            {QStringLiteral("text"), text.text},   {QStringLiteral("min_count"), text.minCount},
            {QStringLiteral("page"), text.page},   {QStringLiteral("task"), text.task},
            {QStringLiteral("keywords"), keywords}};
}

} // namespace

QByteArray resource(const QString &name)
{
    QFile file(QStringLiteral(":/localservice/") % name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonArray teamsJson(const World &world, const User &user)
{
    QJsonArray list;
    for (const Team &team : world.teams) {
        if (user.sees(team.id))
            list.append(QJsonObject{{QStringLiteral("id"), team.id}, {QStringLiteral("name"), team.name}});
    }
    return list;
}

QJsonArray teamsAndTasksJson(const World &world, const User &user)
{
    QJsonArray list;
    for (const Team &team : world.teams) {
        if (!user.sees(team.id))
            continue;
        QJsonArray tasks;
        for (const Task &task : team.tasks)
            tasks.append(taskJson(task));
        list.append(QJsonObject{{QStringLiteral("id"), team.id},
                                {QStringLiteral("name"), team.name},
                                {QStringLiteral("tasks"), tasks}});
    }
    return list;
}

QJsonObject detailsJson(const Task &task)
{
    QJsonArray files;
    for (const Attachment &file : task.details.files)
        files.append(attachmentJson(file));
    QJsonArray texts;
    for (const TextAssignment &text : task.details.texts)
        texts.append(textJson(text));
    QJsonObject object{{QStringLiteral("id"), task.id},
                       {QStringLiteral("title"), task.title},
                       {QStringLiteral("text"), task.details.text},
                       {QStringLiteral("executor_name"), task.details.executor},
                       {QStringLiteral("creator_name"), task.details.creator},
                       {QStringLiteral("auditor_name"), task.details.auditor},
                       {QStringLiteral("files"), files},
                       {QStringLiteral("texts"), texts}};
    if (task.deadline.isValid())
        object.insert(QStringLiteral("deadline"), wireTime(task.deadline));
    return object;
}

Reply textPage(int status, const QString &title, const QString &text)
{
    const QString page = QString::fromUtf8(resource(QStringLiteral("message.html")))
                             .arg(title.toHtmlEscaped(), text.toHtmlEscaped());
    return {status, page.toUtf8(), QByteArrayLiteral("text/html; charset=utf-8")};
}

Reply taskPage(const Task *task)
{
    constexpr int kNotFound = 404;
    if (!task)
        return textPage(kNotFound, QStringLiteral("Задача не найдена"));
    const QString deadline =
        task->deadline.isValid() ? wireTime(task->deadline) : QStringLiteral("без срока");
    return textPage(
        200, task->title,
        QStringLiteral("Задача %1 · дедлайн: %2\n\n%3").arg(task->id, deadline, task->details.text));
}

Reply downloadPage(const QJsonArray &versions)
{
    QString text = QStringLiteral("Доступные версии для Linux:");
    for (const QJsonValue &entry : versions) {
        text += QLatin1Char('\n') % entry.toObject().value(QStringLiteral("version")).toVariant().toString();
    }
    return textPage(200, QStringLiteral("Загрузка Orvana Team Monitor"), text);
}

QString wireTime(const QDateTime &when)
{
    return QLocale::c().toString(when, kWireFormat);
}

QDateTime fromWireTime(const QString &text)
{
    return QDateTime::fromString(text, kWireFormat);
}

} // namespace localservice
