#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QVector3D>

namespace ClosestTriangleSearch {

/// What "nearest" means on one triangle. A `ClosestTriangleFinder` finds the
/// triangle and asks an implementation of this for the point on it, so a
/// caller can change the metric without touching the tree.
///
/// Implementations must be safe to call from several threads at once.
class PointOnTriangleFinder
{
public:
    virtual ~PointOnTriangleFinder() = default;

    /// The point of `triangle` nearest to `point` if it is no farther than
    /// `bestDistance` (a true distance, not squared), which is then lowered
    /// to it. Otherwise triangle -1, with `bestDistance` left alone.
    virtual Welk::WPointOnTriangle find(int triangle, const QVector3D& point, float& bestDistance) const = 0;
};

} // namespace ClosestTriangleSearch
