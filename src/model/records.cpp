#include "model/records.h"

#include <QDataStream>
#include <QLocale>
#include <QTimeZone>

#include <algorithm>
#include <tuple>

namespace {

constexpr int kServiceDateTimeLength = 19;

template <typename T>
void writeList(QDataStream &stream, const QList<T> &list)
{
    stream << static_cast<qint32>(list.size());
    for (const T &item : list)
        stream << item;
}

template <typename T>
QDataStream &readList(QDataStream &stream, QList<T> &list)
{
    list.clear();
    quint32 count = 0;
    stream >> count;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        T item;
        stream >> item;
        list.append(item);
    }
    if (stream.status() != QDataStream::Ok)
        list.clear();
    return stream;
}

// Damaged bytes read as a date-time in a zone that does not exist, and Qt crashes
// when it writes one.
void readDateTime(QDataStream &stream, QDateTime &dateTime)
{
    stream >> dateTime;
    if (dateTime.timeSpec() == Qt::TimeZone && !dateTime.timeZone().isValid())
        dateTime = QDateTime();
    // Qt writes an offset of zero as UTC; reading it the same way makes every round trip equal.
    if (dateTime.timeSpec() == Qt::OffsetFromUTC && dateTime.offsetFromUtc() == 0)
        dateTime.setTimeSpec(Qt::UTC);
}

int digits(const QChar *from, int count)
{
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const ushort unit = from[i].unicode();
        if (unit < '0' || unit > '9')
            return -1;
        value = value * 10 + (unit - '0');
    }
    return value;
}

} // namespace

bool Task::isBlocking() const
{
    return !block.isEmpty() && block != QLatin1String("0");
}

Task Task::catchAll()
{
    Task task;
    task.id = kCatchAllId;
    task.title = QStringLiteral("Прочие непоставленные задачи");
    return task;
}

bool Task::hasSameContents(const Task &other) const
{
    return id == other.id && title == other.title && isSameMoment(deadline, other.deadline)
        && block == other.block && isSameMoment(lastComment, other.lastComment)
        && importance == other.importance;
}

bool Attachment::operator==(const Attachment &other) const
{
    return std::tie(id, filename, filenameOrig, size)
        == std::tie(other.id, other.filename, other.filenameOrig, other.size);
}

bool Keyword::operator==(const Keyword &other) const
{
    return std::tie(id, keyword, count, count2)
        == std::tie(other.id, other.keyword, other.count, other.count2);
}

bool TextTask::operator==(const TextTask &other) const
{
    const auto tied = [](const TextTask &t) {
        return std::tie(t.id, t.text, t.title, t.minCount, t.page, t.task, t.keywords);
    };
    return tied(*this) == tied(other);
}

bool TaskInfo::operator==(const TaskInfo &other) const
{
    const auto tied = [](const TaskInfo &i) {
        return std::tie(i.id, i.title, i.text, i.executorName, i.creatorName, i.auditorName, i.files,
                        i.texts);
    };
    return tied(*this) == tied(other) && isSameMoment(deadline, other.deadline);
}

bool isSameMoment(const QDateTime &one, const QDateTime &other)
{
    return one.isValid() == other.isValid() && (!one.isValid() || one == other);
}

bool haveSameContents(const QList<Task> &one, const QList<Task> &other)
{
    return one.isSharedWith(other)
        || std::equal(one.cbegin(), one.cend(), other.cbegin(), other.cend(),
                      [](const Task &a, const Task &b) { return a.hasSameContents(b); });
}

QDataStream &operator<<(QDataStream &stream, const Task &task)
{
    return stream << task.id << task.title << task.deadline << task.block << task.lastComment
                  << task.importance;
}

QDataStream &operator>>(QDataStream &stream, Task &task)
{
    stream >> task.id >> task.title;
    readDateTime(stream, task.deadline);
    stream >> task.block;
    readDateTime(stream, task.lastComment);
    return stream >> task.importance;
}

QDataStream &operator<<(QDataStream &stream, const Attachment &attachment)
{
    return stream << attachment.id << attachment.filename << attachment.filenameOrig << attachment.size;
}

QDataStream &operator>>(QDataStream &stream, Attachment &attachment)
{
    return stream >> attachment.id >> attachment.filename >> attachment.filenameOrig >> attachment.size;
}

QDataStream &operator<<(QDataStream &stream, const Keyword &keyword)
{
    return stream << keyword.id << keyword.keyword << keyword.count << keyword.count2;
}

