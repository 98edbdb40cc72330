#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QPair>
#include <QString>
#include <QVector>

#include <optional>

namespace localservice {

using Pairs = QVector<QPair<QString, QString>>;

// One request. What is called raw has exactly the bytes that were received.
struct RecordedRequest
{
    QByteArray method;
    QString path; // percent-decoded
    QByteArray target; // raw: path and query
    QByteArray query; // raw: what follows the first '?'
    Pairs queryPairs; // decoded, in order
    QByteArray body; // raw; empty when the connection was closed before the body was read
    Pairs formPairs; // decoded, in order; only for a form-encoded body
    QByteArray contentType;
    QMultiMap<QByteArray, QByteArray> headers; // names in lower case
    QDateTime arrived;
    bool processed = false; // the request had its effect, whatever was answered

    // The first value of the name; empty when there is none.
    QString queryValue(const QString &name) const;
    QString formValue(const QString &name) const;
};

// Splits a query or a form body: '+' is a blank, percent signs are decoded once, the result is UTF-8.
Pairs decodePairs(const QByteArray &encoded);
QString valueOf(const Pairs &pairs, const QString &name);
bool hasName(const Pairs &pairs, const QString &name);

// The JSON text of a "data=" form value. Senders widen each byte of the JSON to one character
// before encoding it as UTF-8; returns nothing for a text that they cannot have sent.
std::optional<QByteArray> jsonOfFormValue(const QString &value);

struct Reply
{
    int status = 200;
    QByteArray body;
    QByteArray contentType = QByteArrayLiteral("application/json; charset=utf-8");
    QString note{}; // a line for the operator; may be empty
};

} // namespace localservice
