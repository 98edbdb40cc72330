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
    : QAbstractListModel(parent)
    , m_iconOf(std::move(iconOf))
{ }

void TaskListModel::setTasks(const QList<Task> &tasks)
{
    if (haveSameContents(tasks, m_given))
        return;
    beginResetModel();
    m_given = tasks;
    m_tasks = TaskForm::filterBlockTasks(tasks);
    m_restricted = m_tasks.size() != tasks.size();
    if (m_restricted)
        std::copy_if(tasks.cbegin(), tasks.cend(), std::back_inserter(m_tasks),
                     [](const Task &task) { return !task.isBlocking(); });
    endResetModel();
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
    if (!m_tasks.isEmpty())
        emit dataChanged(index(0), index(m_tasks.size() - 1), {DeadlineRole, OverdueRole});
}

bool TaskListModel::hasListedTasks() const
{
    return std::any_of(m_tasks.cbegin(), m_tasks.cend(), [](const Task &task) { return !task.isCatchAll(); });
}

QModelIndex TaskListModel::indexOf(const QString &taskId) const
{
    const auto found = std::find_if(m_tasks.cbegin(), m_tasks.cend(),
                                    [&taskId](const Task &task) { return task.id == taskId; });
    return found == m_tasks.cend() ? QModelIndex() : index(static_cast<int>(found - m_tasks.cbegin()));
}

int TaskListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_tasks.size();
}

QVariant TaskListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_tasks.size())
        return {};
    const Task &task = m_tasks.at(index.row());
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
