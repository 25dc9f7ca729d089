#pragma once

#include <QColor>
#include <QVector2D>
#include <QVector3D>
#include <QVector>

#include <qopengl.h>

namespace Welk {

/// An array of vertex attributes held in a square float or byte texture, so
/// that GLSL 1.20 vertex shaders can fetch any element by index. Elements go
/// row by row; the side is ceil(sqrt(count)). The count is fixed for the
/// object's life: a mesh of another size gets a new object. A GL context of
/// the share group must be current for construction, `update` and
/// destruction.
class WGLTexBuffer
{
public:
    virtual ~WGLTexBuffer();
    WGLTexBuffer(const WGLTexBuffer&) = delete;
    WGLTexBuffer& operator=(const WGLTexBuffer&) = delete;

    int count() const { return m_count; }
    int side() const { return m_side; }
    GLuint textureId() const { return m_texture; }
    /// Bytes held on the GPU (side squared texels).
    qint64 gpuBytes() const;

    /// The square side for `count` elements: 0 for none.
    static int sideFor(int count);
    /// Texel (x, y) of element `index` in a square of `side`, as the shaders compute it.
    static void texelOf(int index, int side, int& x, int& y);

protected:
    WGLTexBuffer(int count, GLint internalFormat, GLenum format, GLenum type, int bytesPerComponent,
                 int components);
    /// Uploads `count` elements from `data`: the full rows in one call, the
    /// rest of the last row in a second. Nothing happens when the side is 0.
    void upload(const void* data);

private:
    int m_count;
    GLint m_internalFormat;
    GLenum m_format;
    GLenum m_type;
    int m_bytesPerComponent;
    int m_components;
    int m_side;
    GLuint m_texture = 0;
};

class WGLTexBufferVector3D : public WGLTexBuffer
{
public:
    explicit WGLTexBufferVector3D(const QVector<QVector3D>& data);
    void update(const QVector<QVector3D>& data);
};

class WGLTexBufferVector2D : public WGLTexBuffer
{
public:
    explicit WGLTexBufferVector2D(const QVector<QVector2D>& data);
    void update(const QVector<QVector2D>& data);
};

/// Colours as four bytes red, green, blue, alpha.
class WGLTexBufferColor : public WGLTexBuffer
{
public:
    explicit WGLTexBufferColor(const QVector<QColor>& data);
    void update(const QVector<QColor>& data);
};

} // namespace Welk
