#include "localservice/page.h"

#include "localservice/access.h"
#include "localservice/pageactions.h"
#include "localservice/replies.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace localservice {

namespace {

constexpr int kShownRecords = 30;
constexpr int kShownScreenshots = 6;
constexpr int kMostMinutes = 50000; // more than a month of a user
constexpr int kMaxTextLength = 200;
constexpr int kNotFound = 404;

const QString kStatePath = QStringLiteral("/state");
const QString kMinutesPath = QStringLiteral("/minutes");
const QString kScreenshotsPath = QStringLiteral("/screenshots/");
const QString kControlPath = QStringLiteral("/control/");

struct PageFile
{
    QString path;
    QString resource;
    QByteArray contentType;
};

const PageFile *pageFile(const QString &path)
{
    static const PageFile files[]{
        {QStringLiteral("/"), QStringLiteral("page.html"), QByteArrayLiteral("text/html; charset=utf-8")},
        {QStringLiteral("/minutes.html"), QStringLiteral("minutes.html"),
         QByteArrayLiteral("text/html; charset=utf-8")},
        {QStringLiteral("/minutes.js"), QStringLiteral("minutes.js"),
         QByteArrayLiteral("text/javascript; charset=utf-8")},
        {QStringLiteral("/page.css"), QStringLiteral("page.css"),
         QByteArrayLiteral("text/css; charset=utf-8")},
        {QStringLiteral("/page.js"), QStringLiteral("page.js"),
         QByteArrayLiteral("text/javascript; charset=utf-8")}};
    const auto *found = std::find_if(std::begin(files), std::end(files),
                                     [&path](const PageFile &file) { return file.path == path; });
    return found == std::end(files) ? nullptr : found;
}

// Clients may send texts of many megabytes.
QJsonObject shortened(QJsonObject record)
{
    for (auto member = record.begin(); member != record.end(); ++member) {
        const QString text = member.value().toString();
        if (text.size() > kMaxTextLength)
            member.value() = QString(text.left(kMaxTextLength - 1) % QStringLiteral("…"));
    }
    return record;
}

// The latest first.
template <typename Record>
QJsonArray latest(const QVector<Record> &records, int maxCount)
{
    QJsonArray list;
    const int oldest = std::max(0, records.size() - maxCount);
    for (int i = records.size() - 1; i >= oldest; --i) {
        QJsonObject record = shortened(recordOf(records.at(i)));
        record.insert(QStringLiteral("number"), i);
        list.append(record);
    }
    return list;
}

QJsonArray usersJson(const ControlState &state)
{
    const QDate today = QDate::currentDate();
    QJsonArray list;
    for (const User &user : qAsConst(state.world.users)) {
        const DayTotals totals = state.journal.totals(user, today);
        list.append(QJsonObject{{QStringLiteral("login"), user.login},
                                {QStringLiteral("total"), totals.total},
                                {QStringLiteral("active"), totals.active}});
    }
    return list;
}

Reply stateReply(const ControlState &state)
{
    const Journal &journal = state.journal;
    const User everyTeam;
    const QJsonObject object{
        {QStringLiteral("token"), QString::fromLatin1(state.token)},
        {QStringLiteral("outage"), outageName(state.outage)},
        {QStringLiteral("users"), usersJson(state)},
        {QStringLiteral("reports"), latest(journal.reports(), kShownRecords)},
        {QStringLiteral("report_count"), journal.reports().size()},
        {QStringLiteral("screenshots"), latest(journal.screenshots(), kShownScreenshots)},
        {QStringLiteral("screenshot_count"), journal.screenshots().size()},
        {QStringLiteral("deadline_requests"), latest(journal.deadlineRequests(), kShownRecords)},
        {QStringLiteral("deadline_request_count"), journal.deadlineRequests().size()},
        {QStringLiteral("teams"), teamsAndTasksJson(state.world, everyTeam)},
        {QStringLiteral("versions"), state.world.versions}};
    return {200, QJsonDocument(object).toJson(QJsonDocument::Compact)};
}

// In order of arrival, those that came twice included: of a user, and of a day or month in which they
// were made, where the request names these.
Reply minutesReply(const RecordedRequest &request, const Journal &journal)
{
    const QString user = request.queryValue(QStringLiteral("user"));
    const QString day = request.queryValue(QStringLiteral("day"));
    QVector<const ActivityReport *> found;
    for (const ActivityReport &report : journal.reports()) {
        if ((user.isEmpty() || report.email == user)
            && (day.isEmpty() || report.moment().toString(Qt::ISODate).startsWith(day)))
            found.append(&report);
    }
    QJsonArray list;
    for (int i = std::max(0, found.size() - kMostMinutes); i < found.size(); ++i)
        list.append(shortened(minuteOf(*found.at(i))));
    const QJsonObject object{{QStringLiteral("count"), found.size()}, {QStringLiteral("minutes"), list}};
    return {200, QJsonDocument(object).toJson(QJsonDocument::Compact)};
}

Reply screenshotReply(const QString &number, const Journal &journal)
{
    bool isNumber = false;
    const int index = number.toInt(&isNumber);
    if (!isNumber || index < 0 || index >= journal.screenshots().size())
        return textPage(kNotFound, QStringLiteral("Снимок не найден"));
    const Screenshot &shot = journal.screenshots().at(index);
    QByteArray jpeg = shot.jpeg;
    QFile file(shot.path);
    if (!shot.path.isEmpty() && file.open(QIODevice::ReadOnly))
        jpeg = file.readAll();
    return jpeg.isEmpty() ? textPage(kNotFound, QStringLiteral("Клиент не прислал снимок"))
                          : Reply{200, jpeg, QByteArrayLiteral("image/jpeg")};
}

Reply changeReply(const RecordedRequest &request, const ControlState &state)
{
    constexpr int kNoContent = 204;
    constexpr int kBadRequest = 400;
    constexpr int kForbidden = 403;
    const auto plain = [](int status, const QString &text) {
        return Reply{status, text.toUtf8(), QByteArrayLiteral("text/plain; charset=utf-8")};
    };
    if (!isToken(request.formValue(QStringLiteral("token")).toUtf8(), state.token))
        return plain(kForbidden, QStringLiteral("Страница устарела, откройте её заново"));
    const QString problem = applyControl(request.path.mid(kControlPath.size()), request.formPairs, state);
    return plain(problem.isEmpty() ? kNoContent : kBadRequest, problem);
}

} // namespace

bool isControlPath(const QString &path)
{
    return pageFile(path) || path == kStatePath || path == kMinutesPath || path.startsWith(kControlPath)
        || path.startsWith(kScreenshotsPath);
}

Reply answerControl(const RecordedRequest &request, const ControlState &state)
{
    constexpr int kWrongMethod = 405;
    const bool changes = request.path.startsWith(kControlPath);
    const bool isRightMethod =
        changes ? request.method == "POST" : request.method == "GET" || request.method == "HEAD";
    if (!isRightMethod)
        return textPage(kWrongMethod, QStringLiteral("Так к этой странице не обращаются"));
    if (changes)
        return changeReply(request, state);
    if (request.path.startsWith(kScreenshotsPath))
        return screenshotReply(request.path.mid(kScreenshotsPath.size()), state.journal);
    if (request.path == kMinutesPath)
        return minutesReply(request, state.journal);
    const PageFile *file = pageFile(request.path);
    return file ? Reply{200, resource(file->resource), file->contentType} : stateReply(state);
}

} // namespace localservice
