#pragma once

#include "WGLData.h"

#include <QColor>
#include <QVector2D>
#include <QVector>

#include <memory>

namespace Welk {

class WGLSharedContext;

/// Owns the texture buffers and index streams of one mesh. Positions and
/// normals can be replaced (one texture upload each) without touching the
/// index streams, which stay on the GPU for the mesh's life.
class WGLDataGeomBuffers : public WGLData
{
public:
    ~WGLDataGeomBuffers() override;

    WGLTexBufferVector3D* vertices() const override { return m_vertices.get(); }
    WGLTexBufferVector3D* normals() const override { return m_normals.get(); }
    WGLTexBufferVector2D* texCoords() const override { return m_texCoords.get(); }
    WGLTexBufferColor* vertexColors() const override { return m_vertexColors.get(); }
    WGLBufferFloat* triangleVertexIndices() const override { return m_triangleVertexIndices.get(); }
    WGLBufferFloat* triangleTexCoordIndices() const override { return m_triangleTexCoordIndices.get(); }
    WGLBufferFloat* coarseTriangleVertexIndices() const override { return m_coarseVertexIndices.get(); }
    WGLBufferFloat* coarseTriangleTexCoordIndices() const override { return m_coarseTexCoordIndices.get(); }
    WGLBufferFloat* edgeVertexIndices() override;
    QVector3D boundsMin() const override { return m_min; }
    QVector3D boundsMax() const override { return m_max; }

    /// New positions and normals of the same count.
    void updateVertices(const QVector<QVector3D>& vertices, const QVector<QVector3D>& normals);
    /// Colours per vertex (same count as the vertices); an empty list removes them.
    void setVertexColors(const QVector<QColor>& colors);

    /// Meshes above this many triangles get a coarse stream for navigation.
    static constexpr int CoarseThreshold = 600000;
    /// About how many triangles the coarse stream keeps.
    static constexpr int CoarseTriangles = 250000;

    /// Bytes held on the GPU by the buffers built so far.
    qint64 gpuBytes() const;
    /// How many times the triangle index stream was built (once per mesh).
    int indexStreamBuilds() const { return m_indexStreamBuilds; }

protected:
    WGLDataGeomBuffers(WGLSharedContext* context, const QVector<QVector3D>& vertices,
                       const QVector<QVector3D>& normals, const QVector<QVector2D>& texCoords,
                       const QVector<int>& triangleVertexIndices, const QVector<int>& triangleTexCoordIndices,
                       const QVector<int>& polygonVertexIndices, const QVector<int>& polygonOffsets);

private:
    void computeBounds(const QVector<QVector3D>& vertices);

    WGLSharedContext* m_context;
    std::unique_ptr<WGLTexBufferVector3D> m_vertices;
    std::unique_ptr<WGLTexBufferVector3D> m_normals;
    std::unique_ptr<WGLTexBufferVector2D> m_texCoords;
    std::unique_ptr<WGLTexBufferColor> m_vertexColors;
    std::unique_ptr<WGLBufferFloat> m_triangleVertexIndices;
    std::unique_ptr<WGLBufferFloat> m_triangleTexCoordIndices;
    std::unique_ptr<WGLBufferFloat> m_edgeVertexIndices;
    std::unique_ptr<WGLBufferFloat> m_coarseVertexIndices;
    std::unique_ptr<WGLBufferFloat> m_coarseTexCoordIndices;
    // The polygons stay (shared, not copied) until the wireframe asks for its
    // edges: dense scans are rarely shown as wireframe, and their edge list
    // is the largest array of all.
    QVector<int> m_polygonVertexIndices;
    QVector<int> m_polygonOffsets;
    QVector3D m_min;
    QVector3D m_max;
    int m_indexStreamBuilds = 0;
};

} // namespace Welk
