#pragma once

#include <QLocale>
#include <QString>
#include <QStringList>

inline QString s(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

// A date or time in figures that every locale reads.
template <typename Moment>
QString figures(const Moment &moment, const char *format)
{
    return QLocale::c().toString(moment, s(format));
}

inline QStringList texts(std::initializer_list<const char *> utf8)
{
    QStringList list;
    for (const char *text : utf8)
        list.append(s(text));
    return list;
}
