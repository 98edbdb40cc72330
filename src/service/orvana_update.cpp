#include "service/orvana.h"

#include "notifications/notificationmanager.h"
#include "service/replyparser.h"
#include "update/orvanaupdate.h"

#include <QCoreApplication>
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
    OrvanaUpdate *update = OrvanaUpdate::instance();
    update->addUpdateInfo(body);
    const QString available = update->availableUpdateVersion();
    // Compared as texts, on purpose: the service numbers its versions for that.
    const bool isNewer = QCoreApplication::applicationVersion() < available;
    emit updateAvailable(isNewer);
    if (isNewer)
        NotificationManager::instance()->addNotification(available, UpdateAvailable, QString());
}
