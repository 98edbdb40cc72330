#pragma once

#include "model/records.h"

#include <utility>
#include <vector>

// Finds the tasks of a list by their ids. A list may hold a hundred thousand, for each of
// which a hash of Qt would allocate.
class TaskIndex final
{
public:
    explicit TaskIndex(const QList<Task> &tasks);

    // Where the id stands in the list; ids are unique, of a repeated one the first two places
    // count. Were all counted, comparing two lists could take the product of their lengths.
    // -1 for none, and for the catch-all task.
    std::pair<int, int> placesOf(const QString &id) const;
    bool contains(const QString &id) const { return placesOf(id).first >= 0; }

private:
    std::size_t slotOf(const QString &id) const;
    std::size_t next(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }

    QList<Task> m_tasks;
    std::vector<int> m_slots; // places in the list, at the ids' hash values or after them
};
