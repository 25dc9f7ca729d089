#pragma once

#include "HugePages.h"

#include <QtEndian>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace GeometryStack2 {

/// Elements of type T read where they lie: in a list in memory, or in a
/// mapped GoZ file, where an array can start at any byte and is stored
/// little-endian. Reading an element costs a plain load on the machines we
/// build for.
template <typename T> class GoZArray
{
public:
    GoZArray() = default;
    /// A list in this machine's byte order.
    explicit GoZArray(const std::vector<T>& list)
        : m_bytes(reinterpret_cast<const uchar*>(list.data())), m_count(list.size())
    {
    }
    /// `count` elements as a GoZ file stores them, from `bytes` on.
    static GoZArray inFile(const uchar* bytes, size_t count)
    {
        GoZArray array;
        array.m_bytes = bytes;
        array.m_count = count;
        array.m_littleEndian = true;
        return array;
    }

    size_t size() const { return m_count; }
    bool empty() const { return m_count == 0; }
    T operator[](size_t i) const
    {
        const uchar* at = m_bytes + i * sizeof(T);
        if (QSysInfo::ByteOrder == QSysInfo::BigEndian && m_littleEndian)
            return qFromLittleEndian<T>(at);
        T value;
        std::memcpy(&value, at, sizeof(T));
        return value;
    }
    /// Replaces `list` by a copy of the elements, in this machine's byte
    /// order.
    void copyTo(std::vector<T>& list) const;

private:
    const uchar* m_bytes = nullptr;
    size_t m_count = 0;
    bool m_littleEndian = false;
};

/// The arrays of a GoZ file, whether read into a `GoZFile` or mapped.
struct GoZArrays
{
    int32_t vertexCount = 0;
    int32_t polygonCount = 0;
    int32_t polygonTag = 0;
    int32_t uvTag = 0;
    GoZArray<float> vertices; ///< 3 per vertex
    GoZArray<int32_t> polygons; ///< `GoZFile::cornersPerPolygon` per polygon, -1 for an empty slot
    GoZArray<float> uvs; ///< `GoZFile::uvFloatsPerPolygon` per polygon, u first
    GoZArray<uint16_t> vertexMask;
    GoZArray<uint32_t> vertexColors;
    GoZArray<uint16_t> polygonGroups;
};

template <typename T> void GoZArray<T>::copyTo(std::vector<T>& list) const
{
    list.clear();
    // Reserved and advised before anything is written, and written once.
    list.reserve(m_count);
    adviseHugePages(list.data(), m_count * sizeof(T));
    const bool aligned = reinterpret_cast<uintptr_t>(m_bytes) % alignof(T) == 0;
    if (aligned && !(QSysInfo::ByteOrder == QSysInfo::BigEndian && m_littleEndian)) {
        const T* first = reinterpret_cast<const T*>(m_bytes);
        list.insert(list.end(), first, first + m_count);
    } else {
        for (size_t i = 0; i < m_count; ++i)
            list.push_back((*this)[i]);
    }
}

} // namespace GeometryStack2
