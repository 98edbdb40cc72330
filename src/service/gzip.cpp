#include "service/gzip.h"

#include <array>

#define ZLIB_CONST
#include <zlib.h>

namespace {

constexpr int kGzipOnly = 16; // added to the window's bits
constexpr std::size_t kStep = 64 * 1024;

} // namespace

std::optional<QByteArray> unpackGzip(const QByteArray &packed, qint64 limit)
{
    z_stream stream = {};
    stream.next_in = reinterpret_cast<const Bytef *>(packed.constData());
    stream.avail_in = static_cast<uInt>(packed.size());
    if (inflateInit2(&stream, MAX_WBITS + kGzipOnly) != Z_OK)
        return {};
    QByteArray body(""); // an empty one is not null
    std::array<char, kStep> step;
    int result = Z_OK;
    while (result == Z_OK && body.size() <= limit) {
        stream.next_out = reinterpret_cast<Bytef *>(step.data());
        stream.avail_out = kStep;
        result = inflate(&stream, Z_NO_FLUSH);
        body.append(step.data(), static_cast<int>(kStep - stream.avail_out));
    }
    inflateEnd(&stream);
    const bool isWhole = result == Z_STREAM_END && stream.avail_in == 0;
    return isWhole || body.size() > limit ? std::make_optional(body) : std::nullopt;
}
