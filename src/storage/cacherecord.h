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

// Of a screenshot, though perhaps of one that was missed; all others are minutes.
bool isScreenshot(const QVariantMap &record);

// A new record's bytes.
QByteArray make(const QString &url, const QVariantMap &body, const QString &timestamp);

// Its url, timestamp and body, whose age has grown by the time since the record was made. The
// file is never rewritten: a record that is sent again ages from its creation each time.
QVariantMap aged(const QVariantMap &record);

} // namespace CacheRecord
