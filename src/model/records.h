#pragma once

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringView>
#include <QUrl>

class QDataStream;

// Ids are texts exactly as the service sends them. Date-times are local time;
// an invalid one means "none". A default record is empty in every member.

struct Team
{
    QString id;
    QString name;
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
    // The entry for work that belongs to no listed task; every team has one.
    bool isCatchAll() const;
    static Task catchAll();

    // Tasks are the same task when their ids are equal, whatever else differs.
    bool operator==(const Task &other) const { return id == other.id; }
    bool hasSameContents(const Task &other) const;
};

struct Attachment
{
    QString id;
    QString filename;
    QString filenameOrig;
    QString size; // bytes
};

struct Keyword
{
    QString id;
    QString keyword;
    QString count;
    QString count2;
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
};

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

// Preferred over Qt's own list readers, which reserve whatever count a damaged
// file claims.
QDataStream &operator>>(QDataStream &stream, QList<Task> &tasks);
QDataStream &operator>>(QDataStream &stream, QList<Attachment> &attachments);
QDataStream &operator>>(QDataStream &stream, QList<Keyword> &keywords);
QDataStream &operator>>(QDataStream &stream, QList<TextTask> &textTasks);

// Makes the records usable in variants, queued signals and settings files.
void registerRecordTypes();

// "yyyy-MM-dd HH:mm:ss" in local time; invalid when the text is anything else. A likely
// result that is right is handed out again: a new one costs a look at the time zone.
QDateTime parseServiceDateTime(QStringView text, const QDateTime &likely = QDateTime());
QString serviceDateTimeText(const QDateTime &dateTime);
