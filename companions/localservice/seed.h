#pragma once

#include "localservice/world.h"

#include <optional>

namespace localservice {

// The demonstration data, in Russian, with times relative to the start.
QByteArray demoSeed();
World demoWorld(const QDateTime &now = QDateTime::currentDateTime());

// Reads a seed. Times are "yyyy-MM-dd HH:mm:ss" or relative to `now`: "-30m", "+2h", "+3d".
// On failure `error` has the problem and its place, in Russian.
std::optional<World> worldFromSeed(const QByteArray &json, const QDateTime &now, QString *error);

// The world of FOLDER/seed.json. Writes that file from the demonstration data when it is missing.
std::optional<World> loadWorld(const QString &folder, const QDateTime &now, QString *error);

} // namespace localservice
