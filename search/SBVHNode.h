#pragma once

#include <QPair>
#include <QVector3D>
#include <QVector>

namespace SBVH {

/// An axis-aligned box: a triangle's while building, a node's in the tree.
/// `id` is the triangle number (unused for node boxes).
struct TriangleBox
{
    int id = -1;
    float min[3] = {0.0f, 0.0f, 0.0f};
    float max[3] = {0.0f, 0.0f, 0.0f};
};

class SBVHNonLeaf;

/// A node of the spatially split tree. A node's box is its parent's box cut
/// at the parent's split plane, never shrunk to the triangles inside.
class SBVHNode
{
public:
    explicit SBVHNode(const TriangleBox& box) : box(box) {}
    virtual ~SBVHNode() = default;
    SBVHNode(const SBVHNode&) = delete;
    SBVHNode& operator=(const SBVHNode&) = delete;

    /// Triangle numbers of the subtree, repeated where a triangle lies in several leaves.
    virtual QVector<int> triangles() const = 0;
    /// Triangles of the leaf reached by always stepping into the child whose
    /// box centre is nearer to `point` (left if strictly nearer).
    virtual QVector<int> trianglesNear(const QVector3D& point) const = 0;
    /// Nearest triangle of the subtree if nearer than `bestDistance` (a true
    /// distance), which is then lowered and `closestPoint` set; else -1.
    virtual int findClosest(const QVector3D& p, const QVector<QVector3D>& vertices,
                            const QVector<int>& triangleIndices, float& bestDistance,
                            QVector3D& closestPoint) const = 0;
    /// Appends (leaf, parent) for every leaf of the subtree.
    virtual void collectLeaves(QVector<QPair<SBVHNode*, SBVHNonLeaf*>>& list, SBVHNonLeaf* parent) = 0;

    TriangleBox box;
};

class SBVHLeaf : public SBVHNode
{
public:
    SBVHLeaf(const TriangleBox& box, const QVector<int>& triangles) : SBVHNode(box), triangleList(triangles)
    {
    }

    QVector<int> triangles() const override { return triangleList; }
    QVector<int> trianglesNear(const QVector3D&) const override { return triangleList; }
    int findClosest(const QVector3D& p, const QVector<QVector3D>& vertices,
                    const QVector<int>& triangleIndices, float& bestDistance,
                    QVector3D& closestPoint) const override;
    void collectLeaves(QVector<QPair<SBVHNode*, SBVHNonLeaf*>>& list, SBVHNonLeaf* parent) override
    {
        list.append({this, parent});
    }

    /// Triangle numbers; -1 stands for a triangle at infinity that never wins.
    QVector<int> triangleList;
};

class SBVHNonLeaf : public SBVHNode
{
public:
    explicit SBVHNonLeaf(const TriangleBox& box) : SBVHNode(box) {}
    ~SBVHNonLeaf() override
    {
        delete left;
        delete right;
    }

    QVector<int> triangles() const override;
    QVector<int> trianglesNear(const QVector3D& point) const override;
    int findClosest(const QVector3D& p, const QVector<QVector3D>& vertices,
                    const QVector<int>& triangleIndices, float& bestDistance,
                    QVector3D& closestPoint) const override;
    void collectLeaves(QVector<QPair<SBVHNode*, SBVHNonLeaf*>>& list, SBVHNonLeaf* parent) override;

    /// Owned; either may be null when that side of the split was empty.
    SBVHNode* left = nullptr;
    SBVHNode* right = nullptr;
    int splitAxis = 0;
};

} // namespace SBVH
