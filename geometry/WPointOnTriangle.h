#pragma once

#include <QVector3D>
#include <QVector>

#include <cstdint>

namespace Welk {

/// A point on a mesh surface: a triangle and two barycentric weights. `u`
/// weights the triangle's first corner, `v` the second and 1 - u - v the
/// third. Triangle -1 marks an invalid point.
struct WPointOnTriangle
{
    int32_t triangle = -1;
    float u = 0.0f;
    float v = 0.0f;

    bool isValid() const { return triangle >= 0; }
    bool operator==(const WPointOnTriangle& o) const { return triangle == o.triangle && u == o.u && v == o.v; }
    bool operator!=(const WPointOnTriangle& o) const { return !(*this == o); }

    /// Position on a mesh given by its vertices and triangle corner list.
    QVector3D position(const QVector<QVector3D>& vertices, const QVector<int>& triangleVertexIndices) const
    {
        const int t = 3 * triangle;
        return u * vertices[triangleVertexIndices[t]] + v * vertices[triangleVertexIndices[t + 1]] +
               (1.0f - u - v) * vertices[triangleVertexIndices[t + 2]];
    }
};

} // namespace Welk
