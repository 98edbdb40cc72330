#pragma once

#include "localservice/request.h"
#include "localservice/world.h"

#include <QJsonObject>

namespace localservice {

QJsonArray teamsJson(const World &world, const User &user);
QJsonArray teamsAndTasksJson(const World &world, const User &user);
QJsonObject detailsJson(const Task &task);

// A page without a script; title and text may hold anything.
Reply textPage(int status, const QString &title, const QString &text = {});
// The page of one task; null: there is no such task.
Reply taskPage(const Task *task);
Reply downloadPage(const QJsonArray &versions);

// A file that is built in.
QByteArray resource(const QString &name);

// "yyyy-MM-dd HH:mm:ss", empty for an invalid time.
QString wireTime(const QDateTime &when);
QDateTime fromWireTime(const QString &text);

} // namespace localservice
