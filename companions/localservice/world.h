#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

namespace localservice {

struct Attachment
{
    QString id;
    QString fileName;
    QString originalName;
    QString size; // bytes, as text
};

struct Keyword
{
    QString id;
    QString phrase;
    QString count;
    QString count2;
};

struct TextAssignment
{
    QString id;
    QString title;
    QString text;
    QString minCount;
    QString page;
    QString task;
    QVector<Keyword> keywords;
};

struct TaskDetails
{
    QString text;
    QString executor;
    QString creator;
    QString auditor;
    QVector<Attachment> files;
    QVector<TextAssignment> texts;
};

struct Task
{
    QString id;
    QString title;
    QDateTime deadline{}; // invalid: the task has none
    QString block = QStringLiteral("0");
    QDateTime lastComment{}; // invalid: nobody has commented
    int importance = 0;
    TaskDetails details{};
};

struct Team
{
    QString id;
    QString name;
    QVector<Task> tasks{};
};

// Whole minutes of one day.
struct DayTotals
{
    int active = 0;
    int total = 0;
    QMap<QString, int> tasks{}; // by task id
};

struct User
{
    QString login;
    QString password;
    QStringList teams{}; // ids; empty: every team
    DayTotals worked{}; // what counts as worked on `workedOn` besides the received reports
    QDate workedOn{};

    bool sees(const QString &teamId) const { return teams.isEmpty() || teams.contains(teamId); }
};

// What the service knows: a plain value, copied in and out of the running service.
struct World
{
    QVector<User> users;
    QVector<Team> teams;
    QJsonArray versions; // the version description as it is served

    const User *user(const QString &login) const;
    const Team *team(const QString &teamId) const;
    const Task *task(const QString &taskId) const;
    Team *team(const QString &teamId);
    Task *task(const QString &taskId);
    // The team that holds the task, or null.
    const Team *teamOf(const QString &taskId) const;

    // These return false, and change nothing, when the id is empty, unknown, or taken already.
    bool addTeam(const Team &team);
    bool removeTeam(const QString &teamId);
    bool addTask(const QString &teamId, const Task &task);
    bool removeTask(const QString &taskId);
    // Sets the time of the last comment; clients get whole seconds.
    bool addComment(const QString &taskId, const QDateTime &when);
    bool setBlock(const QString &taskId, const QString &block);
    bool setDeadline(const QString &taskId, const QDateTime &deadline);

    // One entry for each version, in this order, with its download link.
    void setVersions(const QStringList &list);
};

} // namespace localservice
