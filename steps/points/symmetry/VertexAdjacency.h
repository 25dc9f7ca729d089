#pragma once

#include "DCEL.h"

#include <QVector>

namespace SymmetryDetectionTBB {

/// Distinct neighbours of every vertex in a flat table: row v lists them in
/// order of first sight and ends with 0 where it has room. Identifiers are
/// 1-based; `count` is the largest identifier + 1.
class VertexAdjacency
{
public:
    VertexAdjacency(const Polygons& polygons, int maxVertexId);

    int count() const { return m_count; }
    int width() const { return m_width; }

    QVector<int> neighbours(int v) const;
    /// The row of `v` without a copy; `rowLength` entries are valid.
    const int* row(int v) const { return m_table.data() + size_t(v) * size_t(m_width); }
    int rowLength(int v) const { return m_lengths[size_t(v)]; }

    /// True for a == b; false for an identifier outside the table.
    bool areAdjacent(int a, int b) const;

private:
    int m_count = 0;
    int m_width = 0;
    std::vector<int> m_table;
    std::vector<int> m_lengths;
};

} // namespace SymmetryDetectionTBB
