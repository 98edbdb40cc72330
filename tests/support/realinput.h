#pragma once

#include "texts.h"

#include <QProcess>
#include <QString>

// Real input through the X server. Returns when the server has it.
inline bool xdotool(const QString &command, const QStringList &arguments)
{
    return QProcess::execute(s("xdotool"), QStringList{command} + arguments) == 0;
}

// Names of keys joined by "+", as in "ctrl+alt+p".
inline bool pressKeys(const QString &keys)
{
    return xdotool(s("key"), {keys});
}
