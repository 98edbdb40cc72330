#include "service/replyparser.h"

#include "model/json.h"
#include "model/jsonreader.h"

#include <QHash>

namespace {

constexpr int kMaxLoggedBody = 64 * 1024;
constexpr int kMaxKnownDateTimes = 200000;
constexpr qint64 kMinutesPerDay = 24 * 60;

QVariant parseBody(const QByteArray &body)
{
    return QtJson::parse(textOfBody(body));
}

QString text(const QVariantMap &object, const QString &key)
{
    return object.value(key).toString();
}

// A date-time costs a look at the time zone; lists repeat the same ones every
// minute.
class DateTimes
{
public:
    QDateTime parsed(const QString &text)
    {
        const auto known = m_known.constFind(text);
        if (known != m_known.constEnd())
            return *known;
        const QDateTime dateTime = parseServiceDateTime(text);
        // Whatever else stands in its place may be long, and would be kept.
        if (!dateTime.isValid())
            return dateTime;
        if (m_known.size() >= kMaxKnownDateTimes)
            m_known.clear();
        return *m_known.insert(text, dateTime);
    }

private:
    QHash<QString, QDateTime> m_known;
};

// Anything but an object makes a task without an id.
Task readTask(QtJson::Reader &reader)
{
    static DateTimes dateTimes;
    Task task;
    if (!reader.isAtObject()) {
        reader.readValue();
        return task;
    }
    reader.readObject([&](QStringView key) {
        if (key == u"id")
            task.id = reader.readText();
        else if (key == u"title")
            task.title = reader.readText();
        else if (key == u"deadline")
            task.deadline = dateTimes.parsed(reader.readText());
        else if (key == u"block")
            task.block = reader.readText();
        else if (key == u"last_comment")
            task.lastComment = dateTimes.parsed(reader.readText());
        else if (key == u"importance")
            task.importance = reader.readValue().toInt();
        else
            reader.readValue();
    });
    return task;
}

QList<Task> readTasks(QtJson::Reader &reader)
{
    QList<Task> tasks;
    if (!reader.isAtArray()) {
        reader.readValue();
        return tasks;
    }
    reader.readArray([&] { tasks.append(readTask(reader)); });
    return tasks;
}

TeamTasks readTeam(QtJson::Reader &reader)
{
    TeamTasks entry;
    if (!reader.isAtObject()) {
        reader.readValue();
        return entry;
    }
    // The last of members with the same name counts, here and above.
    reader.readObject([&](QStringView key) {
        if (key == u"id")
            entry.team.id = reader.readText();
        else if (key == u"name")
            entry.team.name = reader.readText();
        else if (key == u"tasks")
            entry.tasks = readTasks(reader);
        else
            reader.readValue();
    });
    return entry;
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

// Straight from the text: a tree of variants for tens of thousands of tasks
// would take longer to build than all that follows.
QList<TeamTasks> parseTeamsAndTasks(const QByteArray &body)
{
    QList<TeamTasks> all;
    const QString text = textOfBody(body);
    QtJson::Reader reader(text);
    if (!reader.isAtArray())
        return all;
    reader.readArray([&] {
        TeamTasks entry = readTeam(reader);
        if (entry.team.id.isEmpty())
            return;
        entry.tasks.append(Task::catchAll());
        all.append(entry);
    });
    return reader.isOk() ? all : QList<TeamTasks>();
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
