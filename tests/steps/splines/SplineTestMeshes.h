#pragma once

#include "support/MeshFactory.h"

#include "geometry/GeomStackTriangulated.h"
#include "steps/points/PointOnTriangleTools.h"

#include <QVector3D>

#include <cmath>
#include <set>
#include <utility>

namespace SplineTestMeshes {

/// An nx by ny grid of quads in the plane z = height(x, y), vertex (i, j) at
/// x = i, y = j, with the quads in `skip` ((i, j) of the quad) left out.
template<typename Height>
GeometryStack2::GeomStackTriangulated grid(int nx, int ny, const std::set<std::pair<int, int>>& skip, Height height)
{
    QVector<QVector3D> vertices;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i)
            vertices.append(QVector3D(float(i), float(j), height(float(i), float(j))));
    QVector<QVector<int>> polygons;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i)
            if (!skip.count({i, j})) {
                const int a = j * (nx + 1) + i;
                polygons.append({a, a + 1, a + nx + 2, a + nx + 1});
            }
    return GeometryStack2::GeomStackTriangulated(TestSupport::polygonSoup(vertices, polygons));
}

inline GeometryStack2::GeomStackTriangulated flatGrid(int nx, int ny, const std::set<std::pair<int, int>>& skip = {})
{
    return grid(nx, ny, skip, [](float, float) { return 0.0f; });
}

/// A grid whose only symmetry is the mirror x -> 8 - x: the holes in row 1
/// break the mirror in y.
inline GeometryStack2::GeomStackTriangulated mirrorGrid()
{
    return flatGrid(8, 5, {{1, 2}, {6, 2}, {3, 1}, {4, 1}});
}

/// The point of the surface straight below/above (x, y) on a mesh that is a
/// height field, by testing every triangle; invalid outside.
inline Welk::WPointOnTriangle locate(const GeometryStack2::GeomStackTriangulated& mesh, float x, float y)
{
    const QVector<int>& t = mesh.triangleVertexIndices();
    const QVector<QVector3D>& v = mesh.vertices();
    for (int k = 0; k < mesh.triangleCount(); ++k) {
        QVector3D p[3];
        for (int c = 0; c < 3; ++c)
            p[c] = QVector3D(v[t[3 * k + c]].x(), v[t[3 * k + c]].y(), 0.0f);
        const QVector3D w = Welk::barycentricCoordinates(QVector3D(x, y, 0.0f), p[0], p[1], p[2]);
        if (std::isfinite(w[0]) && w[0] >= -1e-5f && w[1] >= -1e-5f && w[2] >= -1e-5f)
            return Welk::WPointOnTriangle{k, w[0], w[1]};
    }
    return Welk::WPointOnTriangle();
}

inline QVector3D at(const GeometryStack2::GeomStackTriangulated& mesh, const Welk::WPointOnTriangle& p)
{
    return p.position(mesh.vertices(), mesh.triangleVertexIndices());
}

} // namespace SplineTestMeshes
