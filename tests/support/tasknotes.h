#pragma once

#include "model/records.h"
#include "texts.h"

#include <QRegularExpression>

// "7!@3*2" is task 7 with a blocking mark, its deadline on 3 March and its last
// comment on 2 March; "~" stands before a blocking mark's text.
inline QList<Task> tasksFrom(const QString &notes)
{
    static const QRegularExpression pattern(s("^(\\d+)(?:(!)|~(\\w))?(?:@(\\d+))?(?:\\*(\\d+))?$"));
    QList<Task> tasks;
    const QStringList all = notes.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &note : all) {
        const QRegularExpressionMatch match = pattern.match(note);
        Task task;
        task.id = match.captured(1);
        task.title = QLatin1Char('T') + task.id;
        task.block = match.captured(2).isEmpty() ? match.captured(3) : s("1");
        if (!match.captured(4).isEmpty())
            task.deadline = QDateTime(QDate(2024, 3, match.captured(4).toInt()), QTime(18, 0));
        if (!match.captured(5).isEmpty())
            task.lastComment = QDateTime(QDate(2024, 3, match.captured(5).toInt()), QTime(9, 0));
        tasks.append(task);
    }
    return tasks;
}

// The service's reply: "1:7! 8" is team 1, by the name of C1, with notes of its tasks.
inline QByteArray listsReply(const QStringList &lists)
{
    QStringList teams;
    for (const QString &list : lists) {
        QStringList tasks;
        for (const Task &task : tasksFrom(list.section(QLatin1Char(':'), 1)))
            tasks.append(s(R"({"id":"%1","title":"%2","deadline":"%3","block":"%4","last_comment":"%5"})")
                             .arg(task.id, task.title, serviceDateTimeText(task.deadline), task.block,
                                  serviceDateTimeText(task.lastComment)));
        teams.append(s(R"({"id":"%1","name":"C%1","tasks":[%2]})")
                         .arg(list.section(QLatin1Char(':'), 0, 0), tasks.join(QLatin1Char(','))));
    }
    return QString(QLatin1Char('[') + teams.join(QLatin1Char(',')) + QLatin1Char(']')).toUtf8();
}
