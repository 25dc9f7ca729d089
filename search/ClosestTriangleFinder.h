#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QVector3D>
#include <QVector>

namespace ClosestTriangleSearch {

/// Finds the surface point of a mesh nearest to a given point.
/// Searches are read-only: any number of threads may search at once.
class ClosestTriangleFinder
{
public:
    virtual ~ClosestTriangleFinder() = default;

    /// The nearest surface point, or triangle -1 with zero weights when
    /// nothing lies within the limit. `distance`, when given, holds the
    /// search limit on entry (a true distance; the largest finite float
    /// means none) and the distance found on return; it is left unchanged
    /// when nothing was found. A null `distance` searches without limit.
    virtual Welk::WPointOnTriangle find(const QVector3D& point, float* distance = nullptr) const = 0;

    /// `find` for every point, without limit, spread over the TBB workers.
    /// `distances`, when given, receives one distance per point (the
    /// largest finite float where nothing was found).
    QVector<Welk::WPointOnTriangle> findAll(const QVector<QVector3D>& points,
                                            QVector<float>* distances = nullptr) const;
};

} // namespace ClosestTriangleSearch
