#pragma once

#include <QByteArray>

#include <optional>

// None when the bytes are not one whole gzip stream. Unpacking stops once the body is longer than
// the limit, in bytes.
std::optional<QByteArray> unpackGzip(const QByteArray &packed, qint64 limit);
