#include "minutes/names.h"

#include "model/records.h"
#include "storage/activitycache.h"
#include "storage/settingskey.h"
#include "storage/settingslines.h"

#include <QDataStream>
#include <QSettings>

namespace minutes {

namespace {

// Qt's reader trusts a file, and the client's own repairs what it reads.
QVariantMap storedValues(const QString &path)
{
    QByteArray bytes;
    QVariantMap values;
    if (ActivityCache::read(path, &bytes) != ActivityCache::Read::Ok || hasWrongChecksum(bytes)
        || validLines(bytes).size() != bytes.size())
        return values;
    const QSettings stored(path, QSettings::IniFormat);
    const QStringList keys = stored.allKeys();
    for (const QString &key : keys)
        values.insert(key, stored.value(key));
    return values;
}

} // namespace

QVariant storedValue(const QString &path, const QString &key)
{
    return storedValues(path).value(key);
}

Names::Names(const QString &userFolder, const QVector<Sum> &sums)
{
    qRegisterMetaTypeStreamOperators<QList<Task>>("QList<Task>");
    const QVariantMap teams = storedValues(userFolder + QStringLiteral("/teams.ini"));
    for (auto each = teams.cbegin(); each != teams.cend(); ++each)
        m_teams.insert(idOfKey(each.key()), each->toString());
    const QVariantMap lists = storedValues(userFolder + QStringLiteral("/tasks.ini"));
    for (auto each = lists.cbegin(); each != lists.cend(); ++each) {
        const QString teamId = idOfKey(each.key());
        const QList<Task> tasks = each->value<QList<Task>>();
        for (const Task &task : tasks)
            m_tasks.insert({teamId, task.id}, task.title);
    }
    // A task that was closed is in no list any more.
    QVariantMap infos;
    for (const Sum &sum : sums) {
        if (m_tasks.contains({sum.teamId, sum.taskId}))
            continue;
        if (infos.isEmpty()) {
            infos = storedValues(userFolder + QStringLiteral("/taskInfo.ini"));
            if (infos.isEmpty())
                break;
        }
        m_tasks.insert({sum.teamId, sum.taskId}, infos.value(keyOfId(sum.taskId)).value<TaskInfo>().title);
    }
}

} // namespace minutes
