#pragma once

#include "fastclient.h"
#include "storage/journalreader.h"

#include <mutex>
#include <utility>

// Keeps account of what the client promised and what the service received. A minute is promised from the
// moment its line is in the journal, a screenshot from the moment its record has its final name. Thread-safe.
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
        int uncounted = 0; // received or recorded without ever having been promised
        int unread = 0; // gone from the folder before the service had accepted it
        int excused = 0; // received again after a kill or a lost reply
        int unexcused = 0;
        int restored = 0; // minutes whose record a kill had prevented
        int broken = 0; // lines that do not follow the ones before, or are not true
        bool isClean() const { return missing + waiting + uncounted + unread + unexcused + broken == 0; }
    };

    // The user's folder, whose folder "activity" has to stay.
    void watch(const QString &folder)
    {
        const QString activity = folder + s("/activity");
        m_folders.insert(m_watch.add(activity), activity);
        m_journals[folder];
    }

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

    // Returns the bookings of the client's minutes and screenshots by their version; those of minutes also
    // have the day and the active slices.
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
        sums.uncounted = (m_accepted + m_recorded - m_counted).size();
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
    struct Position
    {
        QString file;
        qint64 offset = 0;
        JournalChain chain;
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
            m_sums.unexcused += m_recorded.contains(report) ? 1 : 0;
            m_recorded.insert(report);
            if (report.constLast().contains(s("screenshot"))) {
                m_counted.insert(report);
                m_bookings.insert(report.first(), report.mid(1, 4));
            }
        });
        for (auto journal = m_journals.begin(); journal != m_journals.end(); ++journal)
            readJournal(journal.key(), *journal);
    }

    void readJournal(const QString &folder, Position &at)
    {
        const QStringList files = Journal::files(folder);
        for (const QString &file : files) {
            if (file < at.file)
                continue;
            if (file != at.file)
                at = {file, 0, at.chain};
            JournalReader reader(file, at.offset);
            for (JournalReader::Line line; reader.next(&line) && line.isEnded; at.offset = reader.position())
                readLine(folder, line, at.chain.follows(line));
        }
    }

    void readLine(const QString &folder, const JournalReader::Line &line, bool follows)
    {
        static const QStringList untrue = texts({"gap", "sleep", "clock"}); // here nothing of that happens
        m_sums.broken += follows && !untrue.contains(line.event) ? 0 : 1;
        m_sums.restored += line.event == s("restored") ? 1 : 0;
        if (line.event != s("minute"))
            return;
        const auto text = [&line](const char *key) {
            return line.values.value(s(key)).toVariant().toString();
        };
        const Report report{text("version"),     folder.section(QLatin1Char('/'), -1),
                            text("team"),        text("task"),
                            portOf(text("url")), text("active")};
        m_sums.unexcused += m_counted.contains(report) ? 1 : 0;
        m_counted.insert(report);
        m_bookings.insert(report.first(), report.mid(1, 4) + QStringList{text("day"), text("active")});
    }

    static QString portOf(const QString &url) { return QString::number(QUrl(url).port()); }

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
                portOf(record.value(s("api-url")).toString()),
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
    QMap<QString, Position> m_journals; // by the user's folder
    QSet<Report> m_counted;
    QSet<Report> m_recorded;
    QSet<Report> m_accepted;
    QHash<Report, Acceptances> m_ofThisRun;
    Clock::time_point m_lossEnds;
    int m_losses = 0;
    Sums m_sums; // what is counted as it happens
};
