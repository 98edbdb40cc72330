#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QSet>
#include <QString>

#include <map>
#include <memory>

// One user's folder of records that wait to be sent, a file each. A record is
// complete or absent: it is written under a name that does not count, flushed to
// the disk and then renamed.
class ActivityCache final
{
public:
    enum class Read {
        Ok,
        Gone, // there is no such file
        Unreadable, // a file that can never be read
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

    // Changes to another user's folder and removes half-written records from it.
    void setDirectory(const QString &path);

    // The path of the new record; empty when it could not be written (errorText
    // says why) or no directory is set.
    QString create(const QByteArray &record, const QDateTime &now, QString *errorText = nullptr);

    // Writes any file of the folder in the same all-or-nothing way.
    static bool writeWhole(const QString &path, const QByteArray &bytes, QString *errorText = nullptr);

    static Read read(const QString &path, QByteArray *bytes);

    // A record that cannot be deleted is not taken up again in this run: it has
    // been accepted once.
    bool remove(const QString &path);

    // The next record in the file system's order, going on behind the one before
    // and starting over at the end; empty when there is none. Never reads the
    // whole folder for one record.
    QString next();

    // The records that wait, in flight ones included, counted without looking at the
    // folder again.
    Backlog backlog() const;

private:
    class Cursor;

    void countRecords();
    void count(const QString &path);
    void forget(const QString &path);

    QString m_directory;
    std::unique_ptr<Cursor> m_cursor;
    QSet<QString> m_spent;
    std::map<QDateTime, int> m_waiting; // how many of each second
    int m_waitingCount = 0;
};
