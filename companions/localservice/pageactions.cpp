#include "localservice/pageactions.h"

#include <QHash>

#include <algorithm>

namespace localservice {

namespace {

constexpr int kMaxTeamsAndTasks = 10000; // made by forms; seeds and programs may have more
constexpr int kMaxId = 999999999;
const QString kNoSuchTask = QStringLiteral("Такой задачи уже нет");
const QString kNoSuchTeam = QStringLiteral("Такой команды уже нет");

QString field(const Pairs &form, const QString &name)
{
    return valueOf(form, name).trimmed();
}

QString taskId(const Pairs &form)
{
    return valueOf(form, QStringLiteral("task"));
}

QString doneOr(bool done, const QString &problem)
{
    return done ? QString() : problem;
}

// An empty field means "no deadline".
bool readDeadline(const Pairs &form, QDateTime *deadline)
{
    const QString given = field(form, QStringLiteral("deadline"));
    *deadline = QDateTime::fromString(given, QStringLiteral("yyyy-MM-ddTHH:mm"));
    return given.isEmpty() || deadline->isValid();
}

// Ignores ids that leave no room above them.
template <typename List>
int largestId(const List &list)
{
    int largest = 0;
    for (const auto &item : list) {
        const int id = item.id.toInt();
        largest = id < kMaxId ? std::max(largest, id) : largest;
    }
    return largest;
}

QString freeTaskId(const World &world)
{
    int largest = 0;
    for (const Team &team : world.teams)
        largest = std::max(largest, largestId(team.tasks));
    return QString::number(largest + 1);
}

bool isFull(const World &world)
{
    int count = world.teams.size();
    for (const Team &team : world.teams)
        count += team.tasks.size();
    return count >= kMaxTeamsAndTasks;
}

QString addTask(const Pairs &form, const ControlState &state)
{
    Task task;
    task.id = freeTaskId(state.world);
    task.title = field(form, QStringLiteral("title"));
    task.importance = hasName(form, QStringLiteral("important")) ? 1 : 0;
    task.block = hasName(form, QStringLiteral("block")) ? QStringLiteral("1") : QStringLiteral("0");
    task.details.text = field(form, QStringLiteral("text"));
    if (task.title.isEmpty())
        return QStringLiteral("Укажите название задачи");
    if (!readDeadline(form, &task.deadline))
        return QStringLiteral("Неверная дата дедлайна");
    if (isFull(state.world))
        return QStringLiteral("Слишком много команд и задач");
    return doneOr(state.world.addTask(valueOf(form, QStringLiteral("team")), task), kNoSuchTeam);
}

QString removeTask(const Pairs &form, const ControlState &state)
{
    return doneOr(state.world.removeTask(taskId(form)), kNoSuchTask);
}

QString addComment(const Pairs &form, const ControlState &state)
{
    return doneOr(state.world.addComment(taskId(form), QDateTime::currentDateTime()), kNoSuchTask);
}

QString setBlock(const Pairs &form, const ControlState &state)
{
    return doneOr(state.world.setBlock(taskId(form), valueOf(form, QStringLiteral("block"))), kNoSuchTask);
}

QString setDeadline(const Pairs &form, const ControlState &state)
{
    QDateTime deadline;
    if (!readDeadline(form, &deadline))
        return QStringLiteral("Неверная дата дедлайна");
    return doneOr(state.world.setDeadline(taskId(form), deadline), kNoSuchTask);
}

// Otherwise a user who sees only some teams would not see it.
QString addTeam(const Pairs &form, const ControlState &state)
{
    Team team;
    team.id = field(form, QStringLiteral("id"));
    team.name = field(form, QStringLiteral("name"));
    if (team.id.isEmpty())
        team.id = QString::number(largestId(state.world.teams) + 1);
    if (team.name.isEmpty())
        return QStringLiteral("Укажите название команды");
    if (isFull(state.world))
        return QStringLiteral("Слишком много команд и задач");
    if (!state.world.addTeam(team))
        return QStringLiteral("Команда с таким номером уже есть");
    for (User &user : state.world.users) {
        if (!user.sees(team.id))
            user.teams.append(team.id);
    }
    return {};
}

QString removeTeam(const Pairs &form, const ControlState &state)
{
    return doneOr(state.world.removeTeam(valueOf(form, QStringLiteral("team"))), kNoSuchTeam);
}

QString setVersions(const Pairs &form, const ControlState &state)
{
    QStringList versions{field(form, QStringLiteral("version")), field(form, QStringLiteral("version2"))};
    versions.removeAll(QString());
    state.world.setVersions(versions);
    return {};
}

const QHash<QString, Outage> &outages()
{
    static const QHash<QString, Outage> names{{QStringLiteral("none"), Outage::None},
                                              {QStringLiteral("unavailable"), Outage::Unavailable},
                                              {QStringLiteral("dropped"), Outage::Dropped}};
    return names;
}

QString setOutage(const Pairs &form, const ControlState &state)
{
    const auto mode = outages().constFind(valueOf(form, QStringLiteral("mode")));
    if (mode == outages().constEnd())
        return QStringLiteral("Неизвестный вид сбоя");
    state.outage = *mode;
    return {};
}

} // namespace

QString applyControl(const QString &action, const Pairs &form, const ControlState &state)
{
    using Apply = QString (*)(const Pairs &, const ControlState &);
    static const QHash<QString, Apply> actions{
        {QStringLiteral("add-task"), addTask},         {QStringLiteral("remove-task"), removeTask},
        {QStringLiteral("add-comment"), addComment},   {QStringLiteral("set-block"), setBlock},
        {QStringLiteral("set-deadline"), setDeadline}, {QStringLiteral("add-team"), addTeam},
        {QStringLiteral("remove-team"), removeTeam},   {QStringLiteral("set-versions"), setVersions},
        {QStringLiteral("set-outage"), setOutage},
    };
    const Apply apply = actions.value(action);
    return apply ? apply(form, state) : QStringLiteral("Неизвестное действие");
}

QString outageName(Outage outage)
{
    return outages().key(outage);
}

} // namespace localservice
