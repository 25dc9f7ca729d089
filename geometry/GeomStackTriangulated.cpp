#include "GeomStackTriangulated.h"

namespace GeometryStack2 {

GeomStackTriangulated::GeomStackTriangulated(const QString& path, QString& error,
                                             Welk::ProgressInterface* progress, int loader, bool logLoaded)
    : GeomStack(path, error, progress, loader, logLoaded)
{
    if (error.isEmpty())
        triangulate();
}

GeomStackTriangulated::GeomStackTriangulated(
    const QVector<QVector3D>& vertices, const QVector<int>& vertexIndices, const QVector<int>& polygonSizes,
    const QVector<int>& polygonOffsets, const QVector<QVector2D>& texCoords, const QVector<int>& texCoordIndices,
    const QVector<QVector3D>& normals, const QVector<int>& polygroupIds, const QStringList& polygroupNames,
    const QVector<int>& materialIds, const QStringList& materialNames, const QString& mtllib)
    : GeomStack(vertices, vertexIndices, polygonSizes, polygonOffsets, texCoords, texCoordIndices, normals,
                polygroupIds, polygroupNames, materialIds, materialNames, mtllib)
{
    triangulate();
}

GeomStackTriangulated::GeomStackTriangulated(QDataStream& stream, QString& error) : GeomStack(stream, error)
{
    if (error.isEmpty())
        triangulate();
}

GeomStackTriangulated::GeomStackTriangulated(const GeomStack& other) : GeomStack(other)
{
    triangulate();
}

GeomStackTriangulated::~GeomStackTriangulated() = default;

void GeomStackTriangulated::serialize(QDataStream& stream) const
{
    // Triangles are derived data and are rebuilt on reading.
    GeomStack::serialize(stream);
}

QVector<int> GeomStackTriangulated::triangulate(const QVector<int>& cornerIndices,
                                                const QVector<int>& polygonOffsets,
                                                QVector<int>* trianglePolygons)
{
    QVector<int> triangles;
    triangles.reserve(cornerIndices.size() * 3);
    if (trianglePolygons)
        trianglePolygons->clear();
    const int polygonCount = polygonOffsets.size() - 1;
    for (int p = 0; p < polygonCount; ++p) {
        const int first = polygonOffsets[p];
        const int size = polygonOffsets[p + 1] - first;
        for (int k = 1; k + 1 < size; ++k) {
            triangles.append(cornerIndices[first]);
            triangles.append(cornerIndices[first + k]);
            triangles.append(cornerIndices[first + k + 1]);
            if (trianglePolygons)
                trianglePolygons->append(p);
        }
    }
    return triangles;
}

void GeomStackTriangulated::triangulate()
{
    m_triangleVertexIndices = triangulate(m_vertexIndices, m_polygonOffsets, &m_trianglePolygonIndices);
    m_triangleTexCoordIndices.clear();
    if (!m_texCoordIndices.isEmpty())
        m_triangleTexCoordIndices = triangulate(m_texCoordIndices, m_polygonOffsets, nullptr);
}

QVector<quint8> GeomStackTriangulated::triangleMask(const QVector<quint8>& polygonMask) const
{
    QVector<quint8> mask(m_trianglePolygonIndices.size());
    for (int t = 0; t < mask.size(); ++t)
        mask[t] = polygonMask[m_trianglePolygonIndices[t]];
    return mask;
}

QVector<quint8> GeomStackTriangulated::invertedMask(const QVector<quint8>& mask)
{
    QVector<quint8> inverted(mask);
    for (quint8& byte : inverted)
        byte ^= 1u;
    return inverted;
}

} // namespace GeometryStack2
