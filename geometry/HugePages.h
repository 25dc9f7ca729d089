#pragma once

#include <QVector>

#include <cstddef>
#include <type_traits>

namespace GeometryStack2 {

/// Sets the C library's allocator up for lists of many megabytes (where it
/// can be): large blocks then lie where `adviseHugePages` can give them huge
/// pages from edge to edge. Called first thing in `main`; harmless anywhere.
void configureLargeAllocations();

/// The size of a huge page on the systems that have them.
constexpr size_t HugePageBytes = size_t(2) << 20;

/// Asks the kernel to back the whole 2 MB pages inside [data, data + bytes)
/// with huge pages. Meant for large lists that have been allocated but not
/// yet touched: filling a few hundred MB page by page costs a page fault
/// every 4 KB, which on a virtual machine weighs as much as parsing. Does
/// nothing where the system has no such advice or the range is small.
void adviseHugePages(const void* data, size_t bytes);

/// Resizes a list (QVector or std::vector) to `size` elements, the new ones
/// on huge pages where the list is large.
template <typename List> void resizeOnHugePages(List& list, qint64 size)
{
    using Size = decltype(list.size());
    if (size <= qint64(list.size())) {
        list.resize(Size(size < 0 ? 0 : size));
        return;
    }
    // reserve() allocates without touching the elements; the advice must come
    // before resize() writes them.
    list.reserve(Size(size));
    adviseHugePages(list.data(), size_t(size) * sizeof(typename List::value_type));
    list.resize(Size(size));
}

/// Replaces `list` by one of `size` elements that are not initialised, on
/// huge pages where the list is large. For lists that a parallel loop fills
/// completely: the threads that write the elements are then the first to
/// touch their pages, so the kernel's clearing of fresh memory is shared
/// among them instead of falling on the thread that would have zeroed the
/// whole list first. Every element must be written before any is read.
template <typename T> void resizeForOverwrite(QVector<T>& list, qint64 size)
{
    static_assert(std::is_trivially_copyable<T>::value && std::is_trivially_destructible<T>::value,
                  "only for plain values, whose bytes may be left as they are");
    if (size <= 0) {
        list = QVector<T>();
        return;
    }
    QTypedArrayData<T>* data = QTypedArrayData<T>::allocate(size_t(size));
    Q_CHECK_PTR(data);
    adviseHugePages(data->data(), size_t(size) * sizeof(T));
    data->size = int(size);
    list = QVector<T>(QArrayDataPointerRef<T>{data});
}

} // namespace GeometryStack2
