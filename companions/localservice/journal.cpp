#include "localservice/journal.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace localservice {

namespace {

QString reportsFile()
{
    return QStringLiteral("reports.jsonl");
}

QString pictureFolder()
{
    return QStringLiteral("screenshots");
}

QString stamp(const QDateTime &when)
{
    return when.toString(Qt::ISODateWithMs);
}

QJsonObject recordOf(const ActivityReport &report)
{
    return {{QStringLiteral("arrived"), stamp(report.arrived)}, {QStringLiteral("email"), report.email},
            {QStringLiteral("team_id"), report.teamId},         {QStringLiteral("task_id"), report.taskId},
            {QStringLiteral("version"), report.version},        {QStringLiteral("active"), report.active},
            {QStringLiteral("past"), report.pastSeconds}};
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
    report.active = record.value(QStringLiteral("active")).toInt();
    report.pastSeconds = static_cast<qint64>(record.value(QStringLiteral("past")).toDouble());
    return report;
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

} // namespace

bool Journal::open(const QString &folder, QString *error)
{
    m_folder = folder;
    clear();
    if (m_folder.isEmpty()) {
        return true;
    }
    if (!QDir().mkpath(m_folder % QLatin1Char('/') % pictureFolder())) {
        *error = QStringLiteral("не удалось создать папку данных «%1»").arg(m_folder);
        return false;
    }
    return readReports(error);
}

bool Journal::readReports(QString *error)
{
    QFile file(m_folder % QLatin1Char('/') % reportsFile());
    if (!file.exists()) {
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("не удалось прочитать «%1»: %2").arg(file.fileName(), file.errorString());
        return false;
    }
    constexpr qint64 longestLine = qint64{64} * 1024;
    while (!file.atEnd()) {
        const ActivityReport report = reportOf(QJsonDocument::fromJson(file.readLine(longestLine)).object());
        if (report.arrived.isValid()) {
            m_reports.append(report);
        }
    }
    return true;
}

bool Journal::appendLine(const QString &file, const QJsonObject &record) const
{
    if (m_folder.isEmpty()) {
        return true;
    }
    QFile out(m_folder % QLatin1Char('/') % file);
    const QByteArray line = QJsonDocument(record).toJson(QJsonDocument::Compact) + '\n';
    if (!out.open(QIODevice::WriteOnly | QIODevice::Append)) {
        return false;
    }
    const qint64 before = out.size();
    if (out.write(line) == line.size() && out.flush()) {
        return true;
    }
    // Half a line would spoil the next one as well.
    out.resize(before);
    return false;
}

bool Journal::add(const ActivityReport &report)
{
    if (!appendLine(reportsFile(), recordOf(report))) {
        return false;
    }
    m_reports.append(report);
    return true;
}

bool Journal::add(Screenshot shot)
{
    if (!m_folder.isEmpty() && !shot.jpeg.isEmpty()) {
        const QString stem = m_folder % QLatin1Char('/') % pictureFolder() % QLatin1Char('/')
            % shot.moment().toString(QStringLiteral("yyyy-MM-dd-HH-mm-ss"));
        // Two pictures of one second keep both; names from the client are never used.
        QFile out(stem % QStringLiteral(".jpg"));
        for (int number = 2; !out.open(QIODevice::NewOnly | QIODevice::WriteOnly); ++number) {
            if (!out.exists()) {
                return false;
            }
            out.setFileName(stem % QLatin1Char('-') % QString::number(number) % QStringLiteral(".jpg"));
        }
        if (out.write(shot.jpeg) != shot.jpeg.size() || !out.flush()) {
            out.remove();
            return false;
        }
        shot.path = out.fileName();
        shot.jpeg.clear();
    }
    if (!appendLine(QStringLiteral("screenshots.jsonl"), recordOf(shot))) {
        return false;
    }
    m_screenshots.append(shot);
    return true;
}

bool Journal::add(const DeadlineRequest &request)
{
    if (!appendLine(QStringLiteral("deadline-requests.jsonl"), recordOf(request))) {
        return false;
    }
    m_deadlineRequests.append(request);
    return true;
}

void Journal::clear()
{
    m_reports.clear();
    m_screenshots.clear();
    m_deadlineRequests.clear();
}

DayTotals Journal::totals(const User &user, const QDate &day) const
{
    DayTotals totals = user.workedOn == day ? user.worked : DayTotals();
    for (const ActivityReport &report : m_reports) {
        if (report.email == user.login && report.moment().date() == day) {
            ++totals.total;
            ++totals.tasks[report.taskId];
            // One active slice makes the whole minute an active one.
            totals.active += report.active > 0 ? 1 : 0;
        }
    }
    return totals;
}

} // namespace localservice
