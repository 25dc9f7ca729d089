#pragma once

#include "SBVHBuilder.h"

#include "geometry/WPointOnTriangle.h"

namespace SBVH {

/// Nearest triangle, nearest point and its barycentric weights for query
/// points, over a tree made by an `SBVHBuilder`. Immutable after
/// construction; queries are read-only and may run on any number of threads.
class SBVHTree
{
public:
    /// Runs `builder.build()` and takes the tree and the mesh from it.
    explicit SBVHTree(SBVHBuilder& builder);
    ~SBVHTree();
    SBVHTree(const SBVHTree&) = delete;
    SBVHTree& operator=(const SBVHTree&) = delete;

    /// The nearest triangle (-1 on an empty tree) and the nearest point on it.
    int findClosestTriangle(const QVector3D& p, QVector3D& closestPoint) const;
    /// The nearest triangle and the weights (u, v, w) of its first, second and
    /// third corner at the nearest point. A degenerate triangle gives weights
    /// that are not numbers; test the triangle number first.
    int findPointOnTriangle(const QVector3D& p, QVector3D& barycentric) const;

    int leafCount() const { return m_leafCount; }
    int innerCount() const { return m_innerCount; }
    const SBVHNode* root() const { return m_root; }
    const QVector<QVector3D>& vertices() const { return m_vertices; }
    const QVector<int>& triangleIndices() const { return m_triangleIndices; }
    /// Bytes held by the nodes and the leaves' triangle lists.
    size_t memoryBytes() const;

private:
    int m_leafCount = 0;
    int m_innerCount = 0;
    QVector<QVector3D> m_vertices;
    QVector<int> m_triangleIndices;
    SBVHNode* m_root = nullptr;
};

/// One surface point per query point, in order, one after the other on the
/// calling thread. Triangle -1 where the tree is empty.
QVector<Welk::WPointOnTriangle> projectPoints(const QVector<QVector3D>& points, const SBVHTree& tree);

/// Builds a tree over the mesh with the default settings (multi-threaded
/// build) and projects `points` onto it.
QVector<Welk::WPointOnTriangle> projectPoints(const QVector<QVector3D>& vertices,
                                              const QVector<int>& triangleIndices,
                                              const QVector<QVector3D>& points);

} // namespace SBVH
