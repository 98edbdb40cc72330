#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QPair>
#include <QString>
#include <QVariantMap>
#include <QVector>

using RequestFields = QVector<QPair<QString, QString>>;

struct Credentials
{
    QString login;
    QString password; // sent up to its first NUL

    // As the first fields of a request, followed by its own.
    RequestFields with(const RequestFields &more = {}) const;
};

// Percent-encodes each field so that any character arrives as it was typed, in
// a query as in a form body.
QByteArray encodeFields(const RequestFields &fields);

// "data=" and the records' JSON list, percent-encoded. The JSON's UTF-8 bytes are
// taken as Latin-1 and encoded as UTF-8 once more: the service undoes both.
QByteArray activityPayload(const QVariantMap &body);

// A request's body that can be read once. A connection that breaks after the
// body went out makes the network stack send the request again on its own, and
// the service would count the minute twice; with nothing to rewind to, the
// request fails instead and its record waits in the cache.
class OneShotBody final : public QIODevice
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OneShotBody)

public:
    OneShotBody(const QByteArray &bytes, QObject *parent);

    bool isSequential() const override { return false; }
    qint64 size() const override { return m_bytes.size(); }
    bool reset() override;
    bool seek(qint64 pos) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    QByteArray m_bytes;
    qint64 m_read = 0;
};
