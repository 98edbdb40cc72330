#pragma once

#include "storage/journalreader.h"

#include <QDate>
#include <QDateTime>
#include <QJsonValue>
#include <QVector>

#include <deque>

#include <sys/types.h>

class StorageFolder;

// What a line says, before it has its place in the chain.
class JournalEntry final
{
public:
    JournalEntry(const QDateTime &at, const QString &event);
    JournalEntry &add(const QString &key, const QJsonValue &value);

    // Local, with its offset: "2026-11-22T10:00:54+03:00".
    static QString momentText(const QDateTime &time);

    QDate date() const { return m_date; }
    // The members as JSON, without braces.
    const QByteArray &members() const { return m_members; }

private:
    QDate m_date;
    QByteArray m_members;
};

// One user's journal, to which it appends. Nothing is read but the ends of the last files. What
// the disk refuses waits in memory, in order, up to 4 MiB.
class JournalFile final
{
public:
    enum class Flush {
        Now, // the line is on the disk when append() returns
        Later // it survives a kill, perhaps not a failure of power
    };

    // The folder must outlive the journal.
    JournalFile(StorageFolder *storage, const QString &userFolder);
    Q_DISABLE_COPY_MOVE(JournalFile)

    // False when the line, or one before it, has to wait.
    bool append(const JournalEntry &entry, Flush flush = Flush::Later);
    bool isWritten() const { return m_waiting.empty(); }
    // The first line that this process has written; 0 when there is none.
    qint64 firstLine() const { return m_firstLine; }
    // Whether the disk has refused a line, not only the folder been unusable.
    bool isRefused() const { return !m_waiting.empty() && m_isRefused; }

    // The last lines of the last two files, the latest last.
    static QVector<JournalReader::Line> tail(const QString &userFolder);

private:
    bool writeWaiting();
    bool write(const JournalEntry &entry);
    bool put(const QByteArray &bytes);
    bool isReady(const QDate &month);
    bool openAgain();
    bool openNewest(const QDate &month);
    bool readEnd(const QStringList &files);
    void close();
    void loseWaiting();

    StorageFolder *m_storage;
    QString m_userFolder;
    std::deque<JournalEntry> m_waiting;
    qint64 m_waitingBytes = 0;
    int m_lost = 0; // lines that found no room to wait
    bool m_isRefused = false;

    int m_handle = -1; // only while something is written
    QString m_path;
    ino_t m_inode = 0;
    dev_t m_device = 0;
    qint64 m_size = 0;
    // The end of the chain, and what is left of a line after it.
    qint64 m_n = 0;
    qint64 m_firstLine = 0;
    QByteArray m_hash;
    bool m_isEnded = true;
    qint64 m_tornBytes = 0;
};
