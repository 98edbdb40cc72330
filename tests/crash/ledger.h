#pragma once

#include "fastclient.h"

#include <mutex>
#include <utility>

// Keeps account of what the client promised and what the service received. A report is promised from the
// moment its record has its final name in the watched folder. It is identified by the number that the trial
// build puts into its version, together with its booking: whose it is, on which task, and at which port it
// has to arrive. Thread-safe.
class Ledger final
{
public:
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

    // Reads the records that have come since the last call. Called before any answer leaves the service, it
    // sees each one before the client may delete it.
    void readFolder()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
    }

    // The service has accepted it and may still fail to say so. A client sends a report again only after
    // another one has been accepted, or after a kill: as long as all replies are lost, one acceptance is
    // excused. Anything else that is sent twice has no excuse.
    void accepted(const QString &id)
    {
        const std::lock_guard lock(m_mutex);
        Acceptances &all = m_ofThisRun[id];
        all.last = Clock::now();
        if (all.last < m_lossEnds)
            all.losses.insert(m_losses);
        if (++all.times > 1 + all.losses.size())
            ++m_sums.unexcused;
        else if (m_accepted.contains(id))
            ++m_sums.excused;
        m_accepted.insert(id);
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
    QMultiHash<QString, QString> clientIsGone()
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
        const QSet<QString> left = waitingIds();
        for (const QString &id : qAsConst(m_counted)) {
            if (!m_accepted.contains(id))
                ++(left.contains(id) ? sums.waiting : sums.missing);
        }
        sums.uncounted = (m_accepted - m_counted).size();
        return sums;
    }

    static QString booking(const QString &login, const QString &team, const QString &task, int port)
    {
        return QStringList{login, team, task, QString::number(port)}.join(QLatin1Char('\t'));
    }

    // What else has to arrive: the slices of a minute, the name of a screenshot.
    static QString idOf(const QString &version, const QString &booking, const QString &rest)
    {
        return QStringList{version, booking, rest}.join(QLatin1Char('\t'));
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
    struct Record
    {
        QString id; // empty when it is gone
        QString version;
        QString booking;
    };

    void readRecords()
    {
        m_watch.read([this](int folder, const QString &name) {
            const Record record = load(m_folders.value(folder), name);
            if (record.id.isEmpty()) {
                ++m_sums.unread;
                return;
            }
            // A second record of one report would be a second payment.
            m_sums.unexcused += m_counted.contains(record.id) ? 1 : 0;
            m_counted.insert(record.id);
            m_bookings.insert(record.version, record.booking);
        });
    }

    static Record load(const QString &folder, const QString &name)
    {
        QFile file(folder + QLatin1Char('/') + name);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QJsonObject record = QJsonDocument::fromJson(file.readAll()).object();
        const QJsonObject body = record.value(s("body")).toObject();
        const auto text = [&body](const char *key) { return body.value(s(key)).toString(); };
        // The folder's user is the one who has worked.
        const QString booked = booking(folder.section(QLatin1Char('/'), -2, -2), text("team_id"),
                                       text("task_id"), QUrl(record.value(s("api-url")).toString()).port());
        const QString rest = text(body.contains(s("fileName")) ? "fileName" : "active");
        return {idOf(text("version"), booked, rest), text("version"), booked};
    }

    QSet<QString> waitingIds() const
    {
        QSet<QString> ids;
        for (const QString &folder : m_folders) {
            const QStringList names = QDir(folder).entryList({s("json*")}, QDir::Files);
            for (const QString &name : names)
                ids.insert(load(folder, name).id);
        }
        return ids;
    }

    std::mutex m_mutex;
    RecordWatch m_watch;
    QHash<int, QString> m_folders; // by watch
    QMultiHash<QString, QString> m_bookings; // of the client that runs, by version
    QSet<QString> m_counted;
    QSet<QString> m_accepted;
    QHash<QString, Acceptances> m_ofThisRun; // by id
    Clock::time_point m_lossEnds;
    int m_losses = 0;
    Sums m_sums; // what is counted as it happens
};
