#include "WGLRenderPlane.h"

#include "WGLBuffer.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

WGLRenderPlane::WGLRenderPlane()
    : m_vertices(std::make_unique<WGLBufferVector3D>(
          QVector<QVector3D>{{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}))
{
}

WGLRenderPlane::~WGLRenderPlane() = default;

void WGLRenderPlane::draw(QOpenGLShaderProgram& program)
{
    m_vertices->bindTo(program, "vertex");
    QOpenGLContext::currentContext()->functions()->glDrawArrays(GL_TRIANGLES, 0, 6);
    m_vertices->releaseFrom(program, "vertex");
}

} // namespace Welk
