#pragma once

#include "GeomStack.h"

namespace GeometryStack2 {

/// A `GeomStack` with a triangle list beside its polygons: engines, searches
/// and renderers read triangles, while the polygons stay as loaded so that a
/// result keeps the input's topology. Polygons are fanned from their first
/// corner, whatever their shape.
class GeomStackTriangulated : public GeomStack
{
public:
    GeomStackTriangulated() = default;
    GeomStackTriangulated(const QString& path, QString& error, Welk::ProgressInterface* progress = nullptr,
                          int loader = GraphLoader, bool logLoaded = false);
    GeomStackTriangulated(const QVector<QVector3D>& vertices, const QVector<int>& vertexIndices,
                          const QVector<int>& polygonSizes, const QVector<int>& polygonOffsets,
                          const QVector<QVector2D>& texCoords, const QVector<int>& texCoordIndices,
                          const QVector<QVector3D>& normals, const QVector<int>& polygroupIds,
                          const QStringList& polygroupNames, const QVector<int>& materialIds,
                          const QStringList& materialNames, const QString& mtllib);
    GeomStackTriangulated(QDataStream& stream, QString& error);
    explicit GeomStackTriangulated(const GeomStack& other);
    GeomStackTriangulated(const GeomStackTriangulated&) = default;
    GeomStackTriangulated& operator=(const GeomStackTriangulated&) = default;
    ~GeomStackTriangulated() override;

    void serialize(QDataStream& stream) const override;

    int triangleCount() const { return m_triangleVertexIndices.size() / 3; }
    const QVector<int>& triangleVertexIndices() const { return m_triangleVertexIndices; }
    const QVector<int>& triangleTexCoordIndices() const { return m_triangleTexCoordIndices; }
    const QVector<int>& trianglePolygonIndices() const { return m_trianglePolygonIndices; }

    /// Fans every polygon of `cornerIndices` from its first corner. Fills
    /// `trianglePolygons` with the source polygon of each triangle when given.
    static QVector<int> triangulate(const QVector<int>& cornerIndices, const QVector<int>& polygonOffsets,
                                    QVector<int>* trianglePolygons);

    /// One byte per triangle, read from the byte of the polygon it came from.
    QVector<quint8> triangleMask(const QVector<quint8>& polygonMask) const;
    /// Flips bit 0 of every byte: masked becomes free and back.
    static QVector<quint8> invertedMask(const QVector<quint8>& mask);

private:
    void triangulate();

    QVector<int> m_triangleVertexIndices;
    QVector<int> m_triangleTexCoordIndices;
    QVector<int> m_trianglePolygonIndices;
};

} // namespace GeometryStack2
