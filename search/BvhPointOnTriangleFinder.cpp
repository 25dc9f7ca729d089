#include "BvhPointOnTriangleFinder.h"

#include "ClosestPointOnTriangle.h"

#include <cmath>

namespace ClosestTriangleSearch {

BvhPointOnTriangleFinder::BvhPointOnTriangleFinder(const QVector<QVector3D>& vertices,
                                                   const QVector<int>& triangleIndices)
{
    const int count = triangleIndices.size() / 3;
    m_triangles.resize(size_t(count));
    for (int t = 0; t < count; ++t) {
        const QVector3D& a = vertices[triangleIndices[3 * t]];
        const QVector3D& b = vertices[triangleIndices[3 * t + 1]];
        const QVector3D& c = vertices[triangleIndices[3 * t + 2]];
        TriangleRecord& r = m_triangles[size_t(t)];
        r.a = a;
        r.aMinusB = a - b;
        r.cMinusA = c - a;
        r.normal = QVector3D::crossProduct(r.aMinusB, r.cMinusA);
    }
}

Welk::WPointOnTriangle BvhPointOnTriangleFinder::find(int triangle, const QVector3D& point,
                                                      float& bestDistance) const
{
    const TriangleRecord& r = m_triangles[size_t(triangle)];
    float u = 0.0f, v = 0.0f;
    const QVector3D nearest = closestPointOnTriangle(r.a, r.a - r.aMinusB, r.a + r.cMinusA, point, u, v);
    const float distance = std::sqrt(dot(nearest - point, nearest - point));
    // A NaN from a collapsed edge fails this test and is never a hit.
    if (!(distance <= bestDistance))
        return {};
    bestDistance = distance;
    return {triangle, u, v};
}

} // namespace ClosestTriangleSearch
