#include "ui/tasklistmodel.h"

#include "base/timetexts.h"
#include "ui/taskform.h"
#include "widgets/simplemarkup.h"
#include "widgets/tooltips.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

const QString kHeldBack = QStringLiteral("Сначала нужно выполнить блокирующие задачи");

} // namespace

TaskListModel::TaskListModel(IconOf iconOf, QObject *parent)
    : ListModel([this](const Task &task, int role) { return dataOf(task, role); }, parent)
    , m_iconOf(std::move(iconOf))
{ }

void TaskListModel::setTasks(const QList<Task> &tasks)
{
    QList<Task> rows = TaskForm::filterBlockTasks(tasks);
    m_restricted = rows.size() != tasks.size();
    if (m_restricted)
        std::copy_if(tasks.cbegin(), tasks.cend(), std::back_inserter(rows),
                     [](const Task &task) { return !task.isBlocking(); });
    setRecords(rows);
}

void TaskListModel::setCurrentTask(const QString &taskId)
{
    if (taskId == m_currentTaskId)
        return;
    const QString before = std::exchange(m_currentTaskId, taskId);
    announceChange(before);
    announceChange(taskId);
}

void TaskListModel::announceChange(const QString &taskId)
{
    const QModelIndex changed = indexOf(taskId);
    if (changed.isValid())
        emit dataChanged(changed, changed);
}

void TaskListModel::setNow(const QDateTime &now)
{
    m_now = now;
    if (rowCount() > 0)
        emit dataChanged(index(0), index(rowCount() - 1), {DeadlineRole, OverdueRole});
}

bool TaskListModel::hasListedTasks() const
{
    return std::any_of(records().cbegin(), records().cend(),
                       [](const Task &task) { return !task.isCatchAll(); });
}

QModelIndex TaskListModel::indexOf(const QString &taskId) const
{
    return index(rowOf(taskId)); // an invalid one for row -1
}

QVariant TaskListModel::dataOf(const Task &task, int role) const
{
    switch (role) {
    case Qt::DisplayRole:
        return titleLine(task.title);
    case Qt::DecorationRole:
        return m_iconOf(task);
    case Qt::ToolTipRole:
        return toolTip(task);
    case Qt::AccessibleTextRole:
        return spokenText(task);
    case IdRole:
        return task.id;
    case DeadlineRole:
        return deadlineText(task);
    case OverdueRole:
        return overdueTextOf(task);
    case CurrentRole:
        return task.id == m_currentTaskId;
    case OfferedRole:
        return isOffered(task);
    default:
        return {};
    }
}

QString TaskListModel::deadlineText(const Task &task) const
{
    if (!task.deadline.isValid())
        return QStringLiteral("Без срока");
    return (task.deadline > m_now ? QStringLiteral("Истекает: ") : QStringLiteral("Истёк срок: "))
        + serviceDateTimeText(task.deadline);
}

QString TaskListModel::overdueTextOf(const Task &task) const
{
    if (!task.deadline.isValid() || task.deadline > m_now)
        return {};
    const QString text = overdueText(task.deadline, m_now).simplified();
    return QStringLiteral("Просрочено: ") + (text.isEmpty() ? QStringLiteral("меньше минуты") : text);
}

QString TaskListModel::toolTip(const Task &task) const
{
    return literalToolTip(isOffered(task) ? task.title
                                          : QString(task.title + QStringLiteral(" — ") + kHeldBack));
}

QString TaskListModel::spokenText(const Task &task) const
{
    QStringList parts{titleLine(task.title)};
    if (task.id == m_currentTaskId)
        parts.append(QStringLiteral("текущая задача"));
    if (task.isBlocking())
        parts.append(QStringLiteral("блокирующая"));
    parts.append(deadlineText(task));
    const QString overdue = overdueTextOf(task);
    if (!overdue.isEmpty())
        parts.append(overdue);
    if (!isOffered(task))
        parts.append(kHeldBack);
    return parts.join(QStringLiteral(", "));
}
