#pragma once

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringView>
#include <QUrl>

class QDataStream;

// Ids are texts exactly as the service sends them. Date-times are local time;
// an invalid one means "none". A default record is empty in every member. Records are
// equal when every member is; only tasks are equal by their ids.

// The id of the entry for work that belongs to no listed task; every team has one.
constexpr QLatin1String kCatchAllId("0", 1);

struct Team
{
    QString id;
    QString name;

    bool operator==(const Team &other) const { return id == other.id && name == other.name; }
};

struct Task
{
    QString id;
    QString title;
    QDateTime deadline;
    QString block;
    QDateTime lastComment;
    qint32 importance = 0;

    bool isBlocking() const;
    bool isUrgent() const { return importance >= 1; }
    bool isCatchAll() const { return id == kCatchAllId; }
    static Task catchAll();

    bool operator==(const Task &other) const { return id == other.id; }
    // Member by member.
    bool hasSameContents(const Task &other) const;
};

struct Attachment
{
    QString id;
    QString filename;
    QString filenameOrig;
    QString size; // bytes

    bool operator==(const Attachment &other) const;
};

struct Keyword
{
    QString id;
    QString keyword;
    QString count;
    QString count2;

    bool operator==(const Keyword &other) const;
};

struct TextTask
{
    QString id;
    QString text;
    QString title;
    QString minCount;
    QUrl page;
    QString task;
    QList<Keyword> keywords;

    bool operator==(const TextTask &other) const;
};

struct TaskInfo
{
    QString id;
    QString title;
    QDateTime deadline;
    QString text;
    QString executorName;
    QString creatorName;
    QString auditorName;
    QList<Attachment> files;
    QList<TextTask> texts;

    bool operator==(const TaskInfo &other) const;
};

// Invalid date-times are all the same one.
bool isSameMoment(const QDateTime &one, const QDateTime &other);

// Member by member, whatever == compares.
template <typename Record>
bool haveSameContents(const QList<Record> &one, const QList<Record> &other)
{
    return one == other;
}
bool haveSameContents(const QList<Task> &one, const QList<Task> &other);

Q_DECLARE_METATYPE(Task)
Q_DECLARE_METATYPE(Attachment)
Q_DECLARE_METATYPE(Keyword)
Q_DECLARE_METATYPE(TextTask)
Q_DECLARE_METATYPE(TaskInfo)

// The stream form is what the settings files of a user hold: it never changes.
// Reading damaged data leaves the stream in an error state and a record with
// what could be read; a damaged list comes back empty.
QDataStream &operator<<(QDataStream &stream, const Task &task);
QDataStream &operator>>(QDataStream &stream, Task &task);
QDataStream &operator<<(QDataStream &stream, const Attachment &attachment);
QDataStream &operator>>(QDataStream &stream, Attachment &attachment);
QDataStream &operator<<(QDataStream &stream, const Keyword &keyword);
QDataStream &operator>>(QDataStream &stream, Keyword &keyword);
QDataStream &operator<<(QDataStream &stream, const TextTask &textTask);
QDataStream &operator>>(QDataStream &stream, TextTask &textTask);
QDataStream &operator<<(QDataStream &stream, const TaskInfo &info);
QDataStream &operator>>(QDataStream &stream, TaskInfo &info);

// Used instead of Qt's own list readers, which reserve whatever count a damaged
// file claims.
QDataStream &operator>>(QDataStream &stream, QList<Task> &tasks);
QDataStream &operator>>(QDataStream &stream, QList<Attachment> &attachments);
QDataStream &operator>>(QDataStream &stream, QList<Keyword> &keywords);
QDataStream &operator>>(QDataStream &stream, QList<TextTask> &textTasks);

// "yyyy-MM-dd HH:mm:ss" in local time; invalid when the text is anything else. An expected
// result that is right is returned itself: a new one has to consult the time zone.
QDateTime parseServiceDateTime(QStringView text, const QDateTime &expected = QDateTime());
QString serviceDateTimeText(const QDateTime &dateTime);
