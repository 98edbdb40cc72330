#pragma once

#include <QString>

// One team works without details fetched ahead, deadline tracking and requests
// for other deadlines.
inline bool isExemptTeam(const QString &teamId)
{
    return teamId == QLatin1String("2192");
}
