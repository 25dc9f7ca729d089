#include "PointMirror.h"

#include "PointOnTriangleTools.h"

#include <cmath>

namespace WelkPlugin {

PointMirror::PointMirror(const GeometryStack2::GeomStackTriangulated& mesh, const QVector<int>& vertexMap)
    : m_mesh(mesh), m_map(vertexMap)
{
    const QVector<int>& corners = mesh.vertexIndices();
    const QVector<int>& offsets = mesh.polygonOffsets();
    m_polygonStart.fill(0, mesh.vertexCount() + 1);
    for (int c : corners)
        ++m_polygonStart[c + 1];
    for (int v = 0; v < mesh.vertexCount(); ++v)
        m_polygonStart[v + 1] += m_polygonStart[v];
    m_polygons.resize(corners.size());
    QVector<int> fill = m_polygonStart;
    for (int f = 0; f + 1 < offsets.size(); ++f)
        for (int i = offsets[f]; i < offsets[f + 1]; ++i)
            m_polygons[fill[corners[i]]++] = f;
    m_firstTriangle.fill(-1, mesh.polygonCount());
    const QVector<int>& trianglePolygons = mesh.trianglePolygonIndices();
    for (int t = trianglePolygons.size() - 1; t >= 0; --t)
        m_firstTriangle[trianglePolygons[t]] = t;
}

bool PointMirror::mirror(const Welk::WPointOnTriangle& point, Welk::WPointOnTriangle& mirrored) const
{
    if (!isValid() || point.triangle < 0 || point.triangle >= m_mesh.triangleCount())
        return false;
    const QVector<int>& triangles = m_mesh.triangleVertexIndices();
    const QVector<QVector3D>& vertices = m_mesh.vertices();
    const int c[3] = {m_map[triangles[3 * point.triangle]], m_map[triangles[3 * point.triangle + 1]],
                      m_map[triangles[3 * point.triangle + 2]]};
    if (c[0] < 0 || c[1] < 0 || c[2] < 0)
        return false;

    // The polygon holding all three mirrored corners.
    const QVector<int>& corners = m_mesh.vertexIndices();
    const QVector<int>& offsets = m_mesh.polygonOffsets();
    int polygon = -1;
    for (int k = m_polygonStart[c[0]]; k < m_polygonStart[c[0] + 1] && polygon < 0; ++k) {
        const int f = m_polygons[k];
        bool has1 = false, has2 = false;
        for (int i = offsets[f]; i < offsets[f + 1]; ++i) {
            has1 = has1 || corners[i] == c[1];
            has2 = has2 || corners[i] == c[2];
        }
        if (has1 && has2)
            polygon = f;
    }
    if (polygon < 0 || m_firstTriangle[polygon] < 0)
        return false;

    const float w = 1.0f - point.u - point.v;
    const QVector3D target = point.u * vertices[c[0]] + point.v * vertices[c[1]] + w * vertices[c[2]];
    float bestInside = -INFINITY;
    const QVector<int>& trianglePolygons = m_mesh.trianglePolygonIndices();
    for (int t = m_firstTriangle[polygon]; t < trianglePolygons.size() && trianglePolygons[t] == polygon; ++t) {
        const Welk::WPointOnTriangle candidate = Welk::pointOnTriangle(t, target, vertices, triangles);
        const float inside = std::min({candidate.u, candidate.v, 1.0f - candidate.u - candidate.v});
        if (std::isfinite(inside) && inside > bestInside) {
            bestInside = inside;
            mirrored = candidate;
        }
    }
    return bestInside > -INFINITY;
}

} // namespace WelkPlugin
