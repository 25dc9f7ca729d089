// Implementation of KDTreeAcceleratedVersion.h; included by it.
#include "KDTreeSplit.h"

#include <limits>

namespace KDTreeAcceleratedVersion {

template <typename Scalar, typename Index>
Index Node<Scalar, Index>::findNearestPointInd(const Point& p, const Points& points, Scalar* distanceSq) const
{
    Index index = -1;
    Scalar best = std::numeric_limits<Scalar>::max();
    findNearestPoint(p, points, index, best);
    if (distanceSq)
        *distanceSq = best;
    return index;
}

template <typename Scalar, typename Index>
Index Node<Scalar, Index>::findNearestPointInd(Index self, const Points& points, Scalar* distanceSq) const
{
    Index index = -1;
    Scalar best = std::numeric_limits<Scalar>::max();
    findNearestPoint(self, points, index, best);
    if (distanceSq)
        *distanceSq = best;
    return index;
}

namespace detail {

template <typename Scalar, typename Index>
Node<Scalar, Index>* buildSubtree(std::vector<Index>& indices, const std::vector<Eigen::Matrix<Scalar, 3, 1>>& points,
                                  size_t leafSize)
{
    auto split = Welk::KDTreeDetail::chooseSplit(indices, leafSize,
                                                 [&](Index i, int axis) { return float(points[size_t(i)][axis]); });
    if (split.makeLeaf)
        return new NodeLeaf<Scalar, Index>(std::move(indices), points);
    std::vector<Index>().swap(indices);
    auto* left = buildSubtree<Scalar, Index>(split.left, points, leafSize);
    auto* right = buildSubtree<Scalar, Index>(split.right, points, leafSize);
    return new NodeInner<Scalar, Index>(left, right, Index(split.axis), Scalar(split.split));
}

} // namespace detail

template <typename Scalar, typename Index>
Node<Scalar, Index>* build(const std::vector<Eigen::Matrix<Scalar, 3, 1>>& points, Index leafSize)
{
    std::vector<Index> indices(points.size());
    for (size_t i = 0; i < points.size(); ++i)
        indices[i] = Index(i);
    return detail::buildSubtree<Scalar, Index>(indices, points, size_t(std::max<Index>(1, leafSize)));
}

} // namespace KDTreeAcceleratedVersion
