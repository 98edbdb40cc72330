#pragma once

#include "localservice/world.h"

#include <QByteArray>
#include <QHash>
#include <QPair>

namespace localservice {

// A minute that was accepted.
struct ActivityReport
{
    QDateTime arrived;
    QString email;
    QString teamId;
    QString taskId;
    QString version;
    static constexpr int kSlicesOfMinute = 10;
    static constexpr qint64 kLargestPast = 4294967295; // clients count in 32 bits

    int active = 0; // slices of the minute with activity, 0 to 10
    qint64 pastSeconds = 0; // its age when it was sent

    QDateTime moment() const { return arrived.addSecs(-pastSeconds); }
};

struct Screenshot
{
    QDateTime arrived;
    QString email;
    QString teamId;
    QString taskId;
    QString version;
    QString fileName; // as the client names it
    qint64 pastSeconds = 0;
    QByteArray jpeg; // empty once it is stored, or when the client sent no image
    QString path; // where it is stored; empty without a data folder

    QDateTime moment() const { return arrived.addSecs(-pastSeconds); }
};

struct DeadlineRequest
{
    QDateTime arrived;
    QString login;
    QString taskId;
    QString date; // "yyyy-MM-dd"
    QString time; // "HH:mm", empty when the client left it out
    QString message;
};

// A record as it is stored: times in ISO 8601, no image.
QJsonObject recordOf(const ActivityReport &report);
QJsonObject recordOf(const Screenshot &shot);
QJsonObject recordOf(const DeadlineRequest &request);
// A minute as somebody else's journal can be compared with it: its moments have their zone.
QJsonObject minuteOf(const ActivityReport &report);

// Bytes beyond which nothing more is stored. Generous for a day's work, whose 1,440 reports take
// a megabyte and whose 300 screenshots a few megabytes each.
struct Limits
{
    qint64 memory = qint64{2} << 30; // records, and images when there is no folder
    qint64 disk = qint64{8} << 30; // the files in the folder, those of earlier runs too
};

// What was received: in memory and, with a folder, also as lines of JSON and images there.
// Not synchronised.
class Journal final
{
public:
    // Creates the folder and loads the minutes that an earlier run left there. An empty name
    // keeps everything in memory. Unreadable lines are skipped.
    bool open(const QString &folder, const Limits &limits, QString *error);

    enum class Outcome {
        Kept,
        NotWritten, // the disk failed
        Full // a limit is reached
    };
    // What could not be stored is not kept at all.
    Outcome add(const ActivityReport &report);
    Outcome add(Screenshot shot);
    Outcome add(const DeadlineRequest &request);

    const QVector<ActivityReport> &reports() const { return m_reports; }
    const QVector<Screenshot> &screenshots() const { return m_screenshots; }
    const QVector<DeadlineRequest> &deadlineRequests() const { return m_deadlineRequests; }
    // True for the first record that found no room, once after each clear().
    bool takeFullNotice();

    // Forgets what is in memory; files stay and still count towards the limit.
    void clear();

    // The minutes of the day that were reported, plus those of the seed.
    DayTotals totals(const User &user, const QDate &day) const;

private:
    Outcome store(const QString &file, const QJsonObject &record, qint64 memory);
    bool hasRoom(qint64 memory, qint64 disk) const;
    bool readReports(QString *error);
    void keep(const ActivityReport &report);

    QString m_folder;
    Limits m_limits;
    qint64 m_memory = 0; // taken, in bytes
    qint64 m_disk = 0;
    bool m_fullWasNoticed = false;
    QHash<QPair<QString, QDate>, DayTotals> m_totals; // of each user's days, summed up as reports come
    QVector<ActivityReport> m_reports;
    QVector<Screenshot> m_screenshots;
    QVector<DeadlineRequest> m_deadlineRequests;
};

} // namespace localservice
