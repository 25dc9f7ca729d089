#pragma once

#include <QVector>

#include <tsl/robin_map.h>

#include <memory>
#include <vector>

namespace SymmetryDetectionTBB {

/// Polygons as lists of 1-based vertex identifiers (0 is reserved).
using Polygons = QVector<QVector<int>>;

/// One side of an edge inside one polygon, from `origin` to `target`.
struct HalfEdge
{
    int origin = 0;
    int target = 0;
    int face = -1;
    HalfEdge* next = nullptr; ///< the following half-edge of the same polygon
    HalfEdge* twin = nullptr; ///< the opposite half-edge; null on a border
};

/// Doubly connected edge list over a polygon list. With `keepWinding`
/// false every polygon's corner order is reversed first, which gives the
/// mirror image's connectivity. Where two polygons use an edge in the same
/// direction (non-manifold input) one of them is kept in the lookup.
class DCEL
{
public:
    using TargetMap = tsl::robin_map<int, HalfEdge*>;

    DCEL(const Polygons& polygons, bool keepWinding);
    ~DCEL();
    DCEL(const DCEL&) = delete;
    DCEL& operator=(const DCEL&) = delete;

    bool hasHalfEdge(int origin, int target) const;
    /// Throws std::out_of_range("Couldn't find key.") when absent.
    HalfEdge* halfEdge(int origin, int target) const;
    /// The half-edges leaving `origin` by their targets, or null.
    const TargetMap* outgoing(int origin) const;

    const std::vector<HalfEdge*>& halfEdges() const { return m_halfEdges; }
    int polygonCount() const { return m_polygonCount; }
    int maxVertexId() const { return m_maxVertexId; }

private:
    tsl::robin_map<int, TargetMap> m_map;
    std::vector<HalfEdge*> m_halfEdges;
    /// Half-edges live in blocks, one a polygon range, freed together.
    std::vector<std::unique_ptr<HalfEdge[]>> m_blocks;
    int m_polygonCount = 0;
    int m_maxVertexId = 0;
};

} // namespace SymmetryDetectionTBB
