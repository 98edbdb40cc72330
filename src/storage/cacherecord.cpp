#include "storage/cacherecord.h"

#include "model/json.h"
#include "storage/recordtime.h"

#include <QTextCodec>

namespace {

const QString kRecordVersion = QStringLiteral("0.1");

// In unsigned 32-bit seconds, as every client before this one counted.
quint32 ageInSeconds(const QString &timestamp)
{
    const auto now = static_cast<quint32>(QDateTime::currentSecsSinceEpoch());
    const auto then = static_cast<quint32>(recordTime(timestamp).toSecsSinceEpoch());
    return now - then;
}

} // namespace

QVariantMap CacheRecord::parse(const QByteArray &bytes)
{
    return QtJson::parse(QTextCodec::codecForName("UTF-8")->toUnicode(bytes)).toMap();
}

QString CacheRecord::pictureOf(const QVariantMap &record)
{
    return record.value(kBody).toMap().value(kFileName).toString();
}

bool CacheRecord::isScreenshot(const QVariantMap &record)
{
    return record.value(kBody).toMap().contains(kFileName);
}

QByteArray CacheRecord::make(const QString &url, const QVariantMap &body, const QString &timestamp)
{
    return QtJson::serialize(
        QVariantMap{{kVersion, kRecordVersion}, {kUrl, url}, {kBody, body}, {kTimestamp, timestamp}});
}

QVariantMap CacheRecord::aged(const QVariantMap &record)
{
    QVariantMap body = record.value(kBody).toMap();
    const QVariant timestamp = record.value(kTimestamp);
    // Unsigned, for a damaged record may hold any number.
    const auto past = static_cast<quint64>(body.value(kPast).toString().toLongLong());
    body.insert(kPast, QString::number(static_cast<qint64>(past + ageInSeconds(timestamp.toString()))));
    return {{kUrl, record.value(kUrl)}, {kTimestamp, timestamp}, {kBody, body}};
}
