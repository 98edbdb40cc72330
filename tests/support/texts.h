#pragma once

#include <QString>
#include <QStringList>

inline QString s(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

inline QStringList texts(std::initializer_list<const char *> utf8)
{
    QStringList list;
    for (const char *text : utf8)
        list.append(s(text));
    return list;
}
