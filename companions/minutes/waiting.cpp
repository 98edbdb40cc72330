#include "minutes/waiting.h"

#include "storage/activitycache.h"
#include "storage/cacherecord.h"
#include "storage/recordtime.h"

#include <QDirIterator>

namespace minutes {

Tally waitingReports(const QString &folder, const Period &period)
{
    constexpr int kTimeLength = 19;
    const QString prefix = QStringLiteral("json");
    Tally tally;
    QDirIterator files(folder, {prefix + QLatin1Char('*')}, QDir::Files | QDir::NoSymLinks);
    while (files.hasNext()) {
        const QString path = files.next();
        const QDateTime made = recordTime(files.fileName().mid(prefix.size(), kTimeLength));
        QByteArray bytes;
        if ((made.isValid() && !period.contains(made.date()))
            || ActivityCache::read(path, &bytes) != ActivityCache::Read::Ok)
            continue;
        const QVariantMap record = CacheRecord::parse(bytes);
        const QVariantMap body = record.value(CacheRecord::kBody).toMap();
        const auto text = [&body](const char *key) {
            return body.value(QString::fromLatin1(key)).toString();
        };
        if (!body.isEmpty() && !body.contains(CacheRecord::kFileName))
            ++tally[{record.value(CacheRecord::kTimestamp).toString(), text("team_id"), text("task_id"),
                     text("active").toInt()}];
    }
    return tally;
}

} // namespace minutes
