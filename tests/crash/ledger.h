#pragma once

#include "fastclient.h"

#include <QDir>
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

    // The folder has to exist and to stay.
    void watch(const QString &login, const QString &folder)
    {
        m_folders.insert(m_watch.add(folder), {login, folder});
    }

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
        readRecords();
        ++m_accepted[id];
        m_ofThisRun.append({Clock::now(), id});
    }

    // Between these two, accepting calls need not reach the client.
    void repliesGetLost()
    {
        const std::lock_guard lock(m_mutex);
        m_lossy.append({Clock::now(), Clock::time_point::max() - kOnTheWay});
    }

    void repliesArrive()
    {
        const std::lock_guard lock(m_mutex);
        if (!m_lossy.isEmpty())
            m_lossy.last().to = std::min(m_lossy.constLast().to, Clock::now());
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
            const int loss = lossOf(acceptance);
            if (loss < 0)
                answered.insert(acceptance.id);
            else
                lost.insert({acceptance.id, loss});
        }
        for (const auto &loss : qAsConst(lost))
            ++m_excuses[loss.first];
        const QVector<QString> left = waitingIds();
        for (const QString &id : left)
            m_excuses[id] += answered.contains(id) ? 1 : 0;
        m_ofThisRun.clear();
        if (!m_lossy.isEmpty())
            m_lossy = {m_lossy.constLast()};
        return std::exchange(m_bookings, {});
    }

    int waiting(const QString &login)
    {
        const std::lock_guard lock(m_mutex);
        return waitingIds(login).size();
    }

    Sums sums()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
        Sums sums;
        const QVector<QString> left = waitingIds();
        sums.counted = m_counted.size();
        sums.received = m_accepted.size();
        sums.unread = m_unread;
        for (auto it = m_counted.cbegin(); it != m_counted.cend(); ++it) {
            const bool waits = left.contains(it.key());
            if (!m_accepted.contains(it.key()))
                ++(waits ? sums.waiting : sums.missing);
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

    int counted()
    {
        const std::lock_guard lock(m_mutex);
        readRecords();
        return m_counted.size();
    }

    static QString booking(const QString &login, const QString &team, const QString &task, int port)
    {
        return login + QLatin1Char('\t') + team + QLatin1Char('\t') + task + QLatin1Char('\t')
            + QString::number(port);
    }

    // What else has to arrive: the slices of a minute, the name of a screenshot.
    static QString idOf(const QString &version, const QString &booking, const QString &rest)
    {
        return version + QLatin1Char('\t') + booking + QLatin1Char('\t') + rest;
    }

private:
    // A reply may be lost by a change that comes while it is on its way.
    static constexpr std::chrono::milliseconds kOnTheWay{250};
    using Clock = std::chrono::steady_clock;
    struct Acceptance
    {
        Clock::time_point when;
        QString id;
    };
    struct Folder
    {
        QString login;
        QString path;
    };
    struct Interval
    {
        Clock::time_point from;
        Clock::time_point to;
    };

    void readRecords()
    {
        m_watch.read([this](int folder, const QString &name) { enter(m_folders.value(folder), name); });
    }

    void enter(const Folder &folder, const QString &name)
    {
        QString version;
        QString booked;
        const QString id = load(folder, name, &version, &booked);
        if (id.isEmpty()) {
            ++m_unread;
            return;
        }
        ++m_counted[id];
        m_bookings.insert(version, booked);
    }

    // The id, or nothing when the record is gone.
    static QString load(const Folder &folder, const QString &name, QString *version, QString *booked)
    {
        QFile file(folder.path + QLatin1Char('/') + name);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QJsonObject record = QJsonDocument::fromJson(file.readAll()).object();
        const QJsonObject body = record.value(s("body")).toObject();
        const auto text = [&body](const char *key) { return body.value(QLatin1String(key)).toString(); };
        *version = text("version");
        // The folder's user is the one who has worked.
        *booked = booking(folder.login, text("team_id"), text("task_id"),
                          QUrl(record.value(s("api-url")).toString()).port());
        return idOf(*version, *booked, text(body.contains(s("fileName")) ? "fileName" : "active"));
    }

    // The interval in which the reply to it was lost, or -1.
    int lossOf(const Acceptance &acceptance) const
    {
        const auto found =
            std::find_if(m_lossy.cbegin(), m_lossy.cend(), [&acceptance](const Interval &interval) {
                return acceptance.when >= interval.from - kOnTheWay
                    && acceptance.when <= interval.to + kOnTheWay;
            });
        return found == m_lossy.cend() ? -1 : static_cast<int>(found - m_lossy.cbegin());
    }

    // Of one user, or of all.
    QVector<QString> waitingIds(const QString &login = QString()) const
    {
        QVector<QString> ids;
        QString version;
        QString booked;
        for (const Folder &folder : m_folders) {
            if (!login.isEmpty() && folder.login != login)
                continue;
            const QStringList names = QDir(folder.path).entryList({s("json*")}, QDir::Files);
            for (const QString &name : names)
                ids.append(load(folder, name, &version, &booked));
        }
        return ids;
    }

    std::mutex m_mutex;
    RecordWatch m_watch;
    QHash<int, Folder> m_folders; // by watch
    QMultiHash<QString, QString> m_bookings; // of the client that runs, by version
    QHash<QString, int> m_counted; // by id: how many records
    QHash<QString, int> m_accepted;
    QHash<QString, int> m_excuses;
    QVector<Acceptance> m_ofThisRun;
    QVector<Interval> m_lossy;
    int m_unread = 0;
};
