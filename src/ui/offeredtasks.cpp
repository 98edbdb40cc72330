#include "ui/offeredtasks.h"

#include "service/listchanges.h"
#include "ui/simplemarkup.h"
#include "ui/tooltips.h"

#include <algorithm>
#include <utility>

namespace {

QString itemText(const Task &task)
{
    const QString title = titleLine(task.title);
    if (!task.deadline.isValid())
        return title;
    return title + QStringLiteral(" | Истекает: ") + serviceDateTimeText(task.deadline);
}

} // namespace

OfferedTasks::OfferedTasks(IconOf iconOf, QObject *parent)
    : QAbstractListModel(parent)
    , m_iconOf(std::move(iconOf))
{ }

void OfferedTasks::setTasks(const QList<Task> &tasks)
{
    if (haveSameContents(tasks, m_tasks))
        return;
    beginResetModel();
    m_tasks = tasks;
    endResetModel();
}

int OfferedTasks::rowOf(const QString &taskId) const
{
    const auto found = std::find_if(m_tasks.cbegin(), m_tasks.cend(),
                                    [&taskId](const Task &task) { return task.id == taskId; });
    return found == m_tasks.cend() ? -1 : static_cast<int>(found - m_tasks.cbegin());
}

int OfferedTasks::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_tasks.size();
}

QVariant OfferedTasks::data(const QModelIndex &index, int role) const
{
    // A box without a current item asks for one.
    if (!index.isValid() || index.row() >= m_tasks.size())
        return {};
    const Task &task = m_tasks.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return itemText(task);
    case Qt::DecorationRole:
        return m_iconOf(task);
    case Qt::ToolTipRole:
        return literalToolTip(itemText(task));
    case Qt::UserRole:
        return task.id;
    default:
        return {};
    }
}
