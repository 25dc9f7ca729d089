// Implementation of KDTreeEigen.h; included by it.
#include "KDTreeSplit.h"

#include <QDebug>

#include <limits>

namespace KDTreeEigen {

namespace detail {

template <typename Point> inline typename Point::Scalar squaredDistance(const Point& a, const Point& b)
{
    const auto dx = a[0] - b[0], dy = a[1] - b[1], dz = a[2] - b[2];
    return dx * dx + dy * dy + dz * dz;
}

template <typename Scalar, typename Index, typename Query>
Index nearestIndex(const NodeBaseEigen<Scalar, Index>& node, const Query& query,
                   const typename NodeBaseEigen<Scalar, Index>::Points& points, Scalar* distanceSq)
{
    Index index = -1;
    Scalar best = std::numeric_limits<Scalar>::max();
    node.findNearestPoint(query, points, index, best);
    if (distanceSq)
        *distanceSq = best;
    return index;
}

template <typename Scalar, typename Index>
NodeBaseEigen<Scalar, Index>* buildSubtree(std::vector<Index>& indices,
                                           const typename NodeBaseEigen<Scalar, Index>::Points& points,
                                           size_t leafSize)
{
    auto split = Welk::KDTreeDetail::chooseSplit(indices, leafSize,
                                                 [&](Index i, int axis) { return float(points[size_t(i)][axis]); });
    if (split.makeLeaf)
        return new NodeLeafEigen<Scalar, Index>(std::move(indices), points);
    std::vector<Index>().swap(indices);
    auto* left = buildSubtree<Scalar, Index>(split.left, points, leafSize);
    auto* right = buildSubtree<Scalar, Index>(split.right, points, leafSize);
    return new NodeEigen<Scalar, Index>(left, right, Index(split.axis), Scalar(split.split));
}

} // namespace detail

// --- base: only says that it was called -------------------------------------

template <typename S, typename I>
void NodeBaseEigen<S, I>::findNearestPoint(const Point&, const Points&, I&, S&) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPoint";
}
template <typename S, typename I> I NodeBaseEigen<S, I>::findNearestPointInd(const Point&, const Points&, S*) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPointInd";
    return -1;
}
template <typename S, typename I> void NodeBaseEigen<S, I>::findNearestPoint(I, const Points&, I&, S&) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPoint";
}
template <typename S, typename I> I NodeBaseEigen<S, I>::findNearestPointInd(I, const Points&, S*) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPointInd";
    return -1;
}
template <typename S, typename I>
void NodeBaseEigen<S, I>::findNearestPointInRadius(const Point&, const Points&, std::vector<I>&, S) const
{
    qDebug() << "Calling virtual method NodeBase::findNearestPointInRadius";
}
template <typename S, typename I>
void NodeBaseEigen<S, I>::findKNearestPointsIndsInSecondaryBranch(Point, const Points&, int, IndexedHeap&) const
{
    qDebug() << "Calling virtual method NodeBase::findKNearestPointsIndsInSecondaryBranch";
}
template <typename S, typename I>
void NodeBaseEigen<S, I>::findKNearestPointsInds(Point, const Points&, int, IndexedHeap&) const
{
    qDebug() << "Calling virtual method NodeBase::findKNearestPointsInds";
}

// --- inner node ---------------------------------------------------------------

template <typename S, typename I>
NodeEigen<S, I>::NodeEigen(Base* l, Base* r, I a, S s) : left(l), right(r), axis(a), split(s)
{
}

template <typename S, typename I> NodeEigen<S, I>::~NodeEigen()
{
    delete left;
    delete right;
}

template <typename S, typename I>
void NodeEigen<S, I>::findNearestPoint(const Point& p, const Points& points, I& index, S& distanceSq) const
{
    const bool rightIsNear = split <= p[axis];
    (rightIsNear ? right : left)->findNearestPoint(p, points, index, distanceSq);
    const S d = split - p[axis];
    if (d * d <= distanceSq)
        (rightIsNear ? left : right)->findNearestPoint(p, points, index, distanceSq);
}

template <typename S, typename I>
I NodeEigen<S, I>::findNearestPointInd(const Point& p, const Points& points, S* distanceSq) const
{
    return detail::nearestIndex<S, I>(*this, p, points, distanceSq);
}

template <typename S, typename I>
void NodeEigen<S, I>::findNearestPoint(I self, const Points& points, I& index, S& distanceSq) const
{
    const Point& p = points[size_t(self)];
    const bool rightIsNear = split <= p[axis];
    (rightIsNear ? right : left)->findNearestPoint(self, points, index, distanceSq);
    const S d = split - p[axis];
    if (index == -1 || !(distanceSq < d * d))
        (rightIsNear ? left : right)->findNearestPoint(self, points, index, distanceSq);
}

template <typename S, typename I>
I NodeEigen<S, I>::findNearestPointInd(I self, const Points& points, S* distanceSq) const
{
    return detail::nearestIndex<S, I>(*this, self, points, distanceSq);
}

