#pragma once

#include "PointOnTriangleFinder.h"

#include <QVector>

#include <vector>

namespace ClosestTriangleSearch {

/// The Euclidean nearest point on a triangle, from a compact copy of each
/// triangle (corner a, a - b, c - a and their cross product) so that one
/// query reads one record and no index list.
class BvhPointOnTriangleFinder : public PointOnTriangleFinder
{
public:
    struct TriangleRecord
    {
        QVector3D a;
        QVector3D aMinusB;
        QVector3D cMinusA;
        QVector3D normal; ///< aMinusB x cMinusA, not normalised
    };

    /// `triangleIndices` holds three vertex indices per triangle.
    BvhPointOnTriangleFinder(const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices);

    Welk::WPointOnTriangle find(int triangle, const QVector3D& point, float& bestDistance) const override;

    int triangleCount() const { return int(m_triangles.size()); }
    size_t memoryBytes() const { return m_triangles.capacity() * sizeof(TriangleRecord); }

private:
    std::vector<TriangleRecord> m_triangles;
};

} // namespace ClosestTriangleSearch
