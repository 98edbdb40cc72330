#include "localservice/access.h"

#include <QRandomGenerator>

#include <algorithm>
#include <array>

#include <openssl/crypto.h>

namespace localservice {

namespace {

bool isOwnHost(const QByteArray &host, int port)
{
    constexpr int kHttpsPort = 443;
    const QByteArray name = host.toLower();
    const QByteArray suffix = ':' + QByteArray::number(port);
    for (const QByteArray &own : {QByteArrayLiteral("127.0.0.1"), QByteArrayLiteral("localhost")}) {
        if (name == own + suffix || (port == kHttpsPort && name == own))
            return true;
    }
    return false;
}

// An origin, or the address of a page.
bool isOwnAddress(const QByteArray &address, int port)
{
    const QByteArray scheme = QByteArrayLiteral("https://");
    return address.startsWith(scheme) && isOwnHost(address.mid(scheme.size()).split('/').first(), port);
}

} // namespace

QByteArray makeToken()
{
    std::array<quint32, 8> random{};
    QRandomGenerator::system()->fillRange(random.data(), static_cast<int>(random.size()));
    return QByteArray(reinterpret_cast<const char *>(random.data()), sizeof random).toHex();
}

bool isToken(const QByteArray &given, const QByteArray &token)
{
    return given.size() == token.size()
        && CRYPTO_memcmp(given.constData(), token.constData(), static_cast<size_t>(token.size())) == 0;
}

QString whyForeign(const RecordedRequest &request, int port, bool isForControlPage)
{
    if (request.method == "POST") {
        const QList<QByteArray> senders = request.headers.values(QByteArrayLiteral("origin"))
            + request.headers.values(QByteArrayLiteral("referer"));
        if (!std::all_of(senders.begin(), senders.end(),
                         [port](const QByteArray &sender) { return isOwnAddress(sender, port); }))
            return QStringLiteral("Запрос с чужой страницы");
    }
    // Pages of a foreign name that resolves to this machine would be of the same site.
    const QList<QByteArray> hosts = request.headers.values(QByteArrayLiteral("host"));
    if (isForControlPage && (hosts.size() != 1 || !isOwnHost(hosts.first(), port)))
        return QStringLiteral("Страница открывается только по адресу https://127.0.0.1:%1/").arg(port);
    return {};
}

} // namespace localservice
