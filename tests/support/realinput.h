#pragma once

#include <QProcess>
#include <QString>

// Real input through the X server. Returns when the server has it.
inline bool xdotool(const QString &command, const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("xdotool"), QStringList{command} + arguments) == 0;
}

// Names of keys joined by "+", as in "ctrl+alt+p".
inline bool pressKeys(const QString &keys)
{
    return xdotool(QStringLiteral("key"), {keys});
}
