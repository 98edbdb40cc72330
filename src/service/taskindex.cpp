#include "service/taskindex.h"

#include <QHash>

TaskIndex::TaskIndex(const QList<Task> &tasks)
    : m_tasks(tasks)
{
    std::size_t size = 1;
    while (size <= 2 * static_cast<std::size_t>(tasks.size()))
        size *= 2;
    m_slots.assign(size, -1);
    for (int i = 0; i < tasks.size(); ++i) {
        const Task &task = tasks.at(i);
        if (task.isCatchAll() || placesOf(task.id).second >= 0)
            continue;
        std::size_t slot = slotOf(task.id);
        while (m_slots[slot] >= 0)
            slot = next(slot);
        m_slots[slot] = i;
    }
}

std::size_t TaskIndex::slotOf(const QString &id) const
{
    return qHash(id, static_cast<uint>(qGlobalQHashSeed())) & (m_slots.size() - 1);
}

std::pair<int, int> TaskIndex::placesOf(const QString &id) const
{
    std::pair<int, int> places{-1, -1};
    for (std::size_t slot = slotOf(id); m_slots[slot] >= 0; slot = next(slot)) {
        if (m_tasks.at(m_slots[slot]).id != id)
            continue;
        if (places.first >= 0) {
            places.second = m_slots[slot];
            break;
        }
        places.first = m_slots[slot];
    }
    return places;
}
