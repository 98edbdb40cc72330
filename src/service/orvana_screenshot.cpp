#include "service/orvana.h"

#include "notifications/notificationmanager.h"
#include "service/ovsession.h"
#include "service/recordtime.h"

#include <QBuffer>
#include <QDebug>
#include <QFile>

void Orvana::sendScreenshotActivity(const QImage &image)
{
    QVariantMap body = newReport();
    QBuffer jpeg;
    jpeg.open(QIODevice::WriteOnly);
    if (!image.save(&jpeg, "JPG")) {
        qDebug() << "Error! Can't convert to JPG format!";
        NotificationManager::instance()->addNotification(
            QStringLiteral("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку"), Plain,
            QString());
        return;
    }
    const QString path = Session::directoryOf(m_storage, m_session->login()) + QLatin1String("/activity/screenshot")
        + recordTimeText(QDateTime::currentDateTime()) + QLatin1String(".jpg");
    QString reason;
    if (!prepareStorage() || !ActivityCache::writeWhole(path, jpeg.data(), &reason)) {
        qWarning() << "Error! Screenshot can't be written:" << path << reason;
        NotificationManager::instance()->addNotification(
            QStringLiteral("Сделать снимок экрана не удалось. Свяжитесь с техподдержкой."), Plain, QString());
        return;
    }
    body.insert(QStringLiteral("fileName"), path);
    qDebug() << "Screenshot prepared";
    if (QFile *file = saveActivityData(QString(m_serviceUrl + QStringLiteral("/api_screenshot")), body))
        sendActivityFile(file);
}
