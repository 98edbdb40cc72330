#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QSet>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <optional>

// One user's folder of records that wait to be sent, a file each. A record is
// complete or absent: it is written under a name that does not count, flushed to
// the disk and then renamed.
class ActivityCache final
{
public:
    enum class Read {
        Ok,
        Gone, // there is no such file
        Denied, // this process may not read it; it stays, and is skipped in this run
        Busy // the system lacks something just now; the record must stay
    };

    struct Backlog
    {
        int count = 0;
        QDateTime oldest; // invalid when there are none
    };

    ActivityCache();
    ~ActivityCache();
    Q_DISABLE_COPY_MOVE(ActivityCache)

    // Changes to another user's folder and removes half-written records from it. Without
    // a path nothing can be written.
    void setDirectory(const QString &path);
    QString directory() const { return m_directory; }

    // Removes, in steps, screenshots whose record was never written or was deleted without
    // them. Returns false when there is nothing left to do.
    bool sweepPictures(int recordsToRead);

    // The path of the new record; empty when it could not be written (errorText
    // says why) or no directory is set.
    QString create(const QByteArray &record, const QDateTime &now, QString *errorText = nullptr);

    // The same for the folder of a user who is not loaded.
    static QString write(const QString &directory, const QByteArray &record, const QDateTime &now,
                         QString *errorText = nullptr);

    // Writes any file, complete or not at all.
    static bool writeWhole(const QString &path, const QByteArray &bytes, QString *errorText = nullptr);

    static Read read(const QString &path, QByteArray *bytes);

    // An accepted record is never returned again, and deleted with the next create().
    void setAccepted(const QString &path);
    // Deletes an accepted record at once. One that cannot be deleted is emptied, and
    // remembered until it can be.
    void remove(const QString &path);
    // Skips a record until the user is loaded again.
    void setAside(const QString &path);

    // The next record in the file system's order; continues after the previous one and
    // wraps around; empty when there is none. Never reads the whole folder for one record.
    QString next();

    // Paths of all records; none when the folder could not be read.
    std::optional<QStringList> records() const;
    // When the record was made, as its name says: to the second.
    static QString secondOf(const QString &path);

    // The records that wait, those in flight included, without reading the folder again.
    Backlog backlog() const;

private:
    class Cursor;

    void readFolder();
    void count(const QString &path);
    void forget(const QString &path);
    bool isSkipped(const QString &path) const;
    void removeSpent();

    QString m_directory;
    std::unique_ptr<Cursor> m_cursor;
    QSet<QString> m_spent; // accepted, of every user of this run
    QSet<QString> m_setAside;
    // File names of screenshots that an earlier run left and no record has named yet.
    QSet<QString> m_unclaimedPictures;
    std::unique_ptr<Cursor> m_sweep;
    std::map<QDateTime, int> m_waiting; // how many of each second
    int m_waitingCount = 0;
};
