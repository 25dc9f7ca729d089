#pragma once

#include "NearestInLeaf.h"

#include <Eigen/Core>

#include <limits>
#include <type_traits>
#include <vector>

namespace KDTreeAcceleratedVersion {

/// The k-d tree of the fast and cartoon fits: nearest and nearest-without-
/// self queries only, over a contiguous `std::vector` of 3-component points
/// with wide indices. Leaves store their indices and their coordinates as
/// three rows (see NearestInLeaf.h), and both count in `dataSize`. Only
/// <float, long long> is used. Squared distances throughout.
template <typename Scalar, typename Index> class Node
{
public:
    using Point = Eigen::Matrix<Scalar, 3, 1>;
    using Points = std::vector<Point>;

    virtual ~Node() = default;
    /// Updates `index` and `distanceSq` when something nearer is found.
    virtual void findNearestPoint(const Point& p, const Points& points, Index& index, Scalar& distanceSq) const = 0;
    /// The nearest index or -1, the squared distance through `distanceSq`.
    Index findNearestPointInd(const Point& p, const Points& points, Scalar* distanceSq = nullptr) const;
    /// The query is `points[self]`; `self` is skipped.
    virtual void findNearestPoint(Index self, const Points& points, Index& index, Scalar& distanceSq) const = 0;
    Index findNearestPointInd(Index self, const Points& points, Scalar* distanceSq = nullptr) const;
    virtual Index dataSize() const = 0;
    virtual Node* clone() const = 0;
};

template <typename Scalar, typename Index> class NodeInner : public Node<Scalar, Index>
{
public:
    using Base = Node<Scalar, Index>;
    using typename Base::Point;
    using typename Base::Points;
    using Base::findNearestPoint;

    NodeInner(Base* left, Base* right, Index axis, Scalar split) : left(left), right(right), axis(axis), split(split) {}
    ~NodeInner() override
    {
        delete left;
        delete right;
    }

    void findNearestPoint(const Point& p, const Points& points, Index& index, Scalar& distanceSq) const override
    {
        // Left is near only when the plane lies beyond p; a NaN goes right.
        const bool leftIsNear = split > p[axis];
        (leftIsNear ? left : right)->findNearestPoint(p, points, index, distanceSq);
        const Scalar d = split - p[axis];
        if (d * d <= distanceSq)
            (leftIsNear ? right : left)->findNearestPoint(p, points, index, distanceSq);
    }
    void findNearestPoint(Index self, const Points& points, Index& index, Scalar& distanceSq) const override
    {
        const Point& p = points[size_t(self)];
        const bool leftIsNear = split > p[axis];
        (leftIsNear ? left : right)->findNearestPoint(self, points, index, distanceSq);
        const Scalar d = split - p[axis];
        if (index == -1 || !(distanceSq < d * d))
            (leftIsNear ? right : left)->findNearestPoint(self, points, index, distanceSq);
    }
    Index dataSize() const override { return left->dataSize() + right->dataSize(); }
    Base* clone() const override { return new NodeInner(left->clone(), right->clone(), axis, split); }

    Base* left;
    Base* right;
    Index axis;
    Scalar split;
};

template <typename Scalar, typename Index> class NodeLeaf : public Node<Scalar, Index>
{
public:
    using Base = Node<Scalar, Index>;
    using typename Base::Point;
    using typename Base::Points;
    using Base::findNearestPoint;

    NodeLeaf(std::vector<Index> leafIndices, const Points& allPoints)
        : indices(std::move(leafIndices)), rowLength(paddedLeafRow(indices.size())),
          coordinates(3 * rowLength, std::numeric_limits<Scalar>::quiet_NaN())
    {
        for (size_t i = 0; i < indices.size(); ++i)
            for (int a = 0; a < 3; ++a)
                coordinates[size_t(a) * rowLength + i] = allPoints[size_t(indices[i])][a];
    }

    void findNearestPoint(const Point& p, const Points&, Index& index, Scalar& distanceSq) const override
    {
        const Scalar* x = coordinates.data();
        const Scalar* y = x + rowLength;
        const Scalar* z = y + rowLength;
        long found = -1;
        if constexpr (std::is_same_v<Scalar, float>)
            found = nearestInLeaf(x, y, z, rowLength, p[0], p[1], p[2], distanceSq);
        else
            for (size_t i = 0; i < indices.size(); ++i) {
                const Scalar dx = x[i] - p[0], dy = y[i] - p[1], dz = z[i] - p[2];
                const Scalar d = dx * dx + dy * dy + dz * dz;
                if (d < distanceSq) {
                    distanceSq = d;
                    found = long(i);
                }
            }
        if (found >= 0)
            index = indices[size_t(found)];
    }
    void findNearestPoint(Index self, const Points& points, Index& index, Scalar& distanceSq) const override
    {
        const Point& p = points[size_t(self)];
        const Scalar* x = coordinates.data();
        const Scalar* y = x + rowLength;
        const Scalar* z = y + rowLength;
        for (size_t i = 0; i < indices.size(); ++i) {
            if (indices[i] == self)
                continue;
            const Scalar dx = x[i] - p[0], dy = y[i] - p[1], dz = z[i] - p[2];
            const Scalar d = dx * dx + dy * dy + dz * dz;
            if (d < distanceSq) {
                distanceSq = d;
                index = indices[i];
            }
        }
    }
    Index dataSize() const override { return Index(4 * (indices.size() + 3 * indices.size())); }
    Base* clone() const override { return new NodeLeaf(*this); }

    std::vector<Index> indices;
    size_t rowLength; ///< `indices.size()` padded (see NearestInLeaf.h)
    std::vector<Scalar> coordinates; ///< all x, then all y, then all z, each `rowLength` long
};

/// Builds over all of `points`; the caller owns the root.
template <typename Scalar, typename Index>
Node<Scalar, Index>* build(const std::vector<Eigen::Matrix<Scalar, 3, 1>>& points, Index leafSize);

} // namespace KDTreeAcceleratedVersion

#include "KDTreeAcceleratedVersion.ipp"
