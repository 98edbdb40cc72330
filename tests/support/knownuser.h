#pragma once

#include "texts.h"

#include <QDir>
#include <QSettings>

/// Writes what an earlier run leaves under a storage root: Anna is logged in and has chosen a task.
inline void leaveKnownUser(const QString &root, bool isTracking)
{
    const QString folder = root + s("/.orvana/");
    const QString user = s("anna@orvana.example");
    QDir().mkpath(folder + user + s("/activity"));
    QSettings(folder + s("config.ini"), QSettings::IniFormat).setValue(s("lastLogin"), user);
    QSettings session(folder + user + s("/session.ini"), QSettings::IniFormat);
    session.setValue(s("password"), s("orvana"));
    session.setValue(s("logged"), true);
    session.setValue(s("active"), isTracking);
    session.setValue(s("teamID"), s("17"));
    session.setValue(s("taskID"), s("1702"));
}
