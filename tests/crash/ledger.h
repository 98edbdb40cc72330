#pragma once

#include "fastclient.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QUrl>
#include <QVector>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

// Keeps account of what the client promised and what the service received. A report is promised
// from the moment its record has its final name in the watched folder. It is identified by the
// number that the trial build puts into its version, together with its booking: whose it is, on
// which task, and at which port it has to arrive. Thread-safe.
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

    // Reads the records that have come since the last call. Called before any answer leaves
    // the service, it sees each one before the client may delete it.
    void readFolder()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
    }

    // The service has accepted it and may still fail to say so.
    void accepted(const QString &id)
    {
        const std::lock_guard lock(m_mutex);
        ++m_accepted[id];
        m_ofThisRun.append({Clock::now(), id, Clock::now() < m_lossEnds ? m_losses : 0});
    }

    // Between these two, accepting calls need not reach the client.
    void repliesGetLost()
    {
        const std::lock_guard lock(m_mutex);
        ++m_losses;
        m_lossEnds = Clock::time_point::max();
        for (Acceptance &acceptance : m_ofThisRun) {
            if (acceptance.when > Clock::now() - kOnTheWay)
                acceptance.loss = m_losses;
        }
    }

    void repliesArrive()
    {
        const std::lock_guard lock(m_mutex);
        m_lossEnds = std::min(m_lossEnds, Clock::now() + kOnTheWay);
    }

    // No client runs: for what was accepted and is still in the folder, the kill is to blame.
    // A client sends a report again only after another one has been accepted: as long as all
    // replies are lost, one acceptance is excused. A kill excuses one that left the record in
    // the folder. Anything else that is sent twice has no excuse.
    // Returns the bookings of the client's records by their version.
    QMultiHash<QString, QString> clientIsGone()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
        QSet<QPair<QString, int>> lost;
        QSet<QString> answered;
        for (const Acceptance &acceptance : qAsConst(m_ofThisRun)) {
            if (acceptance.loss > 0)
                lost.insert({acceptance.id, acceptance.loss});
            else
                answered.insert(acceptance.id);
        }
        for (const auto &loss : qAsConst(lost))
            ++m_excuses[loss.first];
        const QSet<QString> left = waitingIds();
        for (const QString &id : left)
            m_excuses[id] += answered.contains(id) ? 1 : 0;
        m_ofThisRun.clear();
        return std::exchange(m_bookings, {});
    }

    Sums sums()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
        Sums sums;
        const QSet<QString> left = waitingIds();
        sums.counted = m_counted.size();
        sums.received = m_accepted.size();
        sums.unread = m_unread;
        for (auto it = m_counted.cbegin(); it != m_counted.cend(); ++it) {
            if (!m_accepted.contains(it.key()))
                ++(left.contains(it.key()) ? sums.waiting : sums.missing);
            // A second record of one report would be a second payment.
            sums.unexcused += it.value() - 1;
        }
        for (auto it = m_accepted.cbegin(); it != m_accepted.cend(); ++it) {
            sums.uncounted += m_counted.contains(it.key()) ? 0 : 1;
            const int again = it.value() - 1;
            const int excused = std::min(again, m_excuses.value(it.key()));
            sums.excused += excused;
            sums.unexcused += again - excused;
        }
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
    struct Acceptance
    {
        Clock::time_point when;
        QString id;
        int loss; // the number of the period in which the reply to it was lost, or 0
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
                ++m_unread;
                return;
            }
            ++m_counted[record.id];
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
    QHash<QString, int> m_counted; // by id: how many records
    QHash<QString, int> m_accepted;
    QHash<QString, int> m_excuses;
    QVector<Acceptance> m_ofThisRun;
    Clock::time_point m_lossEnds;
    int m_losses = 0;
    int m_unread = 0;
};
