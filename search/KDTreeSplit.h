#pragma once

#include <cstddef>
#include <vector>

namespace Welk {
namespace KDTreeDetail {

/// How the trees cut an index list: the spatial midpoint of the longest
/// side of the subset's box (ties favour x, then y), not the median, so
/// the trees are unbalanced where the points are.
template <typename Index> struct Split
{
    bool makeLeaf = true;
    int axis = 0;
    float split = 0.0f;
    std::vector<Index> left;
    std::vector<Index> right;
};

/// `coordinate(index, axis)` reads a point's coordinate as float.
template <typename Index, typename Coordinate>
Split<Index> chooseSplit(const std::vector<Index>& indices, size_t leafSize, Coordinate coordinate)
{
    Split<Index> result;
    if (indices.size() <= leafSize)
        return result;
    float lo[3], hi[3];
    for (int a = 0; a < 3; ++a)
        lo[a] = hi[a] = coordinate(indices[0], a);
    for (Index i : indices)
        for (int a = 0; a < 3; ++a) {
            const float c = coordinate(i, a);
            if (c < lo[a])
                lo[a] = c;
            if (c > hi[a])
                hi[a] = c;
        }
    const float ex = hi[0] - lo[0], ey = hi[1] - lo[1], ez = hi[2] - lo[2];
    result.axis = (ex >= ey && ex >= ez) ? 0 : (ey >= ex && ey >= ez) ? 1 : 2;
    const float extent[3] = {ex, ey, ez};
    result.split = lo[result.axis] + extent[result.axis] * 0.5f;
    for (Index i : indices)
        (coordinate(i, result.axis) < result.split ? result.left : result.right).push_back(i);
    // Coincident points cannot be split: they end the recursion as one leaf,
    // however many they are.
    result.makeLeaf = result.left.empty() || result.right.empty();
    return result;
}

} // namespace KDTreeDetail
} // namespace Welk
