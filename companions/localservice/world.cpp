#include "localservice/world.h"

#include <QJsonObject>

#include <algorithm>

namespace localservice {

namespace {

template <typename List>
auto withId(List &list, const QString &id) -> decltype(list.data())
{
    const auto found =
        std::find_if(list.begin(), list.end(), [&id](const auto &item) { return item.id == id; });
    return found == list.end() ? nullptr : &*found;
}

} // namespace

const User *World::user(const QString &login) const
{
    const auto found =
        std::find_if(users.begin(), users.end(), [&login](const User &user) { return user.login == login; });
    return found == users.end() ? nullptr : &*found;
}

const Team *World::team(const QString &teamId) const
{
    return withId(teams, teamId);
}

Team *World::team(const QString &teamId)
{
    return withId(teams, teamId);
}

const Team *World::teamOf(const QString &taskId) const
{
    const auto found = std::find_if(teams.begin(), teams.end(), [&taskId](const Team &team) {
        return withId(team.tasks, taskId) != nullptr;
    });
    return found == teams.end() ? nullptr : &*found;
}

const Task *World::task(const QString &taskId) const
{
    const Team *holder = teamOf(taskId);
    return holder ? withId(holder->tasks, taskId) : nullptr;
}

Task *World::task(const QString &taskId)
{
    for (Team &each : teams) {
        if (Task *found = withId(each.tasks, taskId))
            return found;
    }
    return nullptr;
}

bool World::addTeam(const Team &added)
{
    if (added.id.isEmpty() || team(added.id))
        return false;
    teams.append(added);
    return true;
}

bool World::removeTeam(const QString &teamId)
{
    const Team *found = team(teamId);
    if (!found)
        return false;
    teams.removeAt(static_cast<int>(found - teams.constData()));
    return true;
}

bool World::addTask(const QString &teamId, const Task &added)
{
    Team *holder = team(teamId);
    if (!holder || added.id.isEmpty() || teamOf(added.id))
        return false;
    holder->tasks.append(added);
    return true;
}

bool World::removeTask(const QString &taskId)
{
    for (Team &each : teams) {
        if (const Task *found = withId(each.tasks, taskId)) {
            each.tasks.removeAt(static_cast<int>(found - each.tasks.constData()));
            return true;
        }
    }
    return false;
}

bool World::addComment(const QString &taskId, const QDateTime &when)
{
    Task *found = task(taskId);
    if (found)
        found->lastComment = when;
    return found != nullptr;
}

bool World::setBlock(const QString &taskId, const QString &block)
{
    Task *found = task(taskId);
    if (found)
        found->block = block;
    return found != nullptr;
}

bool World::setDeadline(const QString &taskId, const QDateTime &deadline)
{
    Task *found = task(taskId);
    if (found)
        found->deadline = deadline;
    return found != nullptr;
}

void World::setVersions(const QStringList &list)
{
    versions = QJsonArray();
    for (const QString &version : list) {
        versions.append(
            QJsonObject{{QStringLiteral("version"), version},
                        {QStringLiteral("url"),
                         QString(QStringLiteral("/monitor/orvana-") % version % QStringLiteral(".deb"))}});
    }
}

} // namespace localservice
