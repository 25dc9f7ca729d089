#pragma once

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QVector>

namespace Welk {
class ProgressInterface;
}

namespace WelkPlugin {

/// The spline step's symmetry: the topological symmetry of the model
/// (0-based vertex map, one entry per vertex), searched from the vertex
/// nearest the centre of the bounding box. Empty when the model has no
/// vertices, offsets or corners, or no symmetry was found.
QVector<int> splineSymmetryMap(const GeometryStack2::GeomStackTriangulated& mesh,
                               Welk::ProgressInterface* progress = nullptr);

/// Carries surface points across a model's topological symmetry. From the
/// vertex map it derives a polygon map (each polygon to the one made of its
/// corners' mirrors); a point keeps its weights on the mirrored corners of
/// its triangle, and lands on the triangle of the mirrored polygon that
/// holds that place best, since mirroring turns a polygon's fan around.
class SplineMirror
{
public:
    SplineMirror(const GeometryStack2::GeomStackTriangulated& mesh, const QVector<int>& vertexMap,
                 Welk::ProgressInterface* progress = nullptr);

    /// A map for every vertex and a mirror for every polygon.
    bool isValid() const { return m_valid; }
    const QVector<int>& polygonMap() const { return m_polygonMap; }

    /// False for a point off the model or whose polygon has no mirror.
    bool mirror(const Welk::WPointOnTriangle& point, Welk::WPointOnTriangle& mirrored) const;
    /// Every point, in the same order; false at the first that fails.
    bool mirror(const QVector<Welk::WPointOnTriangle>& points, QVector<Welk::WPointOnTriangle>& mirrored) const;

private:
    GeometryStack2::GeomStackTriangulated m_mesh;
    QVector<int> m_vertexMap;
    QVector<int> m_polygonMap;
    QVector<int> m_firstTriangle;
    bool m_valid = false;
};

} // namespace WelkPlugin
