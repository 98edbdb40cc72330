#pragma once

#include "service/minutejournal.h"
#include "storage/journalreader.h"

#include <QHash>
#include <QTimer>

#include <memory>

class ReportSender;
class StorageFolder;

// A minute whose record an earlier run has not left and that was never accepted.
struct JournaledMinute
{
    MinuteName name;
    QString url;
    QString version;
};

// Finds the minutes of the open journal that were neither accepted nor wait, and gives them
// records again; those of this run have theirs, or will. Works in small steps from the event loop.
// Where the journal is not whole, nothing before that place is restored: a minute may be missing only if
// every line after it says nothing else.
class MinuteRecovery final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MinuteRecovery)

public:
    // Storage, journal and reports must outlive it.
    MinuteRecovery(StorageFolder *storage, MinuteJournal *journal, ReportSender *reports, QObject *parent);
    ~MinuteRecovery() override;

    // For the user whose journal is open.
    void start(const QString &userFolder);
    void stop();

private:
    void step();
    void readOn();
    void take(const JournalReader::Line &line);
    void settle(const MinuteName &name);
    void findMissing();
    void forgetOpen();
    void restoreSome();

    StorageFolder *m_storage;
    MinuteJournal *m_journal;
    ReportSender *m_reports;
    QString m_userFolder;
    QTimer m_timer{this};

    enum class Phase { Begin, Read, Restore };
    Phase m_phase = Phase::Begin;
    QStringList m_files; // that are still to be read
    std::unique_ptr<JournalReader> m_reader;
    JournalChain m_chain;
    // By the second of their records, for no record but a screenshot's can be taken for another's.
    QHash<QString, QVector<JournaledMinute>> m_open;
    QHash<QString, int> m_screenshots;
    qint64 m_openBytes = 0;
    QVector<JournaledMinute> m_missing;
};
