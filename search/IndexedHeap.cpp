#include "IndexedHeap.h"

namespace Welk {

IndexedHeap::IndexedHeap(int capacity)
{
    reset(capacity);
}

void IndexedHeap::reset(int capacity)
{
    m_entries.assign(std::size_t(capacity), Entry{0.0, -1});
    m_positions.assign(std::size_t(capacity), -1);
    m_count = 0;
}

void IndexedHeap::place(int i, const Entry& e)
{
    m_entries[std::size_t(i)] = e;
    m_positions[std::size_t(e.id)] = i;
}

void IndexedHeap::insertOrUpdate(int id, double key)
{
    const int at = m_positions[std::size_t(id)];
    if (at < 0) {
        place(m_count, Entry{key, id});
        siftUp(m_count++);
        return;
    }
    const double old = m_entries[std::size_t(at)].key;
    m_entries[std::size_t(at)].key = key;
    if (old > key)
        siftDown(at);
    else
        siftUp(at);
}

void IndexedHeap::removeRoot()
{
    if (m_count == 0)
        return;
    m_positions[std::size_t(m_entries[0].id)] = -1;
    --m_count;
    if (m_count > 0) {
        place(0, m_entries[std::size_t(m_count)]);
        siftDown(0);
    }
}

void IndexedHeap::clear()
{
    for (int i = 0; i < m_count; ++i)
        m_positions[std::size_t(m_entries[std::size_t(i)].id)] = -1;
    m_count = 0;
}

void IndexedHeap::siftUp(int i)
{
    const Entry moving = m_entries[std::size_t(i)];
    while (i > 0) {
        const int parent = (i - 1) / 2;
        // No tie-break by id on the way up.
        if (!(moving.key > m_entries[std::size_t(parent)].key))
            break;
        place(i, m_entries[std::size_t(parent)]);
        i = parent;
    }
    place(i, moving);
}

void IndexedHeap::siftDown(int i)
{
    const auto larger = [](const Entry& a, const Entry& b) {
        // At equal keys the larger id counts as larger.
        return a.key > b.key || (a.key == b.key && a.id > b.id);
    };
    while (true) {
        int largest = i;
        const int left = 2 * i + 1, right = 2 * i + 2;
        if (left < m_count && larger(m_entries[std::size_t(left)], m_entries[std::size_t(largest)]))
            largest = left;
        if (right < m_count && larger(m_entries[std::size_t(right)], m_entries[std::size_t(largest)]))
            largest = right;
        if (largest == i)
            return;
        const Entry moving = m_entries[std::size_t(i)];
        place(i, m_entries[std::size_t(largest)]);
        place(largest, moving);
        i = largest;
    }
}

} // namespace Welk
