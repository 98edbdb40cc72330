#include "service/orvana.h"

#include "base/crashpoint.h"
#include "model/json.h"
#include "service/ovsession.h"
#include "service/replyparser.h"
#include "service/requestbody.h"
#include "storage/cacherecord.h"
#include "storage/recordtime.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QFileInfo>

namespace {

const QString kRecordVersion = QStringLiteral("0.1");
const QString kActivityPath = QStringLiteral("/api_active2");
const char kFileProperty[] = "activityFile";
const char kPictureProperty[] = "activityPicture";
// A day of minutes; a disk that is full for longer loses the oldest.
constexpr int kMaxUnwritten = 1440;
constexpr int kMostUnderWay = 100;
constexpr int kLongestLoggedValue = 1000;
constexpr int kSweepStep = 100; // records a turn

// An id of a megabyte would fill the log.
QString shortened(const QString &value)
{
    return value.size() > kLongestLoggedValue ? QString(value.left(kLongestLoggedValue) + QChar(0x2026))
                                              : value;
}

// In unsigned 32-bit seconds, as every client before this one counted.
quint32 ageInSeconds(const QString &timestamp)
{
    const auto now = static_cast<quint32>(QDateTime::currentSecsSinceEpoch());
    const auto then = static_cast<quint32>(recordTime(timestamp).toSecsSinceEpoch());
    return now - then;
}

} // namespace

QString Orvana::cacheOf(const QString &login) const
{
    return m_storage.ofUser(login) + QStringLiteral("/activity");
}

// The storage folder may come to be usable only after the user has signed in.
bool Orvana::prepareCache()
{
    const bool usable = m_storage.prepare();
    const QString login = m_session->login();
    const QString directory = usable && !login.isEmpty() ? cacheOf(login) : QString();
    if (usable && directory != m_cache.directory()) {
        m_cache.setDirectory(directory);
        m_sweepTimer.start();
    }
    return usable;
}

void Orvana::sweepPictures()
{
    // The record of a picture may still wait for the disk.
    if (!m_unwritten.isEmpty() || !m_storage.isUsable() || !m_cache.sweepPictures(kSweepStep))
        m_sweepTimer.stop();
}

QVariantMap Orvana::newReport() const
{
    return {{QStringLiteral("email"), m_session->login()},
            {QStringLiteral("task_id"), m_session->currentTaskID()},
            {CacheRecord::kPast, QStringLiteral("0")},
            {QStringLiteral("team_id"), m_session->currentTeamID()},
            {CacheRecord::kVersion, QCoreApplication::applicationVersion()}};
}

void Orvana::sendTaskActivity(int activeSlices)
{
    crashPoint("minute-over");
    QVariantMap body = newReport();
    body.insert(QStringLiteral("active"), QString::number(activeSlices));
    const QString url = m_serviceUrl + kActivityPath;
    QStringList values;
    for (const QVariant &value : qAsConst(body))
        values.append(shortened(value.toString()));
    qDebug() << "Activity data prepared" << url << values;
    if (QFile *file = saveActivityData(url, body))
        sendActivityFile(file);
}

// Null when the disk refused the record, which is then kept in memory.
QFile *Orvana::saveActivityData(const QVariant &url, const QVariant &body)
{
    storeUnwritten();
    const QDateTime now = QDateTime::currentDateTime();
    const QByteArray record = QtJson::serialize(QVariantMap{{CacheRecord::kVersion, kRecordVersion},
                                                            {CacheRecord::kUrl, url.toString()},
                                                            {CacheRecord::kBody, body},
                                                            {CacheRecord::kTimestamp, recordTimeText(now)}});
    QString reason = QStringLiteral("the folder is not ours");
    const QString path = prepareCache() ? m_cache.create(record, now, &reason) : QString();
    if (!path.isEmpty())
        return new QFile(path, this);
    keepUnwritten(now, record, reason);
    return nullptr;
}

void Orvana::keepUnwritten(const QDateTime &createdAt, const QByteArray &record, const QString &reason)
{
    qWarning() << "Error! Activity record can't be written:" << reason;
    if (m_unwritten.size() >= kMaxUnwritten)
        m_unwritten.removeFirst();
    m_unwritten.append({m_session->login(), createdAt, record});
    if (m_toldUnwritten)
        return;
    m_toldUnwritten = true;
    notify(m_storage.isUsable()
            ? QStringLiteral("Не удалось сохранить отчёт об активности на диск. Проверьте свободное место.")
            : m_storage.unusableText());
}

