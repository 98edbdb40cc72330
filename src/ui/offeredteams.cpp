#include "ui/offeredteams.h"

#include "ui/simplemarkup.h"
#include "ui/tooltips.h"

#include <algorithm>

void OfferedTeams::setTeams(const QList<Team> &teams)
{
    const auto isSame = [](const Team &a, const Team &b) { return a.id == b.id && a.name == b.name; };
    if (teams.isSharedWith(m_teams)
        || (teams.size() == m_teams.size()
            && std::equal(teams.cbegin(), teams.cend(), m_teams.cbegin(), isSame)))
        return;
    beginResetModel();
    m_teams = teams;
    endResetModel();
}

int OfferedTeams::rowOf(const QString &teamId) const
{
    const auto found = std::find_if(m_teams.cbegin(), m_teams.cend(),
                                    [&teamId](const Team &team) { return team.id == teamId; });
    return found == m_teams.cend() ? -1 : static_cast<int>(found - m_teams.cbegin());
}

int OfferedTeams::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_teams.size();
}

QVariant OfferedTeams::data(const QModelIndex &index, int role) const
{
    // A box without a current item asks for one.
    if (!index.isValid() || index.row() >= m_teams.size())
        return {};
    const Team &team = m_teams.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return titleLine(team.name);
    case Qt::ToolTipRole:
        return literalToolTip(team.name);
    case Qt::UserRole:
        return team.id;
    default:
        return {};
    }
}
