#pragma once

#include "fastclient.h"

#include <mutex>
#include <utility>

// Keeps account of what the client promised and what the service received. A report is promised from the
// moment its record has its final name in the watched folder. Thread-safe.
class Ledger final
{
public:
    // The number that the trial build puts into its version; its booking, which is whose it is, on which team
    // and task, and at which port it has to arrive; the slices of a minute or the name of a screenshot.
    using Report = QStringList;
    struct Sums
    {
        int counted = 0;
        int received = 0; // different ones
        int missing = 0; // neither received nor waiting in the folder
        int waiting = 0;
        int uncounted = 0; // received without ever having been on the disk
        int unread = 0; // gone from the folder before the service had accepted it
        int excused = 0; // received again after a kill or a lost reply
        int unexcused = 0;
        bool isClean() const { return missing + waiting + uncounted + unread + unexcused == 0; }
    };

    // The folder "USER/activity", which has to stay.
    void watch(const QString &folder) { m_folders.insert(m_watch.add(folder), folder); }

    // Called before any answer leaves the service, it sees each record before the client may delete it.
    void readFolder()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
    }

    // The service has accepted it and may still fail to say so. A client sends a report again only after
    // another one has been accepted, or after a kill: as long as all replies are lost, one acceptance is
    // excused. Anything else that is sent twice has no excuse.
    void accepted(const Report &report)
    {
        const std::lock_guard lock(m_mutex);
        Acceptances &all = m_ofThisRun[report];
        all.last = Clock::now();
        if (all.last < m_lossEnds)
            all.losses.insert(m_losses);
        if (++all.times > 1 + all.losses.size())
            ++m_sums.unexcused;
        else if (m_accepted.contains(report))
            ++m_sums.excused;
        m_accepted.insert(report);
    }

    // Between these two, accepting calls need not reach the client.
    void repliesGetLost()
    {
        const std::lock_guard lock(m_mutex);
        ++m_losses;
        m_lossEnds = Clock::time_point::max();
        for (Acceptances &all : m_ofThisRun) {
            if (all.last > Clock::now() - kOnTheWay)
                all.losses.insert(m_losses);
        }
    }

    void repliesArrive()
    {
        const std::lock_guard lock(m_mutex);
        m_lossEnds = std::min(m_lossEnds, Clock::now() + kOnTheWay);
    }

    // Returns the bookings of the client's records by their version.
    QMultiHash<QString, QStringList> clientIsGone()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
        m_ofThisRun.clear();
        return std::exchange(m_bookings, {});
    }

    Sums sums()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
        Sums sums = m_sums;
        sums.counted = m_counted.size();
        sums.received = m_accepted.size();
        const QSet<Report> left = waitingReports();
        for (const Report &report : qAsConst(m_counted)) {
            if (!m_accepted.contains(report))
                ++(left.contains(report) ? sums.waiting : sums.missing);
        }
        sums.uncounted = (m_accepted - m_counted).size();
        return sums;
    }

private:
    using Clock = std::chrono::steady_clock;
    // A reply may be lost by a change that comes while it is on its way.
    static constexpr std::chrono::milliseconds kOnTheWay{250};
    struct Acceptances
    {
        Clock::time_point last;
        int times = 0;
        QSet<int> losses; // the periods in which replies to them were lost
    };
    void readRecords()
    {
        m_watch.read([this](int folder, const QString &name) {
            const Report report = load(m_folders.value(folder), name);
            if (report.isEmpty()) {
                ++m_sums.unread;
                return;
            }
            // A second record of one report would be a second payment.
            m_sums.unexcused += m_counted.contains(report) ? 1 : 0;
            m_counted.insert(report);
            m_bookings.insert(report.first(), report.mid(1, 4));
        });
    }

    // Nothing when it is gone.
    static Report load(const QString &folder, const QString &name)
    {
        QFile file(folder + QLatin1Char('/') + name);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QJsonObject record = QJsonDocument::fromJson(file.readAll()).object();
        const QJsonObject body = record.value(s("body")).toObject();
        const auto text = [&body](const char *key) { return body.value(s(key)).toString(); };
        // The folder's user is the one who has worked.
        return {text("version"),
                folder.section(QLatin1Char('/'), -2, -2),
                text("team_id"),
                text("task_id"),
                QString::number(QUrl(record.value(s("api-url")).toString()).port()),
                text(body.contains(s("fileName")) ? "fileName" : "active")};
    }

    QSet<Report> waitingReports() const
    {
        QSet<Report> reports;
        for (const QString &folder : m_folders) {
            const QStringList names = QDir(folder).entryList({s("json*")}, QDir::Files);
            for (const QString &name : names)
                reports.insert(load(folder, name));
        }
        return reports;
    }

    std::mutex m_mutex;
    RecordWatch m_watch;
    QHash<int, QString> m_folders; // by watch
    QMultiHash<QString, QStringList> m_bookings; // of the client that runs, by version
    QSet<Report> m_counted;
    QSet<Report> m_accepted;
    QHash<Report, Acceptances> m_ofThisRun;
    Clock::time_point m_lossEnds;
    int m_losses = 0;
    Sums m_sums; // what is counted as it happens
};