// What the disk takes now waits in the cache like any unsent report.
void Orvana::storeUnwritten()
{
    if (m_unwritten.isEmpty() || !prepareCache())
        return;
    QSet<QString> refused;
    QVector<UnwrittenRecord> left;
    for (const UnwrittenRecord &record : qAsConst(m_unwritten)) {
        if (refused.contains(record.login) || !store(record)) {
            refused.insert(record.login);
            left.append(record);
        }
    }
    m_unwritten = left;
    m_toldUnwritten = m_toldUnwritten && !m_unwritten.isEmpty();
}

bool Orvana::store(const UnwrittenRecord &record)
{
    if (record.login == m_session->login())
        return !m_cache.create(record.bytes, record.createdAt).isEmpty();
    // Of a user who has left: it is sent after their next sign-in.
    return !ActivityCache::write(cacheOf(record.login), record.bytes, record.createdAt).isEmpty();
}

ActivityCache::Backlog Orvana::backlog() const
{
    ActivityCache::Backlog all = m_cache.backlog();
    for (const UnwrittenRecord &record : m_unwritten) {
        if (record.login != m_session->login())
            continue;
        ++all.count;
        if (!all.oldest.isValid() || record.createdAt < all.oldest)
            all.oldest = record.createdAt;
    }
    return all;
}

void Orvana::sendActivityFile(QFile *file)
{
    // The network sends a few at a time; the others' pictures would wait in memory.
    if (m_pendingActivity >= kMostUnderWay) {
        qDebug() << "Too many reports under way, on the disk waits" << QFileInfo(*file).fileName();
        file->deleteLater();
        return;
    }
    ++m_pendingActivity;
    QByteArray contents;
    const ActivityCache::Read result = ActivityCache::read(file->fileName(), &contents);
    if (result == ActivityCache::Read::Busy || result == ActivityCache::Read::Denied) {
        qWarning() << "Error! Activity file can't be read just now:" << file->fileName();
        if (result == ActivityCache::Read::Denied)
            m_cache.setAside(file->fileName());
        --m_pendingActivity;
        if (result == ActivityCache::Read::Denied)
            continueSending();
        file->deleteLater();
        return;
    }
    QVariantMap record = CacheRecord::parse(contents);
    const QString url = record.value(CacheRecord::kUrl).toString();
    if (url.isEmpty()) {
        qDebug().noquote() << "Error!  Invalid activity file!" << bodyForLog(contents);
        removeCachedActivityFile(file);
        return;
    }
    // Records of an older client carry no version, and no picture either.
    record = record.contains(CacheRecord::kVersion) ? prepareDataForExport(record) : actualizeActivityTimestamp(record);

    const QVariantMap body = record.value(CacheRecord::kBody).toMap();
    qDebug() << url;
    for (auto it = body.cbegin(); it != body.cend(); ++it) {
        if (it.key() != CacheRecord::kFile)
            qDebug().noquote() << it.key() + QStringLiteral(": ") + shortened(it.value().toString());
    }
    if (body.contains(CacheRecord::kFileName) && body.value(CacheRecord::kFileName).toString().isEmpty()) {
        qDebug() << "Error! Screenshot is missed!";
        notify(QStringLiteral("Сделать снимок экрана не удалось. Свяжитесь с техподдержкой."));
    }

    if (network()->networkAccessible() == QNetworkAccessManager::NotAccessible) {
        qDebug() << "Network is not accessbile! Try to fix it.";
        network()->setNetworkAccessible(QNetworkAccessManager::Accessible);
    }

    QNetworkReply *reply = post(SendActivity, QUrl(url), activityPayload(body));
    reply->setProperty(kFileProperty, file->fileName());
    reply->setProperty(kPictureProperty, body.value(CacheRecord::kFileName).toString());
    crashPoint("request-posted");
    file->deleteLater();
}

