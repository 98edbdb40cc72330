#pragma once

#include <QString>

// One team has no prefetch of details, no deadline tracking and no requests for other
// deadlines.
inline bool isExemptTeam(const QString &teamId)
{
    return teamId == QLatin1String("2192");
}
