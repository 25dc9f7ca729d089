#pragma once

#include "IndexedHeap.h"

#include <QVector3D>
#include <QVector>

namespace KDTree {

using Welk::IndexedHeap;

/// The classic k-d tree over `QVector<QVector3D>` with `int` indices:
/// nearest, nearest without self, in-radius and k-nearest queries. All
/// distances are squared, in the points' own units. Leaves keep their own
/// copy of their points, so searches scan contiguous memory; the caller's
/// array is read only for the query point of the self forms. Immutable
/// after the build: any number of threads may query it (one IndexedHeap
/// per thread for k-nearest).
///
/// The base is concrete: its queries only log that they were called.
class NodeBase
{
public:
    virtual ~NodeBase();

    /// Updates `index` and `distanceSq` when something nearer is found.
    virtual void findNearestPoint(const QVector3D& p, const QVector<QVector3D>& points, int& index,
                                  float& distanceSq) const;
    /// The nearest index, or -1; the squared distance through `distanceSq`
    /// unless it is null.
    virtual int findNearestPointInd(const QVector3D& p, const QVector<QVector3D>& points,
                                    float* distanceSq = nullptr) const;
    /// The query is `points[self]`, and `self` itself is skipped.
    virtual void findNearestPoint(int self, const QVector<QVector3D>& points, int& index, float& distanceSq) const;
    virtual int findNearestPointInd(int self, const QVector<QVector3D>& points, float* distanceSq = nullptr) const;
    /// Appends every index strictly nearer than the radius, unordered.
    virtual void findNearestPointInRadius(const QVector3D& p, const QVector<QVector3D>& points, QVector<int>& result,
                                          float radiusSq) const;
    virtual void findKNearestPointsIndsInSecondaryBranch(QVector3D p, const QVector<QVector3D>& points, int k,
                                                         IndexedHeap& heap) const;
    /// Leaves the k nearest in `heap`, unordered; the caller clears it.
    virtual void findKNearestPointsInds(QVector3D p, const QVector<QVector3D>& points, int k,
                                        IndexedHeap& heap) const;
    /// Bytes of indices below this node (coordinates not counted); -1 here.
    virtual int dataSize() const;
    virtual NodeBase* clone() const;
};

class Node : public NodeBase
{
public:
    Node(NodeBase* left, NodeBase* right, int axis, float split);
    ~Node() override;

    void findNearestPoint(const QVector3D& p, const QVector<QVector3D>& points, int& index,
                          float& distanceSq) const override;
    int findNearestPointInd(const QVector3D& p, const QVector<QVector3D>& points,
                            float* distanceSq = nullptr) const override;
    void findNearestPoint(int self, const QVector<QVector3D>& points, int& index, float& distanceSq) const override;
    int findNearestPointInd(int self, const QVector<QVector3D>& points, float* distanceSq = nullptr) const override;
    void findNearestPointInRadius(const QVector3D& p, const QVector<QVector3D>& points, QVector<int>& result,
                                  float radiusSq) const override;
    void findKNearestPointsIndsInSecondaryBranch(QVector3D p, const QVector<QVector3D>& points, int k,
                                                 IndexedHeap& heap) const override;
    void findKNearestPointsInds(QVector3D p, const QVector<QVector3D>& points, int k,
                                IndexedHeap& heap) const override;
    int dataSize() const override;
    NodeBase* clone() const override;

    NodeBase* left;
    NodeBase* right;
    int axis;
    float split;
};

class NodeLeaf : public NodeBase
{
public:
    NodeLeaf(const QVector<int>& indices, const QVector<QVector3D>& allPoints);

    void findNearestPoint(const QVector3D& p, const QVector<QVector3D>& points, int& index,
                          float& distanceSq) const override;
    int findNearestPointInd(const QVector3D& p, const QVector<QVector3D>& points,
                            float* distanceSq = nullptr) const override;
    void findNearestPoint(int self, const QVector<QVector3D>& points, int& index, float& distanceSq) const override;
    int findNearestPointInd(int self, const QVector<QVector3D>& points, float* distanceSq = nullptr) const override;
    void findNearestPointInRadius(const QVector3D& p, const QVector<QVector3D>& points, QVector<int>& result,
                                  float radiusSq) const override;
    void findKNearestPointsIndsInSecondaryBranch(QVector3D p, const QVector<QVector3D>& points, int k,
                                                 IndexedHeap& heap) const override;
    void findKNearestPointsInds(QVector3D p, const QVector<QVector3D>& points, int k,
                                IndexedHeap& heap) const override;
    int dataSize() const override;
    NodeBase* clone() const override;

    QVector<int> indices;
    QVector<QVector3D> points;
};

/// Builds the tree over all of `points`; leaves hold at most `leafSize`
/// points unless they are coincident. The caller owns the root.
NodeBase* build(const QVector<QVector3D>& points, int leafSize);

} // namespace KDTree
