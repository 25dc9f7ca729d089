#pragma once

#include "SBVHNode.h"

#include <QThread>

#include <atomic>

namespace SBVH {

/// Builds an `SBVHNode` tree over a mesh's triangles with binned
/// surface-area splits in space: a triangle crossing the split plane goes
/// to both children. A builder is used once; its public fields are the
/// settings and may be changed before `build`.
class SBVHBuilder
{
public:
    SBVHBuilder(const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices)
        : vertices(vertices), triangleIndices(triangleIndices)
    {
    }
    virtual ~SBVHBuilder() = default;

    /// The root of a new tree, owned by the caller.
    virtual SBVHNode* build() = 0;
    virtual int leafCount() const = 0;
    virtual int innerCount() const = 0;

    QVector<QVector3D> vertices;
    QVector<int> triangleIndices; ///< three per triangle
    float traversalCost = 1.0f;   ///< added to the split cost
    float intersectionCost = 2.0f;
    int maxDepth = 32;
    int binCount = 16;   ///< candidate planes per axis
    int maxLeafSize = 8; ///< a node with no more triangles becomes a leaf
    int threadCount = QThread::idealThreadCount();
    QVector<float> binPositions;        ///< i / binCount, filled by `build`
    QVector<TriangleBox> triangleBoxes; ///< per triangle, filled by `build` if empty

protected:
    virtual SBVHNode* buildNode(const TriangleBox& box, const QVector<int>& triangles, int depth,
                                int maxDepth) = 0;
    virtual SBVHNonLeaf* makeInnerNode(const TriangleBox& box) = 0;
    virtual SBVHLeaf* makeLeaf(const TriangleBox& box, const QVector<int>& triangles) = 0;
    virtual void deleteLeaf(SBVHNode* node) = 0;
    virtual void deleteInnerNode(SBVHNonLeaf* node) = 0;
};

/// The serial builder: one recursion from the root.
class SBVHRecursiveBuilder : public SBVHBuilder
{
public:
    using SBVHBuilder::SBVHBuilder;

    SBVHNode* build() override;
    int leafCount() const override { return m_leafCount; }
    int innerCount() const override { return m_innerCount; }

protected:
    struct Split
    {
        int axis = -1;
        float position = 0.0f;
        int leftCount = 0;
        int rightCount = 0;
    };

    /// Fills the triangle boxes and bin positions, gives the list of all
    /// triangles and the root box.
    void prepare(QVector<int>& all, TriangleBox& root);
    SBVHNode* buildNode(const TriangleBox& box, const QVector<int>& triangles, int depth,
                        int maxDepth) override;
    SBVHNonLeaf* makeInnerNode(const TriangleBox& box) override;
    SBVHLeaf* makeLeaf(const TriangleBox& box, const QVector<int>& triangles) override;
    void deleteLeaf(SBVHNode* node) override;
    void deleteInnerNode(SBVHNonLeaf* node) override;
    /// The cheapest accepted split of `box`, or axis -1.
    Split findSplit(const TriangleBox& box, const QVector<int>& triangles, float budget) const;

    int m_leafCount = 0;
    int m_innerCount = 0;
};

/// Builds the top levels serially, about one subtree per thread, then the
/// subtrees in parallel with static partitioning.
class SBVHMultithreadRecursiveBuilder : public SBVHRecursiveBuilder
{
public:
    using SBVHRecursiveBuilder::SBVHRecursiveBuilder;

    SBVHNode* build() override;
    int leafCount() const override { return m_atomicLeafCount.load(); }
    int innerCount() const override { return m_atomicInnerCount.load(); }

protected:
    SBVHNonLeaf* makeInnerNode(const TriangleBox& box) override;
    SBVHLeaf* makeLeaf(const TriangleBox& box, const QVector<int>& triangles) override;
    void deleteLeaf(SBVHNode* node) override;
    void deleteInnerNode(SBVHNonLeaf* node) override;

    std::atomic<int> m_atomicLeafCount{0};
    std::atomic<int> m_atomicInnerCount{0};
};

} // namespace SBVH
