#include "localservice/journal.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <initializer_list>
#include <utility>

namespace localservice {

namespace {

const QString kReportsFile = QStringLiteral("reports.jsonl");
const QString kScreenshotFolder = QStringLiteral("screenshots");

QString stamp(const QDateTime &when)
{
    return when.toString(Qt::ISODateWithMs);
}

ActivityReport reportOf(const QJsonObject &record)
{
    ActivityReport report;
    report.arrived =
        QDateTime::fromString(record.value(QStringLiteral("arrived")).toString(), Qt::ISODateWithMs);
    report.email = record.value(QStringLiteral("email")).toString();
    report.teamId = record.value(QStringLiteral("team_id")).toString();
    report.taskId = record.value(QStringLiteral("task_id")).toString();
    report.version = record.value(QStringLiteral("version")).toString();
    report.active =
        qBound(0, record.value(QStringLiteral("active")).toInt(), ActivityReport::kSlicesOfMinute);
    report.pastSeconds = static_cast<qint64>(
        qBound(0.0, record.value(QStringLiteral("past")).toDouble(), double(ActivityReport::kLargestPast)));
    return report;
}

// The approximate size in memory of a record with these texts.
qint64 sizeWith(std::initializer_list<QString> texts)
{
    constexpr qint64 record = 400;
    constexpr qint64 header = 32;
    qint64 size = record;
    for (const QString &text : texts)
        size += header + text.size() * qint64{sizeof(QChar)};
    return size;
}

qint64 sizeOf(const ActivityReport &report)
{
    return sizeWith({report.email, report.teamId, report.taskId, report.version});
}

qint64 sizeOf(const Screenshot &shot)
{
    return shot.jpeg.size()
        + sizeWith({shot.email, shot.teamId, shot.taskId, shot.version, shot.fileName, shot.path});
}

qint64 sizeOf(const DeadlineRequest &request)
{
    return sizeWith({request.login, request.taskId, request.date, request.time, request.message});
}

qint64 sizeOfFilesIn(const QString &folder)
{
    qint64 size = 0;
    for (QDirIterator files(folder, QDir::Files, QDirIterator::Subdirectories); files.hasNext();) {
        files.next();
        size += files.fileInfo().size();
    }
    return size;
}

} // namespace

QJsonObject recordOf(const ActivityReport &report)
{
    return {{QStringLiteral("arrived"), stamp(report.arrived)}, {QStringLiteral("email"), report.email},
            {QStringLiteral("team_id"), report.teamId},         {QStringLiteral("task_id"), report.taskId},
            {QStringLiteral("version"), report.version},        {QStringLiteral("active"), report.active},
            {QStringLiteral("past"), report.pastSeconds}};
}

QJsonObject recordOf(const Screenshot &shot)
{
    return {{QStringLiteral("arrived"), stamp(shot.arrived)},
            {QStringLiteral("email"), shot.email},
            {QStringLiteral("team_id"), shot.teamId},
            {QStringLiteral("task_id"), shot.taskId},
            {QStringLiteral("version"), shot.version},
            {QStringLiteral("past"), shot.pastSeconds},
            {QStringLiteral("picture"), shot.path}};
}

QJsonObject recordOf(const DeadlineRequest &request)
{
    return {
        {QStringLiteral("arrived"), stamp(request.arrived)}, {QStringLiteral("login"), request.login},
        {QStringLiteral("task_id"), request.taskId},         {QStringLiteral("dl_date"), request.date},
        {QStringLiteral("dl_time"), request.time},           {QStringLiteral("message"), request.message}};
}

QJsonObject minuteOf(const ActivityReport &report)
{
    const auto zoned = [](const QDateTime &when) {
        return when.toOffsetFromUtc(when.offsetFromUtc()).toString(Qt::ISODateWithMs);
    };
    return {{QStringLiteral("received"), zoned(report.arrived)},
            {QStringLiteral("made"), zoned(report.moment())},
            {QStringLiteral("user"), report.email},
            {QStringLiteral("team_id"), report.teamId},
            {QStringLiteral("task_id"), report.taskId},
            {QStringLiteral("active"), report.active}};
}

bool Journal::open(const QString &folder, const Limits &limits, QString *error)
{
    m_folder = folder;
    m_limits = limits;
    clear();
    if (m_folder.isEmpty())
        return true;
    if (!QDir().mkpath(m_folder % QLatin1Char('/') % kScreenshotFolder)) {
        *error = QStringLiteral("не удалось создать папку данных «%1»").arg(m_folder);
        return false;
    }
    m_disk = sizeOfFilesIn(m_folder);
    return readReports(error);
}

bool Journal::readReports(QString *error)
{
    QFile file(m_folder % QLatin1Char('/') % kReportsFile);
    if (!file.exists())
        return true;
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("не удалось прочитать «%1»: %2").arg(file.fileName(), file.errorString());
        return false;
    }
    while (!file.atEnd()) {
        const ActivityReport report = reportOf(QJsonDocument::fromJson(file.readLine()).object());
        if (report.arrived.isValid()) {
            m_memory += sizeOf(report);
            keep(report);
        }
    }
    return true;
}

