#pragma once

#include "ClosestTriangleFinder.h"
#include "PointOnTriangleFinder.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace ClosestTriangleSearch {

/// Build settings of `BvhClosestTriangleFinder`.
struct BvhParameters
{
    /// Cost of one more node, in triangle tests: subtracted from the
    /// primitive count in the test that decides between split and leaf.
    float traversalCost = 1.0f;
    /// A child with more primitives than this is built as a task of its own.
    long long parallelThreshold = 256;
    /// Without it the build runs on the calling thread only.
    bool useParallelThreshold = false;
    long long maxDepth = 32;
    long long maxLeafSize = 8;
};

/// One node of the flat tree: its box, and either a leaf's run of `count`
/// primitives starting at `first`, or (count 0) two children at `first`
/// and `first + 1`.
struct BvhNode
{
    float minX, maxX, minY, maxY, minZ, maxZ;
    uint32_t count;
    uint32_t first;
};

/// Nearest surface point of a mesh through a bounding-volume tree with
/// spatial splits: where the best split by triangle centroids leaves two
/// children that overlap noticeably, the builder also tries cutting space
/// at a plane and referencing the triangles across it from both sides.
/// References may grow by at most 30% over the triangle count.
///
/// The tree finds triangles; the `PointOnTriangleFinder` decides what
/// nearest means on one. Its distance must never be smaller than the
/// Euclidean distance, since boxes are pruned by that.
class BvhClosestTriangleFinder : public ClosestTriangleFinder
{
public:
    /// `triangleIndices` holds three vertex indices per triangle. A null
    /// `pointFinder` takes the Euclidean `BvhPointOnTriangleFinder`.
    BvhClosestTriangleFinder(const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices,
                             const BvhParameters& parameters = BvhParameters(),
                             std::shared_ptr<PointOnTriangleFinder> pointFinder = nullptr);

    Welk::WPointOnTriangle find(const QVector3D& point, float* distance = nullptr) const override;

    const std::shared_ptr<PointOnTriangleFinder>& pointFinder() const { return m_pointFinder; }
    const std::vector<BvhNode>& nodes() const { return m_nodes; }
    /// Triangle numbers of the leaves; a triangle split in space appears more than once.
    const std::vector<uint32_t>& primitives() const { return m_primitives; }
    int spatialSplitCount() const { return m_spatialSplits; }
    /// Bytes held by the tree itself (nodes and primitives), not by the point finder.
    size_t memoryBytes() const;

private:
    friend class BvhBuilder;

    std::shared_ptr<PointOnTriangleFinder> m_pointFinder;
    std::vector<BvhNode> m_nodes;
    std::vector<uint32_t> m_primitives;
    long long m_maxDepth = 32;
    int m_spatialSplits = 0;
};

} // namespace ClosestTriangleSearch
