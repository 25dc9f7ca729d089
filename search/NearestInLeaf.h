#pragma once

#include <cstddef>

namespace KDTreeAcceleratedVersion {

/// Leaves keep their coordinates as three rows (all x, then all y, then all
/// z), each `LeafRowPadding`-aligned in length and padded with NaN, which no
/// query takes as nearer.
constexpr std::size_t LeafRowPadding = 8;

/// The row length for `count` points.
constexpr std::size_t paddedLeafRow(std::size_t count)
{
    return (count + LeafRowPadding - 1) / LeafRowPadding * LeafRowPadding;
}

/// The position in the rows of the nearest point to (px, py, pz) among
/// `rowLength` points, if its squared distance is below `distanceSq`, which
/// it then becomes; -1 otherwise. The same point and distance, bit for bit,
/// as a scan in row order that takes a point when it is strictly nearer than
/// the best so far: the squared distance is (dx * dx + dy * dy) + dz * dz in
/// float, never fused, and among equal distances the first point wins.
///
/// Searches spend most of their time here, a leaf of 128 points at a time;
/// with AVX2 eight distances are formed per step and the branch on each
/// point's distance goes away.
long nearestInLeaf(const float* xs, const float* ys, const float* zs, std::size_t rowLength, float px, float py,
                   float pz, float& distanceSq);

/// The same, a point at a time whatever the processor: the reference.
long nearestInLeafScalar(const float* xs, const float* ys, const float* zs, std::size_t rowLength, float px,
                         float py, float pz, float& distanceSq);

} // namespace KDTreeAcceleratedVersion
