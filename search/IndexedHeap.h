#pragma once

#include <cstddef>
#include <vector>

namespace Welk {

/// An addressable binary max-heap of (key, id) entries for k-nearest
/// searches: ids are point indices below the capacity, and each id's place
/// in the heap is kept so that its key can be updated. The root has the
/// largest key.
class IndexedHeap
{
public:
    struct Entry
    {
        double key;
        int id;
    };

    /// Room for ids 0 .. capacity - 1.
    explicit IndexedHeap(int capacity = 0);

    void reset(int capacity);
    /// Adds `id`, or gives a present `id` its new key.
    void insertOrUpdate(int id, double key);
    /// Removes the entry with the largest key.
    void removeRoot();
    /// Empties the heap, keeping its capacity.
    void clear();

    int count() const { return m_count; }
    int capacity() const { return int(m_positions.size()); }
    bool isEmpty() const { return m_count == 0; }
    double maxKey() const { return m_entries[0].key; }
    const Entry& root() const { return m_entries[0]; }
    const Entry& entry(int i) const { return m_entries[std::size_t(i)]; }
    int position(int id) const { return m_positions[std::size_t(id)]; }

private:
    void siftUp(int i);
    void siftDown(int i);
    void place(int i, const Entry& e);

    std::vector<Entry> m_entries;
    std::vector<int> m_positions;
    int m_count = 0;
};

} // namespace Welk
