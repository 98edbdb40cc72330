#include "service/requestbody.h"

#include "model/json.h"

#include <QUrl>

#include <algorithm>
#include <cstring>

namespace {

bool isUnreserved(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.'
        || c == '_' || c == '~';
}

// In one pass and one allocation: a screenshot's payload is megabytes long.
void appendPercentEncodedLatin1(const QByteArray &bytes, QByteArray &out)
{
    static const char hex[] = "0123456789ABCDEF";
    const auto appendEncoded = [&out](uchar byte) {
        out.append('%');
        out.append(hex[byte >> 4]);
        out.append(hex[byte & 0xF]);
    };
    for (const char c : bytes) {
        const auto byte = static_cast<uchar>(c);
        if (isUnreserved(c)) {
            out.append(c);
        } else if (byte < 0x80) {
            appendEncoded(byte);
        } else {
            appendEncoded(static_cast<uchar>(0xC0 | (byte >> 6)));
            appendEncoded(static_cast<uchar>(0x80 | (byte & 0x3F)));
        }
    }
}

} // namespace

RequestFields Credentials::with(const RequestFields &more) const
{
    return RequestFields{{QStringLiteral("login"), login},
                         {QStringLiteral("password"), QString::fromUtf8(password.toUtf8().constData())}}
    + more;
}

QByteArray encodeFields(const RequestFields &fields)
{
    QByteArray encoded;
    for (const auto &field : fields) {
        if (!encoded.isEmpty())
            encoded.append('&');
        encoded += QUrl::toPercentEncoding(field.first) + '=' + QUrl::toPercentEncoding(field.second);
    }
    return encoded;
}

QByteArray activityPayload(const QVariantMap &body)
{
    const QByteArray json = QtJson::serialize(QVariantList{body});
    QByteArray payload;
    payload.reserve(json.size() + json.size() / 8 + 64);
    payload += "data=";
    appendPercentEncodedLatin1(json, payload);
    return payload;
}

OneShotBody::OneShotBody(const QByteArray &bytes, QObject *parent)
    : QIODevice(parent)
    , m_bytes(bytes)
{
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

bool OneShotBody::reset()
{
    return m_read == 0;
}

bool OneShotBody::seek(qint64 pos)
{
    return pos == m_read && QIODevice::seek(pos);
}

qint64 OneShotBody::readData(char *data, qint64 maxSize)
{
    const qint64 count = std::min<qint64>(maxSize, m_bytes.size() - m_read);
    std::memcpy(data, m_bytes.constData() + m_read, static_cast<size_t>(count));
    m_read += count;
    return count;
}

qint64 OneShotBody::writeData(const char *, qint64)
{
    return -1;
}
