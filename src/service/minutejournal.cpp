#include "service/minutejournal.h"

#include "base/crashpoint.h"
#include "base/deployment.h"
#include "base/log.h"
#include "base/notificationsink.h"
#include "base/shortened.h"
#include "storage/storagefolder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>

#include <cstdlib>
#include <ctime>
#include <utility>

namespace {

constexpr int kMaxAnswer = 200;
constexpr qint64 kClockStep = 2000; // ms
constexpr qint64 kTogether = 100; // ms
const QString kRefused =
    QStringLiteral("Не удалось записать журнал минут на диск. Проверьте свободное место.");

qint64 milliseconds(clockid_t clock)
{
    struct timespec time = {};
    clock_gettime(clock, &time);
    return qint64(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

JournalEntry entry(const char *event, const QDateTime &at = QDateTime::currentDateTime())
{
    return {at, QString::fromLatin1(event)};
}

JournalEntry &add(JournalEntry &to, const MinuteName &name)
{
    return to.add(QStringLiteral("record"), name.record)
        .add(QStringLiteral("team"), name.team)
        .add(QStringLiteral("task"), name.task)
        .add(QStringLiteral("active"), name.active);
}

JournalEntry &add(JournalEntry &to, const DayCounters &before, const DayCounters &after)
{
    return to.add(DayStates::kDay, DayStates::dayText(after.day))
        .add(DayStates::kWork, QJsonArray{DayStates::timeText(before.work), DayStates::timeText(after.work)})
        .add(DayStates::kActive,
             QJsonArray{DayStates::timeText(before.active), DayStates::timeText(after.active)});
}

QString userFolderOf(const QString &record)
{
    return QFileInfo(QFileInfo(record).path()).path();
}

QString answerText(const QByteArray &answer)
{
    return shortened(QString::fromUtf8(answer), kMaxAnswer);
}

JournalEntry ofFile(const char *event, const QString &path,
                    const QDateTime &at = QDateTime::currentDateTime())
{
    return entry(event, at).add(QStringLiteral("file"), QFileInfo(path).fileName());
}

} // namespace

// Read together: a program that is held up between two of them must not seem to have slept.
struct MinuteJournal::Clocks
{
    qint64 monotonic = 0;
    qint64 boot = 0; // counts while the machine sleeps, too
    qint64 wall = 0;
    bool isUsable = false;

    Clocks()
    {
        for (int attempt = 0; attempt < 3 && !isUsable; ++attempt) {
            monotonic = milliseconds(CLOCK_MONOTONIC);
            boot = milliseconds(CLOCK_BOOTTIME);
            wall = milliseconds(CLOCK_REALTIME);
            isUsable = milliseconds(CLOCK_MONOTONIC) - monotonic < kTogether;
        }
    }
};

MinuteJournal::MinuteJournal(StorageFolder *storage, NotificationSink *notifications, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_notifications(notifications)
    , m_isEnabled(Deployment::keepsJournal())
{ }

MinuteJournal::~MinuteJournal() = default;

void MinuteJournal::setEnabled(bool enabled)
{
    m_isEnabled = enabled && Deployment::keepsJournal();
}

void MinuteJournal::open(const QString &login, const std::optional<DayCounters> &stored, WorkDay *day)
{
    m_unannounced.clear();
    m_clocks.reset();
    m_isRunning = false;
    m_login = login;
    if (!m_isEnabled || login.isEmpty())
        return;
    m_folder = m_storage->ofUser(login);
    if (stored && m_storage->isUsable())
        bringTogether(*stored, day);
    JournalEntry opened = entry("opened");
    opened.add(QStringLiteral("login"), login)
        .add(QStringLiteral("version"), QCoreApplication::applicationVersion());
    if (stored) {
        add(opened, *stored, DayCounters::of(*day));
        if (stored->day != day->date)
            opened.add(DayStates::kSavedDay, DayStates::dayText(stored->day));
    }
    m_unannounced.push_back(opened);
}

void MinuteJournal::bringTogether(const DayCounters &stored, WorkDay *day)
{
    const DayStates states(JournalFile::tail(m_folder), m_login);
    if (states.areMissing(stored)) {
        JournalEntry gap = entry("gap");
        m_unannounced.push_back(add(gap, states.last(), stored));
        qCWarning(lcService) << "The journal of minutes is not the one that was left:" << m_folder;
        return;
    }
    if (!states.apply(stored, day))
        return;
    JournalEntry counters = entry("counters");
    m_unannounced.push_back(add(counters, stored, DayCounters::of(*day)));
    qCWarning(lcService) << "Counters as in the journal:" << day->work.counted << day->active.counted;
}

// Before the first event, and not before: a second copy of the program ends without any.
void MinuteJournal::announce()
{
    for (const JournalEntry &each : std::exchange(m_unannounced, {}))
        append(fileOf(m_folder), each, JournalFile::Flush::Later);
}

void MinuteJournal::close(End end, bool dropsSlices)
{
    const bool isExit = end == End::Exit;
    append(entry("closed")
               .add(QStringLiteral("reason"), isExit ? QStringLiteral("exit") : QStringLiteral("sign-out"))
               .add(QStringLiteral("slices"), dropsSlices ? m_slices : 0));
    if (dropsSlices)
        m_slices = 0;
    m_login.clear();
}

bool MinuteJournal::isWritten()
{
    announce();
    return fileOf(m_folder).isWritten();
}

JournalFile &MinuteJournal::fileOf(const QString &userFolder)
{
    return m_files.try_emplace(userFolder, m_storage, userFolder).first->second;
}

void MinuteJournal::append(const JournalEntry &entry, JournalFile::Flush flush)
{
    if (!m_isEnabled || m_login.isEmpty())
        return;
    announce();
    append(fileOf(m_folder), entry, flush);
}

void MinuteJournal::append(JournalFile &file, const JournalEntry &entry, JournalFile::Flush flush)
{
    file.append(entry, flush);
    if (file.isRefused() && !m_hasReportedRefusal)
        m_notifications->addNotification(kRefused);
    m_hasReportedRefusal = file.isRefused();
}

void MinuteJournal::appendFor(const QString &record, const JournalEntry &entry)
{
    const QString folder = userFolderOf(record);
    if (folder == m_folder)
        append(entry);
    else if (m_isEnabled)
        append(fileOf(folder), entry, JournalFile::Flush::Later);
}

void MinuteJournal::started(const QString &team, const QString &task)
{
    m_isRunning = true;
    m_slices = 0;
    m_task = task;
    m_clocks = std::make_unique<Clocks>();
    append(entry("start").add(QStringLiteral("team"), team).add(QStringLiteral("task"), task));
}

void MinuteJournal::stopped(const QString &task)
{
    if (std::exchange(m_isRunning, false))
        append(entry("stop")
                   .add(QStringLiteral("slices"), std::exchange(m_slices, 0))
                   .add(QStringLiteral("task"), task.isEmpty() ? m_task : task));
    m_clocks.reset();
}

void MinuteJournal::slicePassed()
{
    ++m_slices;
    auto now = std::make_unique<Clocks>();
    if (!now->isUsable)
        return;
    if (m_clocks && m_clocks->isUsable) {
        const qint64 passed = now->boot - m_clocks->boot;
        const qint64 slept = passed - (now->monotonic - m_clocks->monotonic);
        const qint64 set = now->wall - m_clocks->wall - passed;
        if (slept > kClockStep)
            append(entry("sleep").add(QStringLiteral("seconds"), slept / 1000));
        if (std::abs(set) > kClockStep) {
            const QDateTime to = QDateTime::currentDateTime();
            append(entry("clock", to)
                       .add(QStringLiteral("from"), JournalEntry::momentText(to.addMSecs(-set)))
                       .add(QStringLiteral("to"), JournalEntry::momentText(to)));
        }
    }
    m_clocks = std::move(now);
}

void MinuteJournal::minute(const QDateTime &at, const MinuteName &name, const QString &url,
                           const DayCounters &from, const DayCounters &to)
{
    crashPoint("minute-over");
    m_slices = 0;
    m_task = name.task;
    JournalEntry minute = entry("minute", at);
    minute.add(QStringLiteral("login"), m_login);
    add(minute, name)
        .add(QStringLiteral("url"), url)
        .add(QStringLiteral("version"), QCoreApplication::applicationVersion());
    append(add(minute, from, to), JournalFile::Flush::Now);
    crashPoint("minute-journaled");
}

void MinuteJournal::corrected(const DayCounters &from, const DayCounters &to)
{
    if (from == to)
        return;
    JournalEntry corrected = entry("corrected");
    append(add(corrected, from, to));
}

void MinuteJournal::restored(const MinuteName &name)
{
    JournalEntry restored = entry("restored");
    append(add(restored, name));
}

void MinuteJournal::screenshot(const QDateTime &at, const QString &path)
{
    append(ofFile("screenshot", path, at));
}

void MinuteJournal::answered(const QString &record, const MinuteName &name, bool isAccepted,
                             const QByteArray &answer)
{
    JournalEntry answered = entry(isAccepted ? "accepted" : "refused");
    appendFor(record, add(answered, name).add(QStringLiteral("answer"), answerText(answer)));
}

void MinuteJournal::screenshotSent(const QString &record, const QString &path)
{
    appendFor(record, ofFile("screenshot-sent", path));
}

void MinuteJournal::screenshotAnswered(const QString &record, const QString &path, bool isAccepted,
                                       const QByteArray &answer)
{
    appendFor(record,
              ofFile(isAccepted ? "screenshot-accepted" : "screenshot-refused", path)
                  .add(QStringLiteral("answer"), answerText(answer)));
}
