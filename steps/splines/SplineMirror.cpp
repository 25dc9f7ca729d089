#include "SplineMirror.h"

#include "geometry/ProgressInterface.h"
#include "steps/points/PointOnTriangleTools.h"
#include "steps/points/symmetry/SymmetryDetectionTBB.h"

#include <QHash>

#include <algorithm>
#include <cmath>

namespace WelkPlugin {

QVector<int> splineSymmetryMap(const GeometryStack2::GeomStackTriangulated& mesh, Welk::ProgressInterface* progress)
{
    if (mesh.vertices().isEmpty() || mesh.polygonOffsets().isEmpty() || mesh.vertexIndices().isEmpty())
        return {};
    QVector<QVector<int>> result;
    const int seed = SymmetryDetectionTBB::seedNearestToCentre(mesh.vertices());
    if (!SymmetryDetectionTBB::detectTopologicalSymmetry(mesh.polygonOffsets(), mesh.vertexIndices(), seed, result,
                                                         progress))
        return {};
    if (result.size() < 2 || result[0].size() != mesh.vertexCount())
        return {};
    QVector<int> map(mesh.vertexCount(), -1);
    for (int k = 0; k < result[0].size(); ++k)
        map[result[0][k] - 1] = result[1][k] - 1;
    if (std::find(map.begin(), map.end(), -1) != map.end())
        return {};
    return map;
}

namespace {

QVector<int> sortedCorners(const QVector<int>& corners, int begin, int end, const QVector<int>* map)
{
    QVector<int> key;
    for (int i = begin; i < end; ++i)
        key.append(map ? (*map)[corners[i]] : corners[i]);
    std::sort(key.begin(), key.end());
    return key;
}

} // namespace

SplineMirror::SplineMirror(const GeometryStack2::GeomStackTriangulated& mesh, const QVector<int>& vertexMap,
                           Welk::ProgressInterface* progress)
    : m_mesh(mesh), m_vertexMap(vertexMap)
{
    if (vertexMap.size() != mesh.vertexCount() || vertexMap.isEmpty())
        return;
    for (int v : vertexMap)
        if (v < 0 || v >= mesh.vertexCount())
            return;
    const QVector<int>& corners = mesh.vertexIndices();
    const QVector<int>& offsets = mesh.polygonOffsets();
    const int polygons = mesh.polygonCount();
    if (progress)
        progress->start(QStringLiteral("Detecting symmetrical polygons..."), polygons);
    QHash<QVector<int>, int> byCorners;
    byCorners.reserve(polygons);
    for (int f = 0; f < polygons; ++f)
        byCorners.insert(sortedCorners(corners, offsets[f], offsets[f + 1], nullptr), f);
    m_polygonMap.fill(-1, polygons);
    bool complete = true;
    for (int f = 0; f < polygons; ++f) {
        m_polygonMap[f] = byCorners.value(sortedCorners(corners, offsets[f], offsets[f + 1], &m_vertexMap), -1);
        complete = complete && m_polygonMap[f] >= 0;
        if (progress && f % 4096 == 0)
            progress->setValue(f);
    }
    if (progress)
        progress->end();
    m_firstTriangle.fill(-1, polygons);
    const QVector<int>& trianglePolygons = mesh.trianglePolygonIndices();
    for (int t = trianglePolygons.size() - 1; t >= 0; --t)
        m_firstTriangle[trianglePolygons[t]] = t;
    m_valid = complete;
}

bool SplineMirror::mirror(const Welk::WPointOnTriangle& point, Welk::WPointOnTriangle& mirrored) const
{
    if (m_polygonMap.isEmpty() || !point.isValid() || point.triangle >= m_mesh.triangleCount())
        return false;
    const QVector<int>& trianglePolygons = m_mesh.trianglePolygonIndices();
    const int polygon = m_polygonMap[trianglePolygons[point.triangle]];
    if (polygon < 0 || m_firstTriangle[polygon] < 0)
        return false;
    const QVector<int>& triangles = m_mesh.triangleVertexIndices();
    const QVector<QVector3D>& vertices = m_mesh.vertices();
    const QVector3D target = point.u * vertices[m_vertexMap[triangles[3 * point.triangle]]] +
                             point.v * vertices[m_vertexMap[triangles[3 * point.triangle + 1]]] +
                             (1.0f - point.u - point.v) * vertices[m_vertexMap[triangles[3 * point.triangle + 2]]];
    float bestInside = -INFINITY;
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

bool SplineMirror::mirror(const QVector<Welk::WPointOnTriangle>& points, QVector<Welk::WPointOnTriangle>& mirrored) const
{
    QVector<Welk::WPointOnTriangle> result;
    result.reserve(points.size());
    for (const Welk::WPointOnTriangle& p : points) {
        Welk::WPointOnTriangle m;
        if (!mirror(p, m))
            return false;
        result.append(m);
    }
    mirrored = result;
    return true;
}

} // namespace WelkPlugin
