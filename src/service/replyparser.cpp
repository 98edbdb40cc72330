#include "service/replyparser.h"

#include "model/json.h"

namespace {

constexpr int kMaxLoggedBody = 64 * 1024;
constexpr qint64 kMinutesPerDay = 24 * 60;

QVariant parseBody(const QByteArray &body)
{
    return QtJson::parse(textOfBody(body));
}

QString text(const QVariantMap &object, const QString &key)
{
    return object.value(key).toString();
}

Task parseTask(const QVariantMap &object)
{
    static const QString idKey = QStringLiteral("id");
    static const QString titleKey = QStringLiteral("title");
    static const QString deadlineKey = QStringLiteral("deadline");
    static const QString blockKey = QStringLiteral("block");
    static const QString lastCommentKey = QStringLiteral("last_comment");
    static const QString importanceKey = QStringLiteral("importance");
    Task task;
    task.id = text(object, idKey);
    task.title = text(object, titleKey);
    task.deadline = parseServiceDateTime(text(object, deadlineKey));
    task.block = text(object, blockKey);
    task.lastComment = parseServiceDateTime(text(object, lastCommentKey));
    task.importance = object.value(importanceKey).toInt();
    return task;
}

Keyword parseKeyword(const QVariantMap &object)
{
    return {text(object, QStringLiteral("id")), text(object, QStringLiteral("keyword")),
            text(object, QStringLiteral("count")), text(object, QStringLiteral("count2"))};
}

Attachment parseAttachment(const QVariantMap &object)
{
    return {text(object, QStringLiteral("id")), text(object, QStringLiteral("filename")),
            text(object, QStringLiteral("filename_orig")), text(object, QStringLiteral("size"))};
}

TextTask parseTextTask(const QVariantMap &object)
{
    TextTask textTask;
    textTask.id = text(object, QStringLiteral("id"));
    textTask.text = text(object, QStringLiteral("text"));
    textTask.title = text(object, QStringLiteral("title"));
    textTask.minCount = text(object, QStringLiteral("min_count"));
    textTask.page = QUrl(text(object, QStringLiteral("page")), QUrl::TolerantMode);
    textTask.task = text(object, QStringLiteral("task"));
    const QVariantList keywords = object.value(QStringLiteral("keywords")).toList();
    for (const QVariant &keyword : keywords)
        textTask.keywords.append(parseKeyword(keyword.toMap()));
    return textTask;
}

QTime parseMinutes(const QVariant &value)
{
    bool ok = false;
    const int minutes = value.toString().toInt(&ok, 10);
    if (!ok)
        return QTime(0, 0);
    const qint64 ofDay = ((minutes % kMinutesPerDay) + kMinutesPerDay) % kMinutesPerDay;
    return QTime(static_cast<int>(ofDay / 60), static_cast<int>(ofDay % 60));
}

} // namespace

QString textOfBody(const QByteArray &body)
{
    // Qt's conversion ends at the first NUL byte.
    return body.isEmpty() ? QString() : QString::fromUtf8(body);
}

QList<TeamTasks> parseTeamsAndTasks(const QByteArray &body)
{
    static const QString tasksKey = QStringLiteral("tasks");
    QList<TeamTasks> all;
    const QVariantList teams = parseBody(body).toList();
    for (const QVariant &element : teams) {
        const QVariantMap object = element.toMap();
        TeamTasks entry;
        entry.team = {text(object, QStringLiteral("id")), text(object, QStringLiteral("name"))};
        if (entry.team.id.isEmpty())
            continue;
        const QVariantList tasks = object.value(tasksKey).toList();
        entry.tasks.reserve(tasks.size() + 1);
        for (const QVariant &task : tasks)
            entry.tasks.append(parseTask(task.toMap()));
        entry.tasks.append(Task::catchAll());
        all.append(entry);
    }
    return all;
}

QVariantMap parseObject(const QByteArray &body)
{
    return parseBody(body).toMap();
}

TaskInfo parseTaskInfo(const QVariantMap &message)
{
    TaskInfo info;
    info.id = text(message, QStringLiteral("id"));
    info.title = text(message, QStringLiteral("title"));
    info.deadline = parseServiceDateTime(text(message, QStringLiteral("deadline")));
    info.text = text(message, QStringLiteral("text"));
    info.executorName = text(message, QStringLiteral("executor_name"));
    info.creatorName = text(message, QStringLiteral("creator_name"));
    info.auditorName = text(message, QStringLiteral("auditor_name"));
    const QVariantList files = message.value(QStringLiteral("files")).toList();
    for (const QVariant &file : files)
        info.files.append(parseAttachment(file.toMap()));
    const QVariantList texts = message.value(QStringLiteral("texts")).toList();
    for (const QVariant &textTask : texts)
        info.texts.append(parseTextTask(textTask.toMap()));
    return info;
}

DayTotals parseDayTotals(const QVariantMap &totals)
{
    return {parseMinutes(totals.value(QStringLiteral("today_active"))),
            parseMinutes(totals.value(QStringLiteral("today_total"))),
            parseMinutes(totals.value(QStringLiteral("today_task")))};
}

QString bodyForLog(const QByteArray &body)
{
    if (body.size() <= kMaxLoggedBody)
        return QString::fromUtf8(body);
    return QString::fromUtf8(body.constData(), kMaxLoggedBody) + QStringLiteral("... (")
        + QString::number(body.size()) + QStringLiteral(" bytes)");
}
