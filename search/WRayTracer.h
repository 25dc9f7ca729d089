#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QVector3D>
#include <QVector>

#include <limits>

namespace Welk {

/// Where a ray first meets a triangle set: picking on a model and texture
/// projection. Queries keep no mutable state, so any number of threads may
/// query one tracer at once; building and destroying it are not concurrent
/// with queries.
///
/// Face filter values, with n the triangle's normal for counter-clockwise
/// corners (the right-hand normal of its stored order):
///   0  every triangle,
///   1  only triangles with dot(direction, n) > 0 (seen from behind),
///   2  only triangles with dot(direction, n) <= 0 (seen from the front).
/// A rejected triangle lets the ray go on to the next surface.
class WRayTracer
{
public:
    enum FaceFilter
    {
        AllFaces = 0,
        BackFaces = 1,
        FrontFaces = 2,
    };

    virtual ~WRayTracer() = default;

    /// One query. With `distance` given, its value is the far limit's
    /// replacement on input (when smaller) and the hit's ray parameter on
    /// output. Without a hit the result is invalid (triangle -1, u = v = 0).
    /// A hit is returned in the `WPointOnTriangle` convention.
    virtual WPointOnTriangle intersectPoint(const QVector3D& origin, const QVector3D& direction,
                                            int faceFilter = AllFaces, float nearLimit = 0.0f,
                                            float farLimit = std::numeric_limits<float>::infinity(),
                                            float* distance = nullptr) const = 0;

    /// `intersectPoint` for each pair of `origins` and `directions` (equal
    /// lengths), in order.
    virtual QVector<WPointOnTriangle> intersectPoints(const QVector<QVector3D>& origins,
                                                      const QVector<QVector3D>& directions,
                                                      int faceFilter = AllFaces, float nearLimit = 0.0f,
                                                      float farLimit = std::numeric_limits<float>::infinity()) const = 0;

    /// The raw query. On a hit it writes the triangle, the ray parameter,
    /// the ray tracer's barycentric pair (b1 along the second corner, b2
    /// along the third) and the unnormalised right-hand normal, and returns
    /// true; without a hit it writes nothing.
    virtual bool intersect(const QVector3D& origin, const QVector3D& direction, float nearLimit, float farLimit,
                           int faceFilter, int& triangle, float& distance, float& b1, float& b2,
                           QVector3D& normal) const = 0;

    /// A new tracer over copies of the mesh, with the same flags and a scene
    /// of its own. The caller owns it.
    virtual WRayTracer* clone() const = 0;
};

} // namespace Welk
