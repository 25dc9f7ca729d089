#pragma once

#include <QVector3D>

namespace Welk {

class WGLBufferFloat;
class WGLTexBufferColor;
class WGLTexBufferVector2D;
class WGLTexBufferVector3D;

/// The GL arrays of one mesh, as the materials read them. Any of them may be
/// null: a material then draws without that feature.
class WGLData
{
public:
    virtual ~WGLData() = default;
    virtual WGLTexBufferVector3D* vertices() const { return nullptr; }
    virtual WGLTexBufferVector3D* normals() const { return nullptr; }
    virtual WGLTexBufferVector2D* texCoords() const { return nullptr; }
    /// Per-vertex colours, read through the vertex index stream.
    virtual WGLTexBufferColor* vertexColors() const { return nullptr; }
    virtual WGLBufferFloat* triangleVertexIndices() const { return nullptr; }
    virtual WGLBufferFloat* triangleTexCoordIndices() const { return nullptr; }
    /// A coarser triangle stream over the same vertex texture, drawn while
    /// the camera moves; null when the mesh is small enough to draw whole.
    virtual WGLBufferFloat* coarseTriangleVertexIndices() const { return nullptr; }
    virtual WGLBufferFloat* coarseTriangleTexCoordIndices() const { return nullptr; }
    /// Pairs of vertex indices, one pair per polygon edge.
    virtual WGLBufferFloat* edgeVertexIndices() { return nullptr; }
    virtual QVector3D boundsMin() const { return {}; }
    virtual QVector3D boundsMax() const { return {}; }
};

/// The null object: a mesh with no arrays.
class WGLDataStandard : public WGLData
{
};

} // namespace Welk
