#include "service/reportsender.h"

#include "base/crashpoint.h"
#include "base/log.h"
#include "base/notificationsink.h"
#include "base/shortened.h"
#include "service/minuterecovery.h"
#include "service/replyparser.h"
#include "service/requestbody.h"
#include "service/serviceconnection.h"
#include "storage/cacherecord.h"
#include "storage/recordtime.h"
#include "storage/storagefolder.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QNetworkReply>

#include <chrono>

namespace {

const QString kActivityPath = QStringLiteral("/api_active2");
const QString kScreenshotPath = QStringLiteral("/api_screenshot");
const QString kNoScreenshot = QStringLiteral("Сделать снимок экрана не удалось. Свяжитесь с техподдержкой.");
const char kFileProperty[] = "activityFile";
// The network sends a few at a time; the screenshots of the others would wait in memory.
constexpr int kMaxUnderWay = 100;
constexpr int kMaxLoggedValue = 1000; // an id of a megabyte would fill the log
constexpr int kRecordsPerSweep = 100;
constexpr std::chrono::milliseconds kSweepPause(100);

// Never that of an existing one: the clock may have been set back, or an hour come twice.
QString newPicturePath(const QString &folder, const QDateTime &now)
{
    const QString path = folder + QStringLiteral("/screenshot") + recordTimeText(now);
    QString suffix = QStringLiteral(".jpg");
    for (int copy = 2; QFile::exists(path + suffix); ++copy)
        suffix = QLatin1Char('-') + QString::number(copy) + QStringLiteral(".jpg");
    return path + suffix;
}

} // namespace

