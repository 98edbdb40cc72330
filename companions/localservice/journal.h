#pragma once

#include "localservice/world.h"

#include <QByteArray>

namespace localservice {

/// A minute that was accepted.
struct ActivityReport
{
    QDateTime arrived;
    QString email;
    QString teamId;
    QString taskId;
    QString version;
    int active = 0; ///< slices of the minute with activity, 0 to 10
    qint64 pastSeconds = 0; ///< its age when it was sent

    QDateTime moment() const { return arrived.addSecs(-pastSeconds); }
};

struct Screenshot
{
    QDateTime arrived;
    QString email;
    QString teamId;
    QString taskId;
    QString version;
    QString fileName; ///< as the client names it
    qint64 pastSeconds = 0;
    QByteArray jpeg; ///< empty once it is stored, or when the client had no picture to send
    QString path; ///< where it is stored; empty without a data folder

    QDateTime moment() const { return arrived.addSecs(-pastSeconds); }
};

struct DeadlineRequest
{
    QDateTime arrived;
    QString login;
    QString taskId;
    QString date; ///< "yyyy-MM-dd"
    QString time; ///< "HH:mm", empty when the client left it out
    QString message;
};

/// What was received: in memory and, with a folder, also as lines of JSON and pictures there.
/// Not synchronised.
class Journal final
{
public:
    /// Makes the folder and takes up the minutes that an earlier run left there. An empty name
    /// keeps everything in memory. Lines that cannot be read are passed over.
    bool open(const QString &folder, QString *error);

    // False when the record could not be stored; then it is not kept at all.
    bool add(const ActivityReport &report);
    bool add(Screenshot shot);
    bool add(const DeadlineRequest &request);

    const QVector<ActivityReport> &reports() const { return m_reports; }
    const QVector<Screenshot> &screenshots() const { return m_screenshots; }
    const QVector<DeadlineRequest> &deadlineRequests() const { return m_deadlineRequests; }
    void clear();

    /// The minutes of the day that were reported, besides those that the user brings along.
    DayTotals totals(const User &user, const QDate &day) const;

private:
    bool appendLine(const QString &file, const QJsonObject &record) const;
    bool readReports(QString *error);

    QString m_folder;
    QVector<ActivityReport> m_reports;
    QVector<Screenshot> m_screenshots;
    QVector<DeadlineRequest> m_deadlineRequests;
};

} // namespace localservice
