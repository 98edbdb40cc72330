#pragma once

#include "localservice/request.h"
#include "localservice/world.h"

#include <QJsonObject>

namespace localservice {

QJsonArray teamsJson(const World &world, const User &user);
QJsonArray teamsAndTasksJson(const World &world, const User &user);
QJsonObject detailsJson(const Task &task);

/// The page of one task; null: there is no such task.
Reply taskPage(const Task *task);
Reply downloadPage(const QJsonArray &versions);
Reply messagePage(int status, const QString &message);

/// A file that is built in.
QByteArray resource(const QString &name);

/// A whole HTML document; `content` is markup, `title` is text.
QByteArray htmlDocument(const QString &title, const QString &content);

/// "yyyy-MM-dd HH:mm:ss", empty for an invalid time.
QString wireTime(const QDateTime &when);
QDateTime fromWireTime(const QString &text);

} // namespace localservice
