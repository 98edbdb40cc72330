#pragma once

#include "localservice/world.h"

#include <optional>

namespace localservice {

// The text of the demonstration data, in Russian. Its times are relative, so that it is as
// fresh on every start.
QByteArray demoSeed();
World demoWorld(const QDateTime &now = QDateTime::currentDateTime());

// Reads a seed. Times are "yyyy-MM-dd HH:mm:ss" or relative to `now`: "-30m", "+2h", "+3d".
// On failure `error` says in Russian what is wrong and where.
std::optional<World> worldFromSeed(const QByteArray &json, const QDateTime &now, QString *error);

// The world of FOLDER/seed.json, which is made from the demonstration data when it is missing.
std::optional<World> loadWorld(const QString &folder, const QDateTime &now, QString *error);

} // namespace localservice
