#include "service/minuterecovery.h"

#include "base/crashpoint.h"
#include "base/log.h"
#include "service/reportsender.h"
#include "storage/activitycache.h"
#include "storage/cacherecord.h"
#include "storage/recordtime.h"
#include "storage/storagefolder.h"

#include <algorithm>
#include <chrono>
#include <optional>

namespace {

constexpr std::chrono::milliseconds kPause(20);
constexpr qint64 kBytesPerStep = 64 * 1024;
constexpr int kRecordsPerStep = 5; // each is flushed to the disk
constexpr qint64 kMaxOpenBytes = 64 * 1024 * 1024;
constexpr int kMaxActive = 10;
constexpr int kSecond = 19; // characters
constexpr int kPicturePrefix = 10; // "screenshot"

QString text(const JournalReader::Line &line, const char *key)
{
    return line.values.value(QLatin1String(key)).toString();
}

qint64 sizeOf(const JournaledMinute &minute)
{
    return 2
        * (minute.name.record.size() + minute.name.team.size() + minute.name.task.size() + minute.url.size()
           + minute.version.size());
}

// This minute, or else any other of them; returns its size.
qint64 drop(const MinuteName &name, QVector<JournaledMinute> *minutes)
{
    if (minutes->isEmpty())
        return 0;
    const auto same = std::find_if(minutes->begin(), minutes->end(),
                                   [&name](const JournaledMinute &minute) { return minute.name == name; });
    const auto dropped = same == minutes->end() ? minutes->begin() : same;
    const qint64 size = sizeOf(*dropped);
    minutes->erase(dropped);
    return size;
}

bool isRestorable(const JournaledMinute &minute)
{
    const QDateTime made = recordTime(minute.name.record);
    return made.isValid() && recordTimeText(made) == minute.name.record && minute.name.active >= 0
        && minute.name.active <= kMaxActive && !minute.url.isEmpty();
}

} // namespace

