#pragma once

#include <QVector>

#include <cstddef>

namespace GeometryStack2 {

/// Asks the kernel to back the whole 2 MB pages inside [data, data + bytes)
/// with huge pages. Meant for large lists that have been allocated but not
/// yet touched: filling a few hundred MB page by page costs a page fault
/// every 4 KB, which on a virtual machine weighs as much as parsing. Does
/// nothing where the system has no such advice or the range is small.
void adviseHugePages(const void* data, size_t bytes);

/// Resizes an empty list to `size` elements on huge pages where it is large.
template <typename T> void resizeOnHugePages(QVector<T>& list, int size)
{
    if (size <= 0) {
        list.resize(size < 0 ? 0 : size);
        return;
    }
    // reserve() allocates without touching the elements; the advice must come
    // before resize() writes them.
    list.reserve(size);
    adviseHugePages(list.constData(), size_t(size) * sizeof(T));
    list.resize(size);
}

} // namespace GeometryStack2
