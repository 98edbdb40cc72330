#pragma once

#include <QString>

// Settings keys fold and strip slashes; an id may hold any.

inline QString keyOfId(QString id)
{
    return id.replace(QLatin1Char('%'), QLatin1String("%25")).replace(QLatin1Char('/'), QLatin1String("%2F"));
}

inline QString idOfKey(QString key)
{
    return key.replace(QLatin1String("%2F"), QLatin1String("/"))
        .replace(QLatin1String("%25"), QLatin1String("%"));
}
