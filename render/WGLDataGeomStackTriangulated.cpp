#include "WGLDataGeomStackTriangulated.h"

#include "geometry/GeomStackTriangulated.h"

namespace Welk {

WGLDataGeomStackTriangulated::WGLDataGeomStackTriangulated(WGLSharedContext* context,
                                                           const GeometryStack2::GeomStackTriangulated& mesh)
    : WGLDataGeomBuffers(context, mesh.vertices(),
                         mesh.normals().size() == mesh.vertexCount()
                             ? mesh.normals()
                             : GeometryStack2::GeomStack::computeNormals(
                                   mesh.vertices(), mesh.vertexIndices(), mesh.polygonOffsets()),
                         mesh.hasTexCoords() ? mesh.texCoords() : QVector<QVector2D>(),
                         mesh.triangleVertexIndices(),
                         mesh.hasTexCoords() ? mesh.triangleTexCoordIndices() : QVector<int>(),
                         mesh.vertexIndices(), mesh.polygonOffsets()),
      m_vertexIndices(mesh.vertexIndices()), m_polygonOffsets(mesh.polygonOffsets())
{
}

void WGLDataGeomStackTriangulated::setVertices(const QVector<QVector3D>& vertices)
{
    updateVertices(vertices,
                   GeometryStack2::GeomStack::computeNormals(vertices, m_vertexIndices, m_polygonOffsets));
}

} // namespace Welk
