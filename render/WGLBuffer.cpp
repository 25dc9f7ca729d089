#include "WGLBuffer.h"

#include <QDebug>
#include <QOpenGLContext>
#include <QOpenGLShaderProgram>

namespace Welk {

WGLBuffer::WGLBuffer(const void* data, int count, int components)
    : m_buffer(QOpenGLBuffer::VertexBuffer), m_count(count), m_components(components)
{
    m_buffer.setUsagePattern(QOpenGLBuffer::StaticDraw);
    m_buffer.create();
    if (!m_buffer.bind()) {
        qWarning() << "Failed to bind GL buffer";
        return;
    }
    m_buffer.allocate(data, static_cast<int>(gpuBytes()));
    m_buffer.release();
}

WGLBuffer::~WGLBuffer()
{
    if (QOpenGLContext::currentContext())
        m_buffer.destroy();
}

bool WGLBuffer::bindTo(QOpenGLShaderProgram& program, const char* attribute)
{
    const int location = program.attributeLocation(attribute);
    if (location < 0)
        return false;
    if (!m_buffer.bind()) {
        qWarning() << "Failed to bind GL buffer";
        return false;
    }
    program.enableAttributeArray(location);
    program.setAttributeBuffer(location, GL_FLOAT, 0, m_components);
    m_buffer.release();
    return true;
}

void WGLBuffer::releaseFrom(QOpenGLShaderProgram& program, const char* attribute)
{
    const int location = program.attributeLocation(attribute);
    if (location >= 0)
        program.disableAttributeArray(location);
}

WGLBufferFloat::WGLBufferFloat(const QVector<float>& data) : WGLBuffer(data.constData(), data.size(), 1) {}

WGLBufferVector3D::WGLBufferVector3D(const QVector<QVector3D>& data)
    : WGLBuffer(data.constData(), data.size(), 3)
{
}

} // namespace Welk