// A record that is sent again ages from its creation each time; the file itself
// is never rewritten.
QVariantMap Orvana::actualizeActivityTimestamp(const QVariantMap &record) const
{
    QVariantMap body = record.value(CacheRecord::kBody).toMap();
    const QVariant timestamp = record.value(CacheRecord::kTimestamp);
    // Without a sign: a damaged record may hold any number.
    const auto past = static_cast<quint64>(body.value(CacheRecord::kPast).toString().toLongLong());
    body.insert(CacheRecord::kPast, QString::number(static_cast<qint64>(past + ageInSeconds(timestamp.toString()))));
    return {{CacheRecord::kUrl, record.value(CacheRecord::kUrl)}, {CacheRecord::kTimestamp, timestamp}, {CacheRecord::kBody, body}};
}

QVariantMap Orvana::prepareDataForExport(const QVariantMap &record) const
{
    QVariantMap prepared = actualizeActivityTimestamp(record);
    QVariantMap body = prepared.value(CacheRecord::kBody).toMap();
    if (!body.contains(CacheRecord::kFileName))
        return prepared;
    const QString name = body.value(CacheRecord::kFileName).toString();
    QFile picture(name);
    if (!isOwnScreenshot(name) || !picture.open(QIODevice::ReadOnly)) {
        qWarning() << "Error! Screenshot can't be opened:" << name;
        return prepared;
    }
    body.insert(CacheRecord::kFile, picture.readAll().toBase64());
    prepared.insert(CacheRecord::kBody, body);
    return prepared;
}

void Orvana::activityNotSent(const QByteArray &body)
{
    qDebug().noquote() << "Activity not sended " << bodyForLog(body);
    --m_pendingActivity;
}

void Orvana::processSendActivityReply(QNetworkReply *reply)
{
    crashPoint("reply-received");
    const QByteArray body = reply->readAll();
    if (!validateReply(body)) {
        qDebug() << reply->request().url();
        activityNotSent(body);
        return;
    }
    // The record's own address decides: the base URL may have changed since it was made.
    if (!reply->url().path().endsWith(kActivityPath)) {
        if (body != "ok") {
            activityNotSent(body);
            return;
        }
        qDebug() << "ver 1.0 activity sended";
    } else {
        const QString status = parseObject(body).value(QStringLiteral("status")).toString();
        if (status != QLatin1String("ok")) {
            activityNotSent(body);
            return;
        }
        qDebug() << "Activity sended" << status;
    }
    removeRecord(reply->property(kFileProperty).toString(), reply->property(kPictureProperty).toString());
}

// A record speaks of files on this disk; only the client's own pictures are read
// or deleted for it.
bool Orvana::isOwnScreenshot(const QString &path) const
{
    const QFileInfo info(path);
    return m_storage.isUsable() && info.fileName().startsWith(QLatin1String("screenshot"))
        && info.dir().dirName() == QLatin1String("activity")
        && QDir::cleanPath(info.absoluteFilePath()).startsWith(storageDirectory().absolutePath() + QLatin1Char('/'))
        && !info.isSymLink();
}

void Orvana::removeCachedActivityFile(QFile *file)
{
    QByteArray contents;
    ActivityCache::read(file->fileName(), &contents);
    removeRecord(file->fileName(), CacheRecord::pictureOf(CacheRecord::parse(contents)));
    file->deleteLater();
}

void Orvana::removeRecord(const QString &path, const QString &picture)
{
    crashPoint("before-removal");
    // The record goes first: a record without its picture would be sent again.
    if (m_storage.isUsable())
        m_cache.remove(path);
    else
        m_cache.setAccepted(path);
    crashPoint("record-removed");
    if (!picture.isEmpty() && isOwnScreenshot(picture))
        QFile::remove(picture);
    --m_pendingActivity;
    continueSending();
}

void Orvana::continueSending()
{
    if (m_pendingActivity != 0)
        return;
    // From the event loop: a folder full of unreadable records must not become a
    // stack of calls.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_pendingActivity == 0)
                sendCachedActivity();
        },
        Qt::QueuedConnection);
}

void Orvana::sendCachedActivity()
{
    const QString path = prepareCache() ? m_cache.next() : QString();
    if (path.isEmpty())
        return;
    qDebug() << "file prepared:" << QFileInfo(path).fileName();
    sendActivityFile(new QFile(path, this));
}
