#include "localservice/request.h"

#include <algorithm>

namespace localservice {

namespace {

QString decoded(QByteArray part)
{
    return QString::fromUtf8(QByteArray::fromPercentEncoding(part.replace('+', ' ')));
}

} // namespace

QString RecordedRequest::queryValue(const QString &name) const
{
    return valueOf(queryPairs, name);
}

QString RecordedRequest::formValue(const QString &name) const
{
    return valueOf(formPairs, name);
}

Pairs decodePairs(const QByteArray &encoded)
{
    Pairs pairs;
    const QList<QByteArray> items = encoded.split('&');
    for (const QByteArray &item : items) {
        if (item.isEmpty())
            continue;
        const int equals = item.indexOf('=');
        pairs.append({decoded(equals < 0 ? item : item.left(equals)),
                      equals < 0 ? QString() : decoded(item.mid(equals + 1))});
    }
    return pairs;
}

QString valueOf(const Pairs &pairs, const QString &name)
{
    const auto found =
        std::find_if(pairs.begin(), pairs.end(), [&name](const auto &pair) { return pair.first == name; });
    return found == pairs.end() ? QString() : found->second;
}

bool hasName(const Pairs &pairs, const QString &name)
{
    return std::any_of(pairs.begin(), pairs.end(), [&name](const auto &pair) { return pair.first == name; });
}

std::optional<QByteArray> jsonOfFormValue(const QString &value)
{
    constexpr ushort kLastByte = 0xFF;
    if (std::any_of(value.begin(), value.end(), [](QChar c) { return c.unicode() > kLastByte; }))
        return std::nullopt;
    return value.toLatin1();
}

} // namespace localservice
