#pragma once

#include <memory>

class QOpenGLShaderProgram;

namespace Welk {

class WGLBufferVector3D;

/// A full-screen quad of two triangles (six vertices, z = 0), drawn with
/// whatever program the caller has bound; the program reads the attribute
/// "vertex". Used by every compose and copy pass.
class WGLRenderPlane
{
public:
    WGLRenderPlane();
    ~WGLRenderPlane();

    void draw(QOpenGLShaderProgram& program);

private:
    std::unique_ptr<WGLBufferVector3D> m_vertices;
};

} // namespace Welk
