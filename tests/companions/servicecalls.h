#pragma once

#include "rows.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <memory>

using Fields = QVector<QPair<QString, QString>>;

inline QString anna()
{
    return s("anna@orvana.example");
}

inline Fields as(const QString &login, const QString &password, const Fields &more = {})
{
    return Fields{{s("login"), login}, {s("password"), password}} + more;
}

inline Fields asAnna(const Fields &more = {})
{
    return as(anna(), s("orvana"), more);
}

// A minute of Anna's, as JSON; `past` in seconds.
inline QJsonObject report(int active, qint64 past = 0, const QString &task = s("1701"))
{
    return {{s("email"), anna()},
            {s("active"), QString::number(active)},
            {s("past"), QString::number(past)},
            {s("task_id"), task},
            {s("team_id"), s("17")},
            {s("version"), s("1.1.0")}};
}

inline QByteArray formEncoded(const Fields &fields)
{
    QByteArray body;
    for (const auto &[name, value] : fields) {
        body += (body.isEmpty() ? "" : "&") + QUrl::toPercentEncoding(name) + '='
            + QUrl::toPercentEncoding(value);
    }
    return body;
}

// An upload as clients send it: each byte of the JSON is widened to a character, the text is
// encoded as UTF-8 and percent-encoded.
inline QByteArray uploadBody(const QByteArray &json)
{
    return "data=" + QUrl::toPercentEncoding(QString::fromLatin1(json));
}

inline QByteArray uploadBody(const QJsonObject &object)
{
    return uploadBody(QJsonDocument(QJsonArray{object}).toJson(QJsonDocument::Compact));
}

// What came back for one request.
struct Answer
{
    int status = 0;
    QByteArray body;

    QJsonObject object() const { return QJsonDocument::fromJson(body).object(); }
    QJsonArray array() const { return QJsonDocument::fromJson(body).array(); }
};

// Requests to one service; accepts its certificate, follows no redirection.
class ServiceCalls final
{
public:
    explicit ServiceCalls(const QString &baseUrl)
        : m_baseUrl(baseUrl)
    {
        QObject::connect(&m_manager, &QNetworkAccessManager::sslErrors, &m_manager,
                         [](QNetworkReply *reply) { reply->ignoreSslErrors(); });
    }

    std::unique_ptr<QNetworkReply> startGet(const QString &path, const Fields &query = {})
    {
        return std::unique_ptr<QNetworkReply>(m_manager.get(request(path, query)));
    }

    Answer get(const QString &path, const Fields &query = {}) { return finish(*startGet(path, query)); }
    Answer post(const QString &path, const QByteArray &body, const QMap<QByteArray, QByteArray> &headers = {})
    {
        QNetworkRequest posted = request(path, {});
        for (auto header = headers.begin(); header != headers.end(); ++header)
            posted.setRawHeader(header.key(), header.value());
        posted.setHeader(QNetworkRequest::ContentTypeHeader, s("application/x-www-form-urlencoded"));
        const std::unique_ptr<QNetworkReply> reply(m_manager.post(posted, body));
        return finish(*reply);
    }
    Answer post(const QString &path, const Fields &form) { return post(path, formEncoded(form)); }

    // Waits for the end of a request, at most ten seconds.
    static Answer finish(QNetworkReply &reply)
    {
        if (!QTest::qWaitFor([&reply] { return reply.isFinished(); }, 10000))
            return {};
        return {reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply.readAll()};
    }

private:
    QNetworkRequest request(const QString &path, const Fields &query) const
    {
        QByteArray url = m_baseUrl.toUtf8() + path.toUtf8();
        if (!query.isEmpty()) {
            url += '?' + formEncoded(query);
        }
        QNetworkRequest made(QUrl::fromEncoded(url));
        made.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        return made;
    }

    QString m_baseUrl;
    QNetworkAccessManager m_manager;
};