bool Journal::hasRoom(qint64 memory, qint64 disk) const
{
    return m_memory + memory <= m_limits.memory && (m_folder.isEmpty() || m_disk + disk <= m_limits.disk);
}

// Accounts for the memory, too, once the line is written.
Journal::Outcome Journal::store(const QString &file, const QJsonObject &record, qint64 memory)
{
    const QByteArray line = QJsonDocument(record).toJson(QJsonDocument::Compact) + '\n';
    if (!hasRoom(memory, line.size()))
        return Outcome::Full;
    if (!m_folder.isEmpty()) {
        QFile out(m_folder % QLatin1Char('/') % file);
        if (!out.open(QIODevice::WriteOnly | QIODevice::Append))
            return Outcome::NotWritten;
        const qint64 before = out.size();
        if (out.write(line) != line.size() || !out.flush()) {
            // Half a line would damage the next one too.
            out.resize(before);
            return Outcome::NotWritten;
        }
        m_disk += line.size();
    }
    m_memory += memory;
    return Outcome::Kept;
}

void Journal::keep(const ActivityReport &report)
{
    m_reports.append(report);
    DayTotals &day = m_totals[{report.email, report.moment().date()}];
    ++day.total;
    ++day.tasks[report.taskId];
    // One active slice makes the whole minute an active one.
    day.active += report.active > 0 ? 1 : 0;
}

Journal::Outcome Journal::add(const ActivityReport &report)
{
    const Outcome outcome = store(kReportsFile, recordOf(report), sizeOf(report));
    if (outcome == Outcome::Kept)
        keep(report);
    return outcome;
}

Journal::Outcome Journal::add(Screenshot shot)
{
    const qint64 imageSize = shot.jpeg.size();
    if (!hasRoom(sizeOf(shot), imageSize))
        return Outcome::Full;
    if (!m_folder.isEmpty() && !shot.jpeg.isEmpty()) {
        const QString stem = m_folder % QLatin1Char('/') % kScreenshotFolder % QLatin1Char('/')
            % QLocale::c().toString(shot.moment(), QStringLiteral("yyyy-MM-dd-HH-mm-ss"));
        // There may be two of one second; names from the client are never used.
        QFile out(stem % QStringLiteral(".jpg"));
        for (int number = m_screenshots.size() + 1; !out.open(QIODevice::NewOnly | QIODevice::WriteOnly);
             ++number) {
            if (!out.exists())
                return Outcome::NotWritten;
            out.setFileName(stem % QLatin1Char('-') % QString::number(number) % QStringLiteral(".jpg"));
        }
        if (out.write(shot.jpeg) != shot.jpeg.size() || !out.flush()) {
            out.remove();
            return Outcome::NotWritten;
        }
        shot.path = out.fileName();
        shot.jpeg.clear();
    }
    const Outcome outcome = store(QStringLiteral("screenshots.jsonl"), recordOf(shot), sizeOf(shot));
    if (outcome == Outcome::Kept) {
        m_disk += shot.path.isEmpty() ? 0 : imageSize;
        m_screenshots.append(shot);
    } else if (!shot.path.isEmpty()) {
        // The client sends it again.
        QFile::remove(shot.path);
    }
    return outcome;
}

Journal::Outcome Journal::add(const DeadlineRequest &request)
{
    const Outcome outcome =
        store(QStringLiteral("deadline-requests.jsonl"), recordOf(request), sizeOf(request));
    if (outcome == Outcome::Kept)
        m_deadlineRequests.append(request);
    return outcome;
}

void Journal::clear()
{
    m_reports.clear();
    m_screenshots.clear();
    m_deadlineRequests.clear();
    m_totals.clear();
    m_memory = 0;
    m_fullWasNoticed = false;
}

bool Journal::takeFullNotice()
{
    return !std::exchange(m_fullWasNoticed, true);
}

DayTotals Journal::totals(const User &user, const QDate &day) const
{
    DayTotals totals = user.workedOn == day ? user.worked : DayTotals();
    const DayTotals received = m_totals.value({user.login, day});
    totals.total += received.total;
    totals.active += received.active;
    for (auto task = received.tasks.begin(); task != received.tasks.end(); ++task)
        totals.tasks[task.key()] += task.value();
    return totals;
}

} // namespace localservice
