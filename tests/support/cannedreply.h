#pragma once

#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>
#include <cstring>

// A finished reply with any body and any error.
class CannedReply final : public QNetworkReply
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CannedReply)

public:
    explicit CannedReply(const QByteArray &body, NetworkError error = NoError)
        : m_body(body)
    {
        if (error != NoError)
            setError(error, QStringLiteral("broken"));
        open(QIODevice::ReadOnly);
        setFinished(true);
    }

    // Takes over what the client has set on the request.
    void answer(const QNetworkReply &request)
    {
        setRequest(request.request());
        setUrl(request.url());
        setOperation(request.operation());
        const QList<QByteArray> names = request.dynamicPropertyNames();
        for (const QByteArray &name : names)
            setProperty(name.constData(), request.property(name.constData()));
    }

    // Without a request: where it comes from.
    void setAddress(const QUrl &url)
    {
        setUrl(url);
        setRequest(QNetworkRequest(url));
    }

    void abort() override { }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        return m_body.size() - m_read + QNetworkReply::bytesAvailable();
    }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const auto count = std::min<qint64>(maxSize, m_body.size() - m_read);
        if (count == 0)
            return -1;
        std::memcpy(data, m_body.constData() + m_read, static_cast<size_t>(count));
        m_read += count;
        return count;
    }

private:
    QByteArray m_body;
    qint64 m_read = 0;
};
