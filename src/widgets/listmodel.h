#pragma once

#include "model/records.h"

#include <QAbstractListModel>

#include <algorithm>
#include <functional>
#include <utility>

// Records as rows. What a row shows is put together only when it is seen, so that a
// list of any length opens at once and needs no memory of its own.
template <typename Record>
class ListModel : public QAbstractListModel
{
    Q_DISABLE_COPY_MOVE(ListModel)

public:
    using DataOf = std::function<QVariant(const Record &, int role)>;

    explicit ListModel(DataOf dataOf, QObject *parent = nullptr)
        : QAbstractListModel(parent)
        , m_dataOf(std::move(dataOf))
    { }

    // The same contents again leave the rows as they are (scrolled, chosen, open) and
    // return false.
    bool setRecords(const QList<Record> &records)
    {
        if (haveSameContents(records, m_records)) {
            m_records = records; // shares their memory again
            return false;
        }
        beginResetModel();
        m_records = records;
        endResetModel();
        return true;
    }
    // -1 when there is no such record.
    int rowOf(const QString &id) const
    {
        const auto found = std::find_if(m_records.cbegin(), m_records.cend(),
                                        [&id](const Record &record) { return record.id == id; });
        return found == m_records.cend() ? -1 : static_cast<int>(found - m_records.cbegin());
    }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : m_records.size();
    }
    QVariant data(const QModelIndex &index, int role) const override
    {
        // A box without a current item asks for one.
        const bool isRow = index.isValid() && index.row() < m_records.size();
        return isRow ? m_dataOf(m_records.at(index.row()), role) : QVariant();
    }

protected:
    const QList<Record> &records() const { return m_records; }

private:
    DataOf m_dataOf;
    QList<Record> m_records;
};
