#pragma once

#include <QByteArray>

#include <optional>

// None when the bytes are not one whole gzip stream. Of a longer body than the limit only the
// beginning is unpacked, which is longer than that, too.
std::optional<QByteArray> unpackGzip(const QByteArray &packed, qint64 limit);
