#pragma once

#include "model/records.h"

#include <QAbstractListModel>
#include <QIcon>

#include <functional>

// The tasks that the chooser offers. An item is put together only when it is looked
// at, so that a team of thousands opens at once.
class OfferedTasks final : public QAbstractListModel
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OfferedTasks)

public:
    using IconOf = std::function<QIcon(const Task &)>;

    explicit OfferedTasks(IconOf iconOf, QObject *parent = nullptr);

    // The same tasks again leave the items as they are, and an open list open.
    void setTasks(const QList<Task> &tasks);
    // The row of the task, -1 when it is not offered.
    int rowOf(const QString &taskId) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    // Qt::UserRole is the task's id.
    QVariant data(const QModelIndex &index, int role) const override;

private:
    IconOf m_iconOf;
    QList<Task> m_tasks;
};