ReportSender::ReportSender(StorageFolder *storage, ServiceConnection *service, MinuteJournal *journal,
                           NotificationSink *notifications, const Subject &subject, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_service(service)
    , m_journal(journal)
    , m_notifications(notifications)
    , m_subject(subject)
{
    m_sweepTimer.setInterval(kSweepPause);
    connect(&m_sweepTimer, &QTimer::timeout, this, &ReportSender::sweepPictures);
}

QString ReportSender::cacheOf(const QString &login) const
{
    return m_storage->ofUser(login) + QStringLiteral("/activity");
}

void ReportSender::loadCache()
{
    m_cache.setDirectory(QString());
    prepareCache();
}

// The storage folder may become usable only after the user has signed in.
bool ReportSender::prepareCache()
{
    const bool usable = m_storage->prepare();
    const QString login = m_subject().login;
    const QString directory = login.isEmpty() ? QString() : cacheOf(login);
    if (usable && directory != m_cache.directory()) {
        m_cache.setDirectory(directory);
        m_sweepTimer.start();
    }
    return usable;
}

void ReportSender::sweepPictures()
{
    // An unwritten record may name any of them.
    if (!m_unwritten.isEmpty() || !m_storage->isUsable() || !m_cache.sweepPictures(kRecordsPerSweep))
        m_sweepTimer.stop();
}

QVariantMap ReportSender::commonFields() const
{
    const ReportSubject subject = m_subject();
    return {{QStringLiteral("email"), subject.login},
            {QStringLiteral("task_id"), subject.taskId},
            {CacheRecord::kPast, QStringLiteral("0")},
            {QStringLiteral("team_id"), subject.teamId},
            {CacheRecord::kVersion, QCoreApplication::applicationVersion()}};
}

QString ReportSender::reportUrl() const
{
    return m_service->url() + kActivityPath;
}

void ReportSender::sendTaskActivity(int activeSlices, const QDateTime &moment)
{
    QVariantMap body = commonFields();
    body.insert(QStringLiteral("active"), QString::number(activeSlices));
    const QString url = reportUrl();
    QStringList values;
    for (const QVariant &value : qAsConst(body))
        values.append(shortened(value.toString(), kMaxLoggedValue));
    qCDebug(lcService) << "Activity data prepared" << url << values;
    sendActivityFile(saveActivityData(url, body, moment));
}

void ReportSender::sendScreenshotActivity(const QImage &image)
{
    QVariantMap body = commonFields();
    QBuffer jpeg;
    jpeg.open(QIODevice::WriteOnly);
    if (!image.save(&jpeg, "JPG")) {
        qCDebug(lcService) << "Error! Can't convert to JPG format!";
        m_notifications->addNotification(
            QStringLiteral("При отправке снимка экрана произошла ошибка. Обратитесь в техподдержку"));
        return;
    }
    const QDateTime now = QDateTime::currentDateTime();
    const QString path = newPicturePath(cacheOf(m_subject().login), now);
    QString reason;
    if (!m_storage->prepare() || !ActivityCache::writeWhole(path, jpeg.data(), &reason)) {
        qCWarning(lcService) << "Error! Screenshot can't be written:" << path << reason;
        m_notifications->addNotification(kNoScreenshot);
        return;
    }
    body.insert(CacheRecord::kFileName, path);
    qCDebug(lcService) << "Screenshot prepared";
    m_journal->screenshot(now, path);
    sendActivityFile(saveActivityData(m_service->url() + kScreenshotPath, body, now));
}

// Empty when the disk refused the record, which is then kept in memory.
QString ReportSender::saveActivityData(const QString &url, const QVariantMap &body, const QDateTime &moment)
{
    storeUnwritten();
    const QByteArray record = CacheRecord::make(url, body, recordTimeText(moment));
    QString reason = QStringLiteral("the folder is not ours");
    QString path = prepareCache() ? m_cache.create(record, moment, &reason) : QString();
    if (path.isEmpty())
        keepUnwritten({m_subject().login, moment, record}, reason);
    return path;
}

bool ReportSender::restore(const JournaledMinute &minute)
{
    const QVariantMap body{{QStringLiteral("email"), m_subject().login},
                           {QStringLiteral("task_id"), minute.name.task},
                           {CacheRecord::kPast, QStringLiteral("0")},
                           {QStringLiteral("team_id"), minute.name.team},
                           {QStringLiteral("active"), QString::number(minute.name.active)},
                           {CacheRecord::kVersion, minute.version}};
    const QByteArray record = CacheRecord::make(minute.url, body, minute.name.record);
    return prepareCache() && !m_cache.create(record, recordTime(minute.name.record)).isEmpty();
}

std::optional<ReportSender::Waiting> ReportSender::waiting() const
{
    const std::optional<QStringList> onDisk = m_cache.records();
    if (!onDisk)
        return {};
    Waiting waiting;
    for (const QString &path : *onDisk)
        waiting.onDisk.insert(ActivityCache::secondOf(path), path);
    for (auto it = m_underWay.cbegin(); it != m_underWay.cend(); ++it) {
        if (!QFile::exists(it.key()))
            waiting.onDisk.insert(ActivityCache::secondOf(it.key()), it.key());
    }
    const QVector<UnwrittenRecords::Record> inMemory = m_unwritten.of(m_subject().login);
    for (const UnwrittenRecords::Record &record : inMemory)
        waiting.inMemory.insert(recordTimeText(record.createdAt), record.bytes);
    return waiting;
}

MinuteName ReportSender::nameOf(const QVariantMap &record)
{
    const QVariantMap body = record.value(CacheRecord::kBody).toMap();
    return {record.value(CacheRecord::kTimestamp).toString(),
            body.value(QStringLiteral("team_id")).toString(),
            body.value(QStringLiteral("task_id")).toString(),
            body.value(QStringLiteral("active")).toString().toInt()};
}

void ReportSender::keepUnwritten(const UnwrittenRecords::Record &record, const QString &reason)
{
    qCWarning(lcService) << "Error! Activity record can't be written:" << reason;
    m_unwritten.keep(record);
    if (m_hasReportedUnwritten)
        return;
    m_hasReportedUnwritten = true;
    m_notifications->addNotification(
        m_storage->isUsable()
            ? QStringLiteral("Не удалось сохранить отчёт об активности на диск. Проверьте свободное место.")
            : m_storage->unusableText());
}

// What the disk takes now waits in the cache like any unsent report.
void ReportSender::storeUnwritten()
{
    if (m_unwritten.isEmpty() || !prepareCache())
        return;
    m_unwritten.offer([this](const UnwrittenRecords::Record &record) { return store(record); });
    m_hasReportedUnwritten = m_hasReportedUnwritten && !m_unwritten.isEmpty();
}

bool ReportSender::store(const UnwrittenRecords::Record &record)
{
    if (record.login == m_subject().login)
        return !m_cache.create(record.bytes, record.createdAt).isEmpty();
    // Of a user who has left: it is sent after their next sign-in.
    return !ActivityCache::write(cacheOf(record.login), record.bytes, record.createdAt).isEmpty();
}

ActivityCache::Backlog ReportSender::backlog() const
{
    ActivityCache::Backlog all = m_cache.backlog();
    const QVector<UnwrittenRecords::Record> inMemory = m_unwritten.of(m_subject().login);
    for (const UnwrittenRecords::Record &record : inMemory) {
        ++all.count;
        if (!all.oldest.isValid() || record.createdAt < all.oldest)
            all.oldest = record.createdAt;
    }
    return all;
}

void ReportSender::sendCachedActivity()
{
    const QString path = prepareCache() ? m_cache.next() : QString();
    if (path.isEmpty())
        return;
    qCDebug(lcService) << "file prepared:" << QFileInfo(path).fileName();
    sendActivityFile(path);
}

// Nothing for an empty path. A record under way is not sent a second time.
void ReportSender::sendActivityFile(const QString &path)
{
    if (path.isEmpty() || m_underWay.contains(path))
        return;
    if (m_underWay.size() >= kMaxUnderWay) {
        qCDebug(lcService) << "Too many reports under way, on the disk waits" << QFileInfo(path).fileName();
        return;
    }
    QByteArray contents;
    const ActivityCache::Read result = ActivityCache::read(path, &contents);
    if (result == ActivityCache::Read::Busy || result == ActivityCache::Read::Denied) {
        qCWarning(lcService) << "Error! Activity file can't be read just now:" << path;
        if (result == ActivityCache::Read::Denied) {
            m_cache.setAside(path);
            continueSending();
        }
        return;
    }
    QVariantMap record = CacheRecord::parse(contents);
    const QString url = record.value(CacheRecord::kUrl).toString();
    if (url.isEmpty()) {
        qCDebug(lcService).noquote() << "Error!  Invalid activity file!" << bodyForLog(contents);
        removeCachedActivityFile(path, CacheRecord::pictureOf(record));
        return;
    }
    // Records of an older client carry no version, and no picture either.
    record = record.contains(CacheRecord::kVersion) ? prepareDataForExport(record, QFileInfo(path).path())
                                                    : CacheRecord::aged(record);

    const QVariantMap body = record.value(CacheRecord::kBody).toMap();
    qCDebug(lcService) << url;
    for (auto it = body.cbegin(); it != body.cend(); ++it) {
        if (it.key() != CacheRecord::kFile)
            qCDebug(lcService).noquote()
                << it.key() + QStringLiteral(": ") + shortened(it.value().toString(), kMaxLoggedValue);
    }
    const QString picture = CacheRecord::pictureOf(record);
    if (picture.isEmpty() && body.contains(CacheRecord::kFileName)) {
        qCDebug(lcService) << "Error! Screenshot is missed!";
        m_notifications->addNotification(kNoScreenshot);
    }

    m_service->ensureAccessible();
    QNetworkReply *reply = m_service->post(ServiceConnection::SendActivity, QUrl(url), activityPayload(body));
    reply->setProperty(kFileProperty, path);
    m_underWay.insert(path, {nameOf(record), !CacheRecord::isScreenshot(record), picture});
    if (!picture.isEmpty())
        m_journal->screenshotSent(path, picture);
    crashPoint("request-posted");
}

QVariantMap ReportSender::prepareDataForExport(const QVariantMap &record, const QString &folder) const
{
    QVariantMap prepared = CacheRecord::aged(record);
    QVariantMap body = prepared.value(CacheRecord::kBody).toMap();
    if (!body.contains(CacheRecord::kFileName))
        return prepared;
    QString name = body.value(CacheRecord::kFileName).toString();
    // The storage directory may have been moved since.
    const QString moved = folder + QLatin1Char('/') + QFileInfo(name).fileName();
    if (!isOwnScreenshot(name) && isOwnScreenshot(moved) && QFile::exists(moved)) {
        name = moved;
        body.insert(CacheRecord::kFileName, name);
    }
    QFile picture(name);
    if (!isOwnScreenshot(name) || !picture.open(QIODevice::ReadOnly)) {
        qCWarning(lcService) << "Error! Screenshot can't be opened:" << name;
        return prepared;
    }
    body.insert(CacheRecord::kFile, picture.readAll().toBase64());
    prepared.insert(CacheRecord::kBody, body);
    return prepared;
}

// A record may name any file of this disk; only the client's own screenshots are read
// or deleted for it.
bool ReportSender::isOwnScreenshot(const QString &path) const
{
    const QFileInfo info(path);
    return m_storage->isUsable() && info.fileName().startsWith(QLatin1String("screenshot"))
        && info.dir().dirName() == QLatin1String("activity")
        && QDir::cleanPath(info.absoluteFilePath())
               .startsWith(m_storage->dir().absolutePath() + QLatin1Char('/'))
        && !info.isSymLink();
}

void ReportSender::processSendActivityReply(QNetworkReply *reply)
{
    const QString path = reply->property(kFileProperty).toString();
    const UnderWay report = m_underWay.take(path);
    if (!ServiceConnection::isAnswer(*reply))
        return;
    crashPoint("reply-received");
    const QByteArray body = ServiceConnection::takeBody(reply);
    const bool ok = isAccepted(*reply, body);
    if (!report.picture.isEmpty())
        m_journal->screenshotAnswered(path, report.picture, ok, body);
    else if (report.isMinute)
        m_journal->answered(path, report.name, ok, body);
    crashPoint("answer-journaled");
    if (ok)
        removeCachedActivityFile(path, report.picture);
    else
        qCDebug(lcService).noquote() << "Activity not sended " << bodyForLog(body);
}

bool ReportSender::isAccepted(const QNetworkReply &reply, const QByteArray &body) const
{
    if (!m_service->validateReply(body)) {
        qCDebug(lcService) << reply.request().url();
        return false;
    }
    // The record's own address decides: the base URL may have changed since it was made.
    if (!reply.url().path().endsWith(kActivityPath)) {
        if (body != "ok")
            return false;
        qCDebug(lcService) << "ver 1.0 activity sended";
        return true;
    }
    const QString status = parseObject(body).value(QStringLiteral("status")).toString();
    if (status != QLatin1String("ok"))
        return false;
    qCDebug(lcService) << "Activity sended" << status;
    return true;
}

void ReportSender::removeCachedActivityFile(const QString &path, const QString &picture)
{
    crashPoint("before-removal");
    // The record goes first: a record without its picture would be sent again.
    if (m_storage->isUsable())
        m_cache.remove(path);
    else
        m_cache.setAccepted(path);
    crashPoint("record-removed");
    if (!picture.isEmpty() && isOwnScreenshot(picture))
        QFile::remove(picture);
    continueSending();
}

// From the event loop: a folder full of unreadable records must not become a stack of
// calls.
void ReportSender::continueSending()
{
    const auto next = [this] {
        if (m_underWay.isEmpty())
            sendCachedActivity();
    };
    if (m_underWay.isEmpty())
        QMetaObject::invokeMethod(this, next, Qt::QueuedConnection);
}
