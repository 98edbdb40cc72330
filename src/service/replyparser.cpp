#include "service/replyparser.h"

#include "model/json.h"
#include "model/jsonreader.h"

#include <QHash>

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

// The tasks that are known of a team, in the order in which a reply is likely to name
// them: most of a list is the same every minute.
class KnownList
{
public:
    explicit KnownList(const QList<Task> &tasks)
        : m_tasks(tasks)
    { }

    int position() const { return m_next; }
    bool hasNext() const { return m_next < m_tasks.size(); }
    // An empty task behind the last.
    const Task &next() const { return at(m_next); }
    // Goes to the task with the id, when there is one, and gives an empty task otherwise.
    const Task &find(const QString &id)
    {
        if (m_positions.isEmpty()) {
            m_positions.reserve(m_tasks.size());
            for (int i = 0; i < m_tasks.size(); ++i)
                m_positions.insert(m_tasks.at(i).id, i);
        }
        const int found = m_positions.value(id, m_tasks.size());
        if (found < m_tasks.size())
            m_next = found;
        return at(found);
    }
    void goOn() { ++m_next; }

private:
    const Task &at(int position) const
    {
        static const Task none;
        return position < m_tasks.size() ? m_tasks.at(position) : none;
    }

    QList<Task> m_tasks;
    QHash<QString, int> m_positions;
    int m_next = 0;
};

QDateTime readDateTime(QtJson::Reader &reader, const QDateTime &likely)
{
    QString storage;
    return parseServiceDateTime(reader.readTextView(storage), likely);
}

// Anything but an object makes a task without an id.
Task readTask(QtJson::Reader &reader, KnownList &known)
{
    Task task;
    if (!reader.isAtObject()) {
        reader.readValue();
        return task;
    }
    const Task *likely = &known.next();
    reader.readObject([&](QStringView key) {
        if (key == u"id") {
            task.id = reader.readText(likely->id);
            if (task.id != likely->id)
                likely = &known.find(task.id);
        } else if (key == u"title") {
            task.title = reader.readText(likely->title);
        } else if (key == u"deadline") {
            task.deadline = readDateTime(reader, likely->deadline);
        } else if (key == u"block") {
            task.block = reader.readText(likely->block);
        } else if (key == u"last_comment") {
            task.lastComment = readDateTime(reader, likely->lastComment);
        } else if (key == u"importance") {
            task.importance = reader.readValue().toInt();
        } else {
            reader.readValue();
        }
    });
    return task;
}

// Ends with the catch-all entry. An unchanged list is the known one itself.
QList<Task> readTasks(QtJson::Reader &reader, const QList<Task> &knownTasks)
{
    QList<Task> tasks;
    KnownList known(knownTasks);
    int unchanged = 0;
    const auto startList = [&] { tasks = knownTasks.mid(0, unchanged); };
    bool isSame = true;
    const auto onElement = [&] {
        const Task task = readTask(reader, known);
        const bool isKnown = known.hasNext() && task.id == known.next().id;
        if (isSame && isKnown && known.position() == unchanged && task.hasSameContents(known.next())) {
            ++unchanged;
        } else {
            if (isSame)
                startList();
            isSame = false;
            tasks.append(task);
        }
        if (isKnown)
            known.goOn();
    };
    if (reader.isAtArray())
        reader.readArray(onElement);
    else
        reader.readValue();
    const bool isComplete =
        unchanged + 1 == knownTasks.size() && knownTasks.constLast().hasSameContents(Task::catchAll());
    if (isSame && isComplete)
        return knownTasks;
    if (isSame)
        startList();
    tasks.append(Task::catchAll());
    return tasks;
}

TeamTasks readTeam(QtJson::Reader &reader, const KnownTasks &known)
{
    TeamTasks entry;
    if (!reader.isAtObject()) {
        reader.readValue();
        return entry;
    }
    bool hasTasks = false;
    // The last of members with the same name counts, here and above.
    reader.readObject([&](QStringView key) {
        if (key == u"id") {
            entry.team.id = reader.readText();
        } else if (key == u"name") {
            entry.team.name = reader.readText();
        } else if (key == u"tasks") {
            entry.tasks = readTasks(reader, known ? known(entry.team.id) : QList<Task>());
            hasTasks = true;
        } else {
            reader.readValue();
        }
    });
    if (!hasTasks)
        entry.tasks.append(Task::catchAll());
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
QList<TeamTasks> parseTeamsAndTasks(const QByteArray &body, const KnownTasks &known)
{
    QList<TeamTasks> all;
    const QString text = textOfBody(body);
    QtJson::Reader reader(text);
    if (!reader.isAtArray())
        return all;
    reader.readArray([&] {
        const TeamTasks entry = readTeam(reader, known);
        if (!entry.team.id.isEmpty())
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
