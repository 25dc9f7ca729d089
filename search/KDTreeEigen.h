#pragma once

#include "IndexedHeap.h"

#include <Eigen/Core>

#include <vector>

namespace KDTreeEigen {

using Welk::IndexedHeap;

/// The k-d tree of the graph sampler: the classic tree's queries and rules
/// over a contiguous `std::vector` of 3-component points with wide
/// indices. Only <float, long long> is used.
template <typename Scalar, typename Index> class NodeBaseEigen
{
public:
    using Point = Eigen::Matrix<Scalar, 3, 1>;
    using Points = std::vector<Point>;

    virtual ~NodeBaseEigen() = default;
    virtual void findNearestPoint(const Point& p, const Points& points, Index& index, Scalar& distanceSq) const;
    virtual Index findNearestPointInd(const Point& p, const Points& points, Scalar* distanceSq = nullptr) const;
    virtual void findNearestPoint(Index self, const Points& points, Index& index, Scalar& distanceSq) const;
    virtual Index findNearestPointInd(Index self, const Points& points, Scalar* distanceSq = nullptr) const;
    virtual void findNearestPointInRadius(const Point& p, const Points& points, std::vector<Index>& result,
                                          Scalar radiusSq) const;
    virtual void findKNearestPointsIndsInSecondaryBranch(Point p, const Points& points, int k,
                                                         IndexedHeap& heap) const;
    virtual void findKNearestPointsInds(Point p, const Points& points, int k, IndexedHeap& heap) const;
    virtual Index dataSize() const { return Index(-1); }
    virtual NodeBaseEigen* clone() const { return nullptr; }
};

template <typename Scalar, typename Index> class NodeEigen : public NodeBaseEigen<Scalar, Index>
{
public:
    using Base = NodeBaseEigen<Scalar, Index>;
    using typename Base::Point;
    using typename Base::Points;

    NodeEigen(Base* left, Base* right, Index axis, Scalar split);
    ~NodeEigen() override;

    void findNearestPoint(const Point& p, const Points& points, Index& index, Scalar& distanceSq) const override;
    Index findNearestPointInd(const Point& p, const Points& points, Scalar* distanceSq = nullptr) const override;
    void findNearestPoint(Index self, const Points& points, Index& index, Scalar& distanceSq) const override;
    Index findNearestPointInd(Index self, const Points& points, Scalar* distanceSq = nullptr) const override;
    void findNearestPointInRadius(const Point& p, const Points& points, std::vector<Index>& result,
                                  Scalar radiusSq) const override;
    void findKNearestPointsIndsInSecondaryBranch(Point p, const Points& points, int k,
                                                 IndexedHeap& heap) const override;
    void findKNearestPointsInds(Point p, const Points& points, int k, IndexedHeap& heap) const override;
    Index dataSize() const override { return left->dataSize() + right->dataSize(); }
    Base* clone() const override { return new NodeEigen(left->clone(), right->clone(), axis, split); }

    Base* left;
    Base* right;
    Index axis;
    Scalar split;
};

template <typename Scalar, typename Index> class NodeLeafEigen : public NodeBaseEigen<Scalar, Index>
{
public:
    using Base = NodeBaseEigen<Scalar, Index>;
    using typename Base::Point;
    using typename Base::Points;

    NodeLeafEigen(std::vector<Index> indices, const Points& allPoints);

    void findNearestPoint(const Point& p, const Points& points, Index& index, Scalar& distanceSq) const override;
    Index findNearestPointInd(const Point& p, const Points& points, Scalar* distanceSq = nullptr) const override;
    void findNearestPoint(Index self, const Points& points, Index& index, Scalar& distanceSq) const override;
    Index findNearestPointInd(Index self, const Points& points, Scalar* distanceSq = nullptr) const override;
    void findNearestPointInRadius(const Point& p, const Points& points, std::vector<Index>& result,
                                  Scalar radiusSq) const override;
    void findKNearestPointsIndsInSecondaryBranch(Point p, const Points& points, int k,
                                                 IndexedHeap& heap) const override;
    void findKNearestPointsInds(Point p, const Points& points, int k, IndexedHeap& heap) const override;
    Index dataSize() const override { return Index(4 * indices.size()); }
    Base* clone() const override { return new NodeLeafEigen(*this); }

    std::vector<Index> indices;
    Points points;
};

/// Builds over all of `points`; the caller owns the root.
template <typename Scalar, typename Index>
NodeBaseEigen<Scalar, Index>* build(const std::vector<Eigen::Matrix<Scalar, 3, 1>>& points, Index leafSize);

} // namespace KDTreeEigen

#include "KDTreeEigen.ipp"
