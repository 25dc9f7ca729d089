#include "VertexAdjacency.h"

#include <algorithm>

namespace SymmetryDetectionTBB {

VertexAdjacency::VertexAdjacency(const Polygons& polygons, int maxVertexId) : m_count(maxVertexId + 1)
{
    std::vector<int> corners(size_t(m_count), 0);
    for (const QVector<int>& polygon : polygons)
        for (int v : polygon)
            if (v > 0 && v < m_count)
                ++corners[size_t(v)];
    const int mostCorners = corners.empty() ? 0 : *std::max_element(corners.begin(), corners.end());
    m_width = 2 * mostCorners;
    m_table.assign(size_t(m_count) * size_t(m_width), 0);
    m_lengths.assign(size_t(m_count), 0);

    auto add = [this](int v, int w) {
        if (v <= 0 || v >= m_count || w <= 0 || v == w)
            return;
        int* r = m_table.data() + size_t(v) * size_t(m_width);
        int& length = m_lengths[size_t(v)];
        if (std::find(r, r + length, w) != r + length || length == m_width)
            return;
        r[length++] = w;
    };
    for (const QVector<int>& polygon : polygons) {
        const int n = polygon.size();
        for (int i = 0; i < n; ++i) {
            const int a = polygon[i], b = polygon[(i + 1) % n];
            add(a, b);
            add(b, a);
        }
    }
}

QVector<int> VertexAdjacency::neighbours(int v) const
{
    if (v < 0 || v >= m_count)
        return {};
    return QVector<int>(row(v), row(v) + rowLength(v));
}

bool VertexAdjacency::areAdjacent(int a, int b) const
{
    if (a == b)
        return true;
    if (a < 0 || a >= m_count)
        return false;
    const int* r = row(a);
    const int length = rowLength(a);
    for (int i = 0; i < length; ++i)
        if (r[i] == b)
            return true;
    return false;
}

} // namespace SymmetryDetectionTBB