MinuteRecovery::MinuteRecovery(StorageFolder *storage, MinuteJournal *journal, ReportSender *reports,
                               QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_journal(journal)
    , m_reports(reports)
{
    m_timer.setInterval(kPause);
    connect(&m_timer, &QTimer::timeout, this, &MinuteRecovery::step);
}

MinuteRecovery::~MinuteRecovery() = default;

void MinuteRecovery::start(const QString &userFolder)
{
    stop();
    if (!m_journal->isEnabled() || m_journal->login().isEmpty())
        return;
    m_userFolder = userFolder;
    m_timer.start();
}

void MinuteRecovery::stop()
{
    m_timer.stop();
    m_phase = Phase::Begin;
    m_files.clear();
    m_reader.reset();
    m_chain = {};
    forgetOpen();
    m_screenshots.clear();
    m_missing.clear();
}

void MinuteRecovery::forgetOpen()
{
    m_open.clear();
    m_openBytes = 0;
}

void MinuteRecovery::step()
{
    // Another copy of the program may work here, or the journal's end not be on the disk.
    if (!m_journal->isEnabled() || !m_storage->holdsLock() || !m_journal->isWritten())
        return stop();
    if (m_phase == Phase::Begin) {
        const QStringList files = Journal::files(m_userFolder);
        m_files = files.mid(std::max(0, files.size() - 2));
        m_phase = Phase::Read;
    }
    if (m_phase == Phase::Read)
        readOn();
    if (m_phase == Phase::Restore)
        restoreSome();
}

void MinuteRecovery::readOn()
{
    for (qint64 bytes = 0; bytes < kBytesPerStep;) {
        if (!m_reader && m_files.isEmpty()) {
            // At once: between the last line and the records on the disk nothing may happen.
            findMissing();
            m_phase = Phase::Restore;
            return;
        }
        if (!m_reader)
            m_reader = std::make_unique<JournalReader>(m_files.takeFirst());
        JournalReader::Line line;
        if (m_reader->next(&line)) {
            bytes += line.bytes;
            take(line);
        } else if (m_reader->hasFailed()) {
            qCWarning(lcService) << "The journal of minutes can't be read:" << m_reader->errorText();
            return stop();
        } else {
            m_reader.reset();
        }
    }
}

void MinuteRecovery::take(const JournalReader::Line &line)
{
    const bool isOfOther =
        line.values.contains(QLatin1String("login")) && text(line, "login") != m_journal->login();
    if (!m_chain.follows(line) || line.event == QLatin1String("gap") || isOfOther)
        forgetOpen();
    if (!line.isWhole() || isOfOther)
        return;
    const MinuteName name{text(line, "record"), text(line, "team"), text(line, "task"),
                          line.values.value(QLatin1String("active")).toInt(-1)};
    if (line.event == QLatin1String("accepted")) {
        settle(name);
    } else if (line.event == QLatin1String("screenshot")) {
        ++m_screenshots[text(line, "file").mid(kPicturePrefix, kSecond)];
    } else if (line.event == QLatin1String("minute") && line.n < m_journal->firstLine()
               && m_openBytes < kMaxOpenBytes) {
        const JournaledMinute minute{name, text(line, "url"), text(line, "version")};
        if (!isRestorable(minute))
            return;
        m_open[name.record].append(minute);
        m_openBytes += sizeOf(minute);
    }
}

// Its minute, or else another of that second.
void MinuteRecovery::settle(const MinuteName &name)
{
    const auto open = m_open.find(name.record);
    if (open == m_open.end())
        return;
    m_openBytes -= drop(name, &*open);
    if (open->isEmpty())
        m_open.erase(open);
}

void MinuteRecovery::findMissing()
{
    if (m_chain.isTorn())
        forgetOpen();
    if (m_open.isEmpty())
        return;
    const std::optional<ReportSender::Waiting> waiting = m_reports->waiting();
    if (!waiting)
        return;
    const QDateTime now = QDateTime::currentDateTime();
    for (auto each = m_open.begin(); each != m_open.end(); ++each) {
        // Its age would have no meaning; the clock may pass it before the next start.
        if (recordTime(each.key()) > now)
            continue;
        QVector<JournaledMinute> minutes = each.value();
        const QStringList records = waiting->onDisk.values(each.key());
        if (records.size() >= minutes.size() + m_screenshots.value(each.key()))
            continue;
        for (const QString &path : records) {
            QByteArray bytes;
            const bool isRead = ActivityCache::read(path, &bytes) == ActivityCache::Read::Ok;
            const QVariantMap record = CacheRecord::parse(bytes);
            // One that cannot be read may be any of them.
            if (!isRead || !CacheRecord::isScreenshot(record))
                drop(ReportSender::nameOf(record), &minutes);
        }
        for (const QByteArray &bytes : waiting->inMemory.values(each.key())) {
            const QVariantMap record = CacheRecord::parse(bytes);
            if (!CacheRecord::isScreenshot(record))
                drop(ReportSender::nameOf(record), &minutes);
        }
        m_missing += minutes;
    }
    forgetOpen();
    // The oldest first.
    std::sort(m_missing.begin(), m_missing.end(), [](const auto &a, const auto &b) {
        return recordTime(a.name.record) < recordTime(b.name.record);
    });
}

void MinuteRecovery::restoreSome()
{
    for (int i = 0; i < kRecordsPerStep && !m_missing.isEmpty(); ++i) {
        const JournaledMinute minute = m_missing.takeFirst();
        qCWarning(lcService) << "A minute without a record is restored:" << minute.name.record
                             << minute.name.team << minute.name.task;
        // The next start tries again.
        if (!m_reports->restore(minute))
            return stop();
        crashPoint("minute-restored");
        m_journal->restored(minute.name);
    }
    if (m_missing.isEmpty())
        stop();
}
