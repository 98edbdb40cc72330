#include "localservice/replies.h"

#include <QFile>
#include <QLocale>

namespace localservice {

namespace {

QString wireFormat()
{
    return QStringLiteral("yyyy-MM-dd HH:mm:ss");
}

QByteArray htmlType()
{
    return QByteArrayLiteral("text/html; charset=utf-8");
}

QJsonObject taskJson(const Task &task)
{
    QJsonObject object{{QStringLiteral("id"), task.id},
                       {QStringLiteral("title"), task.title},
                       {QStringLiteral("block"), task.block},
                       {QStringLiteral("importance"), task.importance}};
    if (task.deadline.isValid()) {
        object.insert(QStringLiteral("deadline"), wireTime(task.deadline));
    }
    if (task.lastComment.isValid()) {
        object.insert(QStringLiteral("last_comment"), wireTime(task.lastComment));
    }
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
        if (user.sees(team.id)) {
            list.append(QJsonObject{{QStringLiteral("id"), team.id}, {QStringLiteral("name"), team.name}});
        }
    }
    return list;
}

QJsonArray teamsAndTasksJson(const World &world, const User &user)
{
    QJsonArray list;
    for (const Team &team : world.teams) {
        if (!user.sees(team.id)) {
            continue;
        }
        QJsonArray tasks;
        for (const Task &task : team.tasks) {
            tasks.append(taskJson(task));
        }
        list.append(QJsonObject{{QStringLiteral("id"), team.id},
                                {QStringLiteral("name"), team.name},
                                {QStringLiteral("tasks"), tasks}});
    }
    return list;
}

QJsonObject detailsJson(const Task &task)
{
    QJsonArray files;
    for (const Attachment &file : task.details.files) {
        files.append(attachmentJson(file));
    }
    QJsonArray texts;
    for (const TextAssignment &text : task.details.texts) {
        texts.append(textJson(text));
    }
    QJsonObject object{{QStringLiteral("id"), task.id},
                       {QStringLiteral("title"), task.title},
                       {QStringLiteral("text"), task.details.text},
                       {QStringLiteral("executor_name"), task.details.executor},
                       {QStringLiteral("creator_name"), task.details.creator},
                       {QStringLiteral("auditor_name"), task.details.auditor},
                       {QStringLiteral("files"), files},
                       {QStringLiteral("texts"), texts}};
    if (task.deadline.isValid()) {
        object.insert(QStringLiteral("deadline"), wireTime(task.deadline));
    }
    return object;
}

QByteArray htmlDocument(const QString &title, const QString &content)
{
    const QString page = QStringLiteral("<!DOCTYPE html>\n<html lang=\"ru\"><head><meta charset=\"utf-8\">"
                                        "<meta name=\"viewport\" content=\"width=device-width\"><title>")
        % title.toHtmlEscaped() % QStringLiteral("</title><style>")
        % QString::fromUtf8(resource(QStringLiteral("page.css")))
        % QStringLiteral("</style></head><body><main>") % content % QStringLiteral("</main></body></html>\n");
    return page.toUtf8();
}

Reply messagePage(int status, const QString &message)
{
    return {status,
            htmlDocument(message,
                         QString(QStringLiteral("<h1>") % message.toHtmlEscaped() % QStringLiteral("</h1>"))),
            htmlType()};
}

Reply taskPage(const Task *task)
{
    constexpr int notFound = 404;
    if (!task) {
        return messagePage(notFound, QStringLiteral("Задача не найдена"));
    }
    const QString deadline =
        task->deadline.isValid() ? wireTime(task->deadline) : QStringLiteral("без срока");
    const QString content = QStringLiteral("<h1>") % task->title.toHtmlEscaped()
        % QStringLiteral("</h1><section><p>Задача ") % task->id.toHtmlEscaped()
        % QStringLiteral(" · дедлайн: ") % deadline.toHtmlEscaped() % QStringLiteral("</p><p class=\"text\">")
        % task->details.text.toHtmlEscaped() % QStringLiteral("</p></section>");
    return {200, htmlDocument(task->title, content), htmlType()};
}

Reply downloadPage(const QJsonArray &versions)
{
    QString items;
    for (const QJsonValue &entry : versions) {
        const QString version = entry.toObject().value(QStringLiteral("version")).toVariant().toString();
        items += QStringLiteral("<li>") % version.toHtmlEscaped() % QStringLiteral("</li>");
    }
    const QString title = QStringLiteral("Загрузка Orvana Team Monitor");
    const QString content = QStringLiteral("<h1>") % title
        % QStringLiteral("</h1><section><p>Доступные версии для Linux:</p><ul>") % items
        % QStringLiteral("</ul></section>");
    return {200, htmlDocument(title, content), htmlType()};
}

QString wireTime(const QDateTime &when)
{
    return QLocale::c().toString(when, wireFormat());
}

QDateTime fromWireTime(const QString &text)
{
    return QDateTime::fromString(text, wireFormat());
}

} // namespace localservice
