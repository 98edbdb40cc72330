#pragma once

#include <QByteArray>
#include <QString>
#include <QVariantMap>

// The keys of a cache record, and those of its body that storing and sending it need.
namespace CacheRecord {

const QString kVersion = QStringLiteral("version");
const QString kUrl = QStringLiteral("api-url");
const QString kBody = QStringLiteral("body");
const QString kTimestamp = QStringLiteral("timestamp");
const QString kPast = QStringLiteral("past");
const QString kFile = QStringLiteral("file");
const QString kFileName = QStringLiteral("fileName");

// Empty when the bytes are no record. Unlike a reply's body it is read beyond a NUL byte,
// which an id may contain.
QVariantMap parse(const QByteArray &bytes);

// Path of the screenshot that belongs to the record; empty when it has none.
QString pictureOf(const QVariantMap &record);

} // namespace CacheRecord
