#pragma once

#include "texts.h"

#include <QProcess>
#include <QString>

// Real input through the X server, and what its windows say. Returns when the server has it.
inline bool xdotool(const QString &command, const QStringList &arguments)
{
    return QProcess::execute(s("xdotool"), QStringList{command} + arguments) == 0;
}

// Names of keys joined by "+", as in "ctrl+alt+p".
inline bool pressKeys(const QString &keys)
{
    return xdotool(s("key"), {keys});
}

inline QString outputOf(const QString &program, const QStringList &arguments)
{
    QProcess tool;
    tool.start(program, arguments);
    tool.waitForFinished();
    return QString::fromUtf8(tool.readAllStandardOutput());
}

// The visible windows of any program, by a pattern for their titles.
inline QStringList windowsNamed(const QString &title)
{
    return outputOf(s("xdotool"), {s("search"), s("--onlyvisible"), s("--name"), title})
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// A property as xprop prints its value; empty when the window does not have it.
inline QString propertyOf(const QString &window, const QString &name)
{
    return outputOf(s("xprop"), {s("-notype"), s("-id"), window, name}).section(s(" = "), 1).trimmed();
}

inline bool activateWindow(const QString &window)
{
    return xdotool(s("windowactivate"), {s("--sync"), window});
}
