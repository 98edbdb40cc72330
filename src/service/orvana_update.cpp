#include "service/orvana.h"

#include "service/replyparser.h"

#include <QDebug>

void Orvana::requestCheckUpdate()
{
    get(CheckUpdate, QStringLiteral("/monitor/ubuntu64/ortm.version"), {});
}

void Orvana::processCheckUpdateReply(QNetworkReply *reply)
{
    const QByteArray body = reply->readAll();
    // A refused body is stored all the same: the last description received is
    // what counts.
    if (!validateReply(body))
        qDebug() << reply->request().url();
    qDebug().noquote() << "Update data: " << bodyForLog(body);
    emit updateDescriptionReceived(body);
}
