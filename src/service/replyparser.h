#pragma once

#include "model/records.h"

#include <QByteArray>
#include <QList>
#include <QTime>
#include <QVariantMap>

// From the bodies of replies to records. A body is read up to its first NUL
// byte; what is missing or of another type comes out empty, never as an error.
// Lists are cut at lengths that no real service reaches, so that a reply cannot fill the
// memory: leftOut counts the elements that were left out.

class TaskLists;

struct TeamTasks
{
    Team team;
    QList<Task> tasks; // the catch-all entry is the last
};

struct TaskAnswer
{
    QString status;
    QString message; // instead of the task when that was refused
    TaskInfo task;
    int leftOut = 0;
};

struct DayTotals
{
    QTime active;
    QTime total;
    QTime task;
};

// Null for an empty body.
QString textOfBody(const QByteArray &body);

// Teams without an id are skipped. Anything but a list gives no teams. The result shares
// memory with the known lists where they are the same: an unchanged list is the known one.
QList<TeamTasks> parseTeamsAndTasks(const QByteArray &body, const TaskLists &known, int *leftOut = nullptr);

TaskAnswer parseTaskAnswer(const QByteArray &body);

// The top-level object; empty when the body is anything else.
QVariantMap parseObject(const QByteArray &body);

// Minutes become times of day and wrap at 24 hours; anything but a whole number is 0.
DayTotals parseDayTotals(const QVariantMap &totals);

// A body as text for the log, cut when it is very long.
QString bodyForLog(const QByteArray &body);