template <typename S, typename I>
void NodeEigen<S, I>::findNearestPointInRadius(const Point& p, const Points& points, std::vector<I>& result,
                                              S radiusSq) const
{
    const S d = p[axis] - split;
    if (radiusSq <= d * d) {
        if (p[axis] < split)
            left->findNearestPointInRadius(p, points, result, radiusSq);
        else if (p[axis] > split)
            right->findNearestPointInRadius(p, points, result, radiusSq);
        return;
    }
    left->findNearestPointInRadius(p, points, result, radiusSq);
    right->findNearestPointInRadius(p, points, result, radiusSq);
}

template <typename S, typename I>
void NodeEigen<S, I>::findKNearestPointsIndsInSecondaryBranch(Point p, const Points& points, int k,
                                                             IndexedHeap& heap) const
{
    const S d = p[axis] - split;
    if (heap.count() >= k && !(float(heap.maxKey()) > d * d)) {
        if (p[axis] < split)
            left->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
        else if (p[axis] > split)
            right->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
        return;
    }
    left->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
    right->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
}

template <typename S, typename I>
void NodeEigen<S, I>::findKNearestPointsInds(Point p, const Points& points, int k, IndexedHeap& heap) const
{
    const bool rightIsNear = split <= p[axis];
    (rightIsNear ? right : left)->findKNearestPointsInds(p, points, k, heap);
    const double d = double(p[axis]) - double(split);
    if (heap.count() < k || d * d < heap.maxKey())
        (rightIsNear ? left : right)->findKNearestPointsIndsInSecondaryBranch(p, points, k, heap);
}

// --- leaf -----------------------------------------------------------------------

template <typename S, typename I>
NodeLeafEigen<S, I>::NodeLeafEigen(std::vector<I> leafIndices, const Points& allPoints)
    : indices(std::move(leafIndices))
{
    points.reserve(indices.size());
    for (I i : indices)
        points.push_back(allPoints[size_t(i)]);
}

template <typename S, typename I>
void NodeLeafEigen<S, I>::findNearestPoint(const Point& p, const Points&, I& index, S& distanceSq) const
{
    for (size_t i = 0; i < indices.size(); ++i) {
        const S d = detail::squaredDistance(p, points[i]);
        if (d < distanceSq) {
            distanceSq = d;
            index = indices[i];
        }
    }
}

template <typename S, typename I>
I NodeLeafEigen<S, I>::findNearestPointInd(const Point& p, const Points& points, S* distanceSq) const
{
    return detail::nearestIndex<S, I>(*this, p, points, distanceSq);
}

template <typename S, typename I>
void NodeLeafEigen<S, I>::findNearestPoint(I self, const Points& allPoints, I& index, S& distanceSq) const
{
    const Point p = allPoints[size_t(self)];
    for (size_t i = 0; i < indices.size(); ++i) {
        if (indices[i] == self)
            continue;
        const S d = detail::squaredDistance(p, points[i]);
        if (d < distanceSq) {
            distanceSq = d;
            index = indices[i];
        }
    }
}

template <typename S, typename I>
I NodeLeafEigen<S, I>::findNearestPointInd(I self, const Points& points, S* distanceSq) const
{
    return detail::nearestIndex<S, I>(*this, self, points, distanceSq);
}

template <typename S, typename I>
void NodeLeafEigen<S, I>::findNearestPointInRadius(const Point& p, const Points&, std::vector<I>& result,
                                                  S radiusSq) const
{
    for (size_t i = 0; i < indices.size(); ++i)
        if (detail::squaredDistance(p, points[i]) < radiusSq)
            result.push_back(indices[i]);
}

template <typename S, typename I>
void NodeLeafEigen<S, I>::findKNearestPointsIndsInSecondaryBranch(Point p, const Points& allPoints, int k,
                                                                 IndexedHeap& heap) const
{
    findKNearestPointsInds(p, allPoints, k, heap);
}

template <typename S, typename I>
void NodeLeafEigen<S, I>::findKNearestPointsInds(Point p, const Points&, int k, IndexedHeap& heap) const
{
    for (size_t i = 0; i < indices.size(); ++i) {
        heap.insertOrUpdate(int(indices[i]), double(detail::squaredDistance(p, points[i])));
        if (heap.count() > k)
            heap.removeRoot();
    }
}

template <typename Scalar, typename Index>
NodeBaseEigen<Scalar, Index>* build(const std::vector<Eigen::Matrix<Scalar, 3, 1>>& points, Index leafSize)
{
    std::vector<Index> indices(points.size());
    for (size_t i = 0; i < points.size(); ++i)
        indices[i] = Index(i);
    return detail::buildSubtree<Scalar, Index>(indices, points, size_t(std::max<Index>(1, leafSize)));
}

} // namespace KDTreeEigen
