#include "service/replyparser.h"

#include "base/shortened.h"
#include "model/json.h"
#include "model/jsonreader.h"
#include "service/taskindex.h"
#include "service/tasklists.h"

#include <QSet>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

constexpr int kMaxLoggedBody = 64 * 1024;
constexpr int kMaxTeams = 10'000;
constexpr int kMaxTasks = 300'000; // of all teams
constexpr int kMaxFiles = 10'000;
constexpr int kMaxTexts = 10'000;
constexpr int kMaxPhrases = 100'000; // of all texts
constexpr int kMaxTitle = 100'000; // characters, of names too
constexpr int kMaxText = 1'000'000; // characters
constexpr qint64 kMinutesPerDay = 24 * 60;

QVariant parseBody(const QByteArray &body)
{
    return QtJson::parse(textOfBody(body));
}

// Room for a limited number of list elements.
class Allowance
{
public:
    explicit Allowance(int most)
        : m_left(most)
    { }

    bool take()
    {
        if (m_left > 0) {
            --m_left;
            return true;
        }
        ++m_refused;
        return false;
    }
    int refused() const { return m_refused; }

private:
    int m_left;
    int m_refused = 0;
};

// Calls onElement() for each element for which there is room; anything but an array has none.
template <typename OnElement>
void readList(QtJson::Reader &reader, Allowance &room, OnElement onElement)
{
    if (!reader.isAtArray()) {
        reader.skipValue();
        return;
    }
    reader.readArray([&] {
        if (room.take())
            onElement();
        else
            reader.skipValue();
    });
}

// Calls onMember(key) for each member; anything but an object has none.
template <typename OnMember>
void readMembers(QtJson::Reader &reader, OnMember onMember)
{
    if (reader.isAtObject())
        reader.readObject(onMember);
    else
        reader.skipValue();
}

// The tasks that are known of a team, in the order in which a reply is expected to name
// them: most of a list is the same every minute.
class KnownList
{
public:
    explicit KnownList(const QList<Task> &tasks)
        : m_tasks(tasks)
    { }

    int position() const { return m_next; }
    bool hasNext() const { return m_next < m_tasks.size(); }
    // An empty task after the last.
    const Task &next() const { return at(m_next); }
    // Moves to the task with the id; without one, stays and returns an empty task.
    const Task &moveTo(const QString &id)
    {
        if (!m_index)
            m_index = std::make_unique<TaskIndex>(m_tasks);
        const int found = m_index->placesOf(id).first;
        if (found < 0)
            return at(m_tasks.size());
        m_next = found;
        return next();
    }
    void advance() { ++m_next; }

private:
    const Task &at(int position) const
    {
        static const Task none;
        return position < m_tasks.size() ? m_tasks.at(position) : none;
    }

    QList<Task> m_tasks;
    std::unique_ptr<TaskIndex> m_index;
    int m_next = 0;
};

// Nobody reads the rest, and with each save it would be written again.
QString readTitle(QtJson::Reader &reader, const QString &expected = QString())
{
    return shortened(reader.readText(expected), kMaxTitle);
}

QString readLongText(QtJson::Reader &reader)
{
    return shortened(reader.readText(), kMaxText);
}

QDateTime readDateTime(QtJson::Reader &reader, const QDateTime &expected)
{
    QString storage;
    return parseServiceDateTime(reader.readTextView(storage), expected);
}

// Anything but an object makes a task without an id.
Task readTask(QtJson::Reader &reader, KnownList &known)
{
    Task task;
    const Task *expected = &known.next();
    readMembers(reader, [&](QStringView key) {
        if (key == u"id") {
            task.id = reader.readText(expected->id);
            if (task.id != expected->id)
                expected = &known.moveTo(task.id);
        } else if (key == u"title") {
            task.title = readTitle(reader, expected->title);
        } else if (key == u"deadline") {
            task.deadline = readDateTime(reader, expected->deadline);
        } else if (key == u"block") {
            task.block = reader.readText(expected->block);
        } else if (key == u"last_comment") {
            task.lastComment = readDateTime(reader, expected->lastComment);
        } else if (key == u"importance") {
            task.importance = reader.readScalar().toInt();
        } else {
            reader.skipValue();
        }
    });
    return task;
}

// Ends with the catch-all entry. An unchanged list is the known one itself.
QList<Task> readTasks(QtJson::Reader &reader, const QList<Task> &knownTasks, Allowance &room)
{
    QList<Task> tasks;
    KnownList known(knownTasks);
    int unchanged = 0;
    const auto startList = [&] { tasks = knownTasks.mid(0, unchanged); };
    bool isSame = true;
    readList(reader, room, [&] {
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
            known.advance();
    });
    const bool isComplete =
        unchanged + 1 == knownTasks.size() && knownTasks.constLast().hasSameContents(Task::catchAll());
    if (isSame && isComplete)
        return knownTasks;
    if (isSame)
        startList();
    tasks.append(Task::catchAll());
    return tasks;
}

