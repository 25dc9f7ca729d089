#pragma once

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QVector>

namespace WelkPlugin {

/// Mirrors surface points through a vertex map of a mesh's symmetry. A
/// point's weights go to the mirrored corners of its polygon; the result is
/// placed on the mirrored polygon's triangle that holds it best, since
/// mirroring turns a polygon's fan around.
class PointMirror
{
public:
    /// `vertexMap`: mirror of every vertex, 0-based.
    PointMirror(const GeometryStack2::GeomStackTriangulated& mesh, const QVector<int>& vertexMap);

    bool isValid() const { return !m_map.isEmpty() && m_map.size() == m_mesh.vertexCount(); }
    /// False when the point or its mirrored polygon cannot be found.
    bool mirror(const Welk::WPointOnTriangle& point, Welk::WPointOnTriangle& mirrored) const;

private:
    GeometryStack2::GeomStackTriangulated m_mesh;
    QVector<int> m_map;
    QVector<int> m_polygonStart; ///< polygons around each vertex, as offsets
    QVector<int> m_polygons;
    QVector<int> m_firstTriangle; ///< first triangle of each polygon
};

} // namespace WelkPlugin
