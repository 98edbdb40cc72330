#pragma once

#include "widgets/listmodel.h"

#include <QDateTime>
#include <QIcon>

#include <functional>

// A team's tasks as rows: the blocking ones first, otherwise in the service's
// order.
class TaskListModel final : public ListModel<Task>
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TaskListModel)

public:
    enum Role {
        IdRole = Qt::UserRole,
        DeadlineRole, // text
        OverdueRole, // text; empty before the deadline
        CurrentRole, // bool: time is counted on this task
        OfferedRole // bool: time may be counted on this task
    };
    using IconOf = std::function<QIcon(const Task &)>;

    explicit TaskListModel(IconOf iconOf, QObject *parent = nullptr);

    // The same tasks again leave the rows as they are.
    void setTasks(const QList<Task> &tasks);
    void setCurrentTask(const QString &taskId);
    // The moment that deadlines are compared with.
    void setNow(const QDateTime &now);

    // True when tasks are held back because others block.
    bool isRestricted() const { return m_restricted; }
    // False when there is nothing but the entry for unlisted work.
    bool hasListedTasks() const;
    QModelIndex indexOf(const QString &taskId) const;

private:
    QVariant dataOf(const Task &task, int role) const;
    bool isOffered(const Task &task) const { return !m_restricted || task.isBlocking(); }
    QString deadlineText(const Task &task) const;
    QString overdueTextOf(const Task &task) const;
    QString toolTip(const Task &task) const;
    QString spokenText(const Task &task) const;
    void announceChange(const QString &taskId);

    IconOf m_iconOf;
    QString m_currentTaskId;
    QDateTime m_now = QDateTime::currentDateTime();
    bool m_restricted = false;
};