// Looking a task up in a known list prepares the whole of it: once for each team, however
// often a reply names that.
TeamTasks readTeam(QtJson::Reader &reader, const TaskLists &known, QSet<QString> &seen,
                   Allowance &roomForTasks)
{
    TeamTasks entry;
    bool hasTasks = false;
    // Of members with the same name the last one counts, here and above.
    readMembers(reader, [&](QStringView key) {
        if (key == u"id") {
            entry.team.id = reader.readText();
        } else if (key == u"name") {
            entry.team.name = readTitle(reader);
        } else if (key == u"tasks") {
            const bool isFirst = !seen.contains(entry.team.id);
            seen.insert(entry.team.id);
            entry.tasks =
                readTasks(reader, isFirst ? known.ofTeam(entry.team.id) : QList<Task>(), roomForTasks);
            hasTasks = true;
        } else {
            reader.skipValue();
        }
    });
    if (!hasTasks)
        entry.tasks.append(Task::catchAll());
    return entry;
}

Keyword readKeyword(QtJson::Reader &reader)
{
    Keyword keyword;
    readMembers(reader, [&](QStringView key) {
        if (key == u"id")
            keyword.id = reader.readText();
        else if (key == u"keyword")
            keyword.keyword = reader.readText();
        else if (key == u"count")
            keyword.count = reader.readText();
        else if (key == u"count2")
            keyword.count2 = reader.readText();
        else
            reader.skipValue();
    });
    return keyword;
}

Attachment readAttachment(QtJson::Reader &reader)
{
    Attachment file;
    readMembers(reader, [&](QStringView key) {
        if (key == u"id")
            file.id = reader.readText();
        else if (key == u"filename")
            file.filename = reader.readText();
        else if (key == u"filename_orig")
            file.filenameOrig = reader.readText();
        else if (key == u"size")
            file.size = reader.readText();
        else
            reader.skipValue();
    });
    return file;
}

TextTask readTextTask(QtJson::Reader &reader, Allowance &roomForPhrases)
{
    TextTask textTask;
    readMembers(reader, [&](QStringView key) {
        if (key == u"id") {
            textTask.id = reader.readText();
        } else if (key == u"text") {
            textTask.text = readLongText(reader);
        } else if (key == u"title") {
            textTask.title = readTitle(reader);
        } else if (key == u"min_count") {
            textTask.minCount = reader.readText();
        } else if (key == u"page") {
            textTask.page = QUrl(reader.readText(), QUrl::TolerantMode);
        } else if (key == u"task") {
            textTask.task = reader.readText();
        } else if (key == u"keywords") {
            textTask.keywords.clear();
            readList(reader, roomForPhrases, [&] { textTask.keywords.append(readKeyword(reader)); });
        } else {
            reader.skipValue();
        }
    });
    return textTask;
}

TaskInfo readTaskInfo(QtJson::Reader &reader, int *leftOut)
{
    Allowance files(kMaxFiles);
    Allowance texts(kMaxTexts);
    Allowance phrases(kMaxPhrases);
    TaskInfo info;
    reader.readObject([&](QStringView key) {
        if (key == u"id") {
            info.id = reader.readText();
        } else if (key == u"title") {
            info.title = readTitle(reader);
        } else if (key == u"deadline") {
            info.deadline = readDateTime(reader, QDateTime());
        } else if (key == u"text") {
            info.text = readLongText(reader);
        } else if (key == u"executor_name") {
            info.executorName = readTitle(reader);
        } else if (key == u"creator_name") {
            info.creatorName = readTitle(reader);
        } else if (key == u"auditor_name") {
            info.auditorName = readTitle(reader);
        } else if (key == u"files") {
            info.files.clear();
            readList(reader, files, [&] { info.files.append(readAttachment(reader)); });
        } else if (key == u"texts") {
            info.texts.clear();
            readList(reader, texts, [&] { info.texts.append(readTextTask(reader, phrases)); });
        } else {
            reader.skipValue();
        }
    });
    *leftOut = files.refused() + texts.refused() + phrases.refused();
    return info;
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
    if (body.isEmpty())
        return {};
    const char *start = body.constData();
    const auto *nul = static_cast<const char *>(std::memchr(start, '\0', static_cast<size_t>(body.size())));
    return QString::fromUtf8(start, std::max(0, nul ? static_cast<int>(nul - start) : body.size()));
}

// Directly from the text: building a tree of variants for tens of thousands of tasks
// would take longer than everything that follows.
QList<TeamTasks> parseTeamsAndTasks(const QByteArray &body, const TaskLists &known, int *leftOut)
{
    QList<TeamTasks> all;
    Allowance teams(kMaxTeams);
    Allowance tasks(kMaxTasks);
    QSet<QString> seen;
    const QString text = textOfBody(body);
    QtJson::Reader reader(text);
    readList(reader, teams, [&] {
        const TeamTasks entry = readTeam(reader, known, seen, tasks);
        if (!entry.team.id.isEmpty())
            all.append(entry);
    });
    if (leftOut)
        *leftOut = teams.refused() + tasks.refused();
    return reader.isOk() ? all : QList<TeamTasks>();
}

TaskAnswer parseTaskAnswer(const QByteArray &body)
{
    TaskAnswer answer;
    const QString text = textOfBody(body);
    QtJson::Reader reader(text);
    readMembers(reader, [&](QStringView key) {
        if (key == u"status") {
            answer.status = reader.readText();
        } else if (key == u"message") {
            answer.message.clear();
            answer.task = TaskInfo();
            if (reader.isAtObject())
                answer.task = readTaskInfo(reader, &answer.leftOut);
            else
                answer.message = reader.readText();
        } else {
            reader.skipValue();
        }
    });
    return reader.isOk() ? answer : TaskAnswer();
}

QVariantMap parseObject(const QByteArray &body)
{
    return parseBody(body).toMap();
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
