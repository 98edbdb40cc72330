#include "storage/cacherecord.h"

#include "model/json.h"

#include <QTextCodec>

QVariantMap CacheRecord::parse(const QByteArray &bytes)
{
    return QtJson::parse(QTextCodec::codecForName("UTF-8")->toUnicode(bytes)).toMap();
}

QString CacheRecord::pictureOf(const QVariantMap &record)
{
    return record.value(kBody).toMap().value(kFileName).toString();
}
