#pragma once

#include "WGLDataGeomBuffers.h"

namespace GeometryStack2 {
class GeomStackTriangulated;
}

namespace Welk {

/// The GL arrays of a `GeomStackTriangulated`. Keeps the mesh's lists
/// (shared, not copied) so that new positions get their normals here.
class WGLDataGeomStackTriangulated : public WGLDataGeomBuffers
{
public:
    WGLDataGeomStackTriangulated(WGLSharedContext* context,
                                 const GeometryStack2::GeomStackTriangulated& mesh);

    /// New positions of the same count; normals are recomputed from the
    /// polygons. One upload for positions and one for normals.
    void setVertices(const QVector<QVector3D>& vertices);

private:
    QVector<int> m_vertexIndices;
    QVector<int> m_polygonOffsets;
};

} // namespace Welk