QDataStream &operator>>(QDataStream &stream, Keyword &keyword)
{
    return stream >> keyword.id >> keyword.keyword >> keyword.count >> keyword.count2;
}

QDataStream &operator<<(QDataStream &stream, const TextTask &textTask)
{
    stream << textTask.id << textTask.text << textTask.title << textTask.minCount << textTask.page
           << textTask.task;
    writeList(stream, textTask.keywords);
    return stream;
}

QDataStream &operator>>(QDataStream &stream, TextTask &textTask)
{
    return stream >> textTask.id >> textTask.text >> textTask.title >> textTask.minCount >> textTask.page
        >> textTask.task >> textTask.keywords;
}

QDataStream &operator<<(QDataStream &stream, const TaskInfo &info)
{
    stream << info.id << info.title << info.deadline << info.text << info.executorName << info.creatorName
           << info.auditorName;
    writeList(stream, info.files);
    writeList(stream, info.texts);
    return stream;
}

QDataStream &operator>>(QDataStream &stream, TaskInfo &info)
{
    stream >> info.id >> info.title;
    readDateTime(stream, info.deadline);
    return stream >> info.text >> info.executorName >> info.creatorName >> info.auditorName >> info.files
        >> info.texts;
}

QDataStream &operator>>(QDataStream &stream, QList<Task> &tasks)
{
    return readList(stream, tasks);
}

QDataStream &operator>>(QDataStream &stream, QList<Attachment> &attachments)
{
    return readList(stream, attachments);
}

QDataStream &operator>>(QDataStream &stream, QList<Keyword> &keywords)
{
    return readList(stream, keywords);
}

QDataStream &operator>>(QDataStream &stream, QList<TextTask> &textTasks)
{
    return readList(stream, textTasks);
}

namespace {

// Before any settings file is opened: Qt frees in reverse order at the end, and could not
// free the stored records without their types.
void registerRecordTypes()
{
    // The names go into the settings files with every stored value.
    qRegisterMetaType<Task>("Task");
    qRegisterMetaTypeStreamOperators<Task>("Task");
    qRegisterMetaType<QList<Task>>("QList<Task>");
    qRegisterMetaTypeStreamOperators<QList<Task>>("QList<Task>");
    qRegisterMetaType<Attachment>("Attachment");
    qRegisterMetaTypeStreamOperators<Attachment>("Attachment");
    qRegisterMetaType<Keyword>("Keyword");
    qRegisterMetaTypeStreamOperators<Keyword>("Keyword");
    qRegisterMetaType<QList<Keyword>>("QList<Keyword>");
    qRegisterMetaTypeStreamOperators<QList<Keyword>>("QList<Keyword>");
    qRegisterMetaType<TextTask>("TextTask");
    qRegisterMetaTypeStreamOperators<TextTask>("TextTask");
    qRegisterMetaType<QList<Attachment>>("QList<Attachment>");
    qRegisterMetaTypeStreamOperators<QList<Attachment>>("QList<Attachment>");
    qRegisterMetaType<QList<TextTask>>("QList<TextTask>");
    qRegisterMetaTypeStreamOperators<QList<TextTask>>("QList<TextTask>");
    qRegisterMetaType<TaskInfo>("TaskInfo");
    qRegisterMetaTypeStreamOperators<TaskInfo>("TaskInfo");
}
Q_CONSTRUCTOR_FUNCTION(registerRecordTypes)

} // namespace

// Not with QDateTime::fromString, which takes several microseconds: a list of tens of
// thousands of tasks holds twice as many of these.
QDateTime parseServiceDateTime(QStringView text, const QDateTime &expected)
{
    if (text.size() != kServiceDateTimeLength)
        return {};
    const QChar *c = text.data();
    if (c[4] != QLatin1Char('-') || c[7] != QLatin1Char('-') || c[10] != QLatin1Char(' ')
        || c[13] != QLatin1Char(':') || c[16] != QLatin1Char(':'))
        return {};
    const int year = digits(c, 4);
    // -1 stands for "no digits" but is also a valid year.
    if (year < 0)
        return {};
    const QDate date(year, digits(c + 5, 2), digits(c + 8, 2));
    const QTime time(digits(c + 11, 2), digits(c + 14, 2), digits(c + 17, 2));
    if (!date.isValid() || !time.isValid())
        return {};
    if (expected.isValid() && expected.timeSpec() == Qt::LocalTime && expected.date() == date
        && expected.time() == time)
        return expected;
    return QDateTime(date, time);
}

QString serviceDateTimeText(const QDateTime &dateTime)
{
    return QLocale::c().toString(dateTime, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}
