#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVector>

#include <functional>

// Records that the disk has refused: a day of minutes; when it is full for longer, the oldest
// are lost.
class UnwrittenRecords final
{
public:
    struct Record
    {
        QString login;
        QDateTime createdAt;
        QByteArray bytes;
    };

    bool isEmpty() const { return m_records.isEmpty(); }
    void keep(const Record &record);
    // Offers them to the disk, in order; what one user's folder has refused once is not tried
    // further. Keeps those for which `store` returns false.
    void offer(const std::function<bool(const Record &)> &store);
    QVector<Record> of(const QString &login) const;

private:
    QVector<Record> m_records;
};
