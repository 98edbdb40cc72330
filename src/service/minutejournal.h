#pragma once

#include "service/daystates.h"
#include "storage/journalfile.h"

#include <QObject>

#include <map>
#include <memory>
#include <optional>
#include <vector>

class NotificationSink;
class StorageFolder;

// What tells one minute from another. Two of the same second, as when an hour comes twice, may be
// equal; they are counted.
struct MinuteName
{
    QString record; // the moment, as in the record
    QString team;
    QString task;
    int active = 0; // slices

    bool operator==(const MinuteName &other) const
    {
        return record == other.record && team == other.team && task == other.task && active == other.active;
    }
};

// Writes down what becomes of each user's minutes, one file a month. A minute's line comes before
// anything else that is done with it. Without "journal" in the system configuration this does nothing.
class MinuteJournal final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MinuteJournal)

public:
    enum class End { Exit, SignOut };

    // Storage and sink must outlive the journal.
    MinuteJournal(StorageFolder *storage, NotificationSink *notifications, QObject *parent);
    ~MinuteJournal() override;

    // The user's journal gets the events from now on. `stored` are the counters of the user's
    // session file. When a kill has kept them from being saved, `day` gets those of the journal.
    void open(const QString &login, const std::optional<DayCounters> &stored, WorkDay *day);
    // The slices of the minute under way are dropped with the end of the program, or when another
    // user follows.
    void close(End end, bool dropsSlices);
    // Without effect where the configuration wants no journal.
    void setEnabled(bool enabled);
    bool isEnabled() const { return m_isEnabled; }
    QString login() const { return m_login; }
    // False when lines of the open journal wait for the disk.
    bool isWritten();
    // The first line of the open journal that this process has written.
    qint64 firstLine() { return fileOf(m_folder).firstLine(); }

    void started(const QString &team, const QString &task);
    void stopped(const QString &task);
    // A slice of the minute is over. Notices that the machine has slept, or its clock was set.
    void slicePassed();
    void minute(const QDateTime &at, const MinuteName &name, const QString &url, const DayCounters &from,
                const DayCounters &to);
    // Nothing when they are the same.
    void corrected(const DayCounters &from, const DayCounters &to);
    void restored(const MinuteName &name);
    void screenshot(const QDateTime &at, const QString &path);

    // Of the user in whose folder the record lies.
    void answered(const QString &record, const MinuteName &name, bool isAccepted, const QByteArray &answer);
    void screenshotSent(const QString &record, const QString &path);
    void screenshotAnswered(const QString &record, const QString &path, bool isAccepted,
                            const QByteArray &answer);

private:
    struct Clocks;

    void announce();
    void append(const JournalEntry &entry, JournalFile::Flush flush = JournalFile::Flush::Later);
    void append(JournalFile &file, const JournalEntry &entry, JournalFile::Flush flush);
    void appendFor(const QString &record, const JournalEntry &entry);
    JournalFile &fileOf(const QString &userFolder);
    void bringTogether(const DayCounters &stored, WorkDay *day);

    StorageFolder *m_storage;
    NotificationSink *m_notifications;
    bool m_isEnabled;
    bool m_hasReportedRefusal = false;
    QString m_login; // empty while no journal is open
    QString m_folder; // the user's
    std::map<QString, JournalFile> m_files; // by the user's folder
    std::vector<JournalEntry> m_unannounced; // before the first event of this run
    bool m_isRunning = false;
    int m_slices = 0; // of the minute under way
    QString m_task; // the latest that was worked on
    std::unique_ptr<Clocks> m_clocks; // at the latest slice
};
