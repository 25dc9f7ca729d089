#pragma once

#include <QOpenGLBuffer>
#include <QVector3D>
#include <QVector>

class QOpenGLShaderProgram;

namespace Welk {

/// A static vertex buffer of one element type, bound to a shader attribute
/// when drawn. Lives in the share group.
class WGLBuffer
{
public:
    virtual ~WGLBuffer();
    WGLBuffer(const WGLBuffer&) = delete;
    WGLBuffer& operator=(const WGLBuffer&) = delete;

    int count() const { return m_count; }
    qint64 gpuBytes() const { return static_cast<qint64>(m_count) * m_components * sizeof(float); }

    /// Binds the buffer to `attribute` of `program`; false (logged) if the
    /// buffer cannot be bound.
    bool bindTo(QOpenGLShaderProgram& program, const char* attribute);
    void releaseFrom(QOpenGLShaderProgram& program, const char* attribute);

protected:
    WGLBuffer(const void* data, int count, int components);

private:
    QOpenGLBuffer m_buffer;
    int m_count;
    int m_components;
};

/// One float per vertex: the index streams of the meshes.
class WGLBufferFloat : public WGLBuffer
{
public:
    explicit WGLBufferFloat(const QVector<float>& data);
};

class WGLBufferVector3D : public WGLBuffer
{
public:
    explicit WGLBufferVector3D(const QVector<QVector3D>& data);
};

} // namespace Welk
