#include "service/orvana.h"

#include "service/ovsession.h"
#include "storage/recordtime.h"

#include <QBuffer>
#include <QDebug>
#include <QFile>

namespace {

// Not one that waits already: the clock may have been set back, or an hour come twice.
QString newPicturePath(const QString &folder)
{
    const QString path =
        folder + QStringLiteral("/screenshot") + recordTimeText(QDateTime::currentDateTime());
    QString suffix = QStringLiteral(".jpg");
    for (int copy = 2; QFile::exists(path + suffix); ++copy)
        suffix = QLatin1Char('-') + QString::number(copy) + QStringLiteral(".jpg");
    return path + suffix;
}

} // namespace

void Orvana::sendScreenshotActivity(const QImage &image)
{
    QVariantMap body = newReport();
    QBuffer jpeg;
    jpeg.open(QIODevice::WriteOnly);
    if (!image.save(&jpeg, "JPG")) {
        qDebug() << "Error! Can't convert to JPG format!";
        notify(QStringLiteral("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку"));
        return;
    }
    const QString path = newPicturePath(cacheOf(m_session->login()));
    QString reason;
    if (!m_storage.prepare() || !ActivityCache::writeWhole(path, jpeg.data(), &reason)) {
        qWarning() << "Error! Screenshot can't be written:" << path << reason;
        notify(QStringLiteral("Сделать снимок экрана не удалось. Свяжитесь с техподдержкой."));
        return;
    }
    body.insert(QStringLiteral("fileName"), path);
    qDebug() << "Screenshot prepared";
    if (QFile *file = saveActivityData(QString(m_serviceUrl + QStringLiteral("/api_screenshot")), body))
        sendActivityFile(file);
}
