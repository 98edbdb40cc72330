#include "storage/unwrittenrecords.h"

#include <QSet>

#include <algorithm>
#include <iterator>

namespace {

constexpr int kMaxRecords = 1440;

} // namespace

void UnwrittenRecords::keep(const Record &record)
{
    if (m_records.size() >= kMaxRecords)
        m_records.removeFirst();
    m_records.append(record);
}

void UnwrittenRecords::offer(const std::function<bool(const Record &)> &store)
{
    QSet<QString> refused;
    QVector<Record> left;
    for (const Record &record : qAsConst(m_records)) {
        if (refused.contains(record.login) || !store(record)) {
            refused.insert(record.login);
            left.append(record);
        }
    }
    m_records = left;
}

QVector<UnwrittenRecords::Record> UnwrittenRecords::of(const QString &login) const
{
    QVector<Record> all;
    std::copy_if(m_records.cbegin(), m_records.cend(), std::back_inserter(all),
                 [&login](const Record &record) { return record.login == login; });
    return all;
}
