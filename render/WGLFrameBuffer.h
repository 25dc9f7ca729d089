#pragma once

#include <QList>

#include <qopengl.h>

class QOpenGLContext;
class QOpenGLExtraFunctions;

namespace Welk {

class WGLTextureBase;

/// A frame buffer object. Frame buffers are not shared between contexts, so
/// each belongs to the context current at its construction; using it in
/// another is a programming error that ends the program.
class WGLFrameBuffer
{
public:
    WGLFrameBuffer();
    ~WGLFrameBuffer();
    WGLFrameBuffer(const WGLFrameBuffer&) = delete;
    WGLFrameBuffer& operator=(const WGLFrameBuffer&) = delete;

    void bind();
    /// Binds the context's default target (the widget's own frame buffer).
    void release();
    /// Attaches `texture` as colour attachment `index`.
    void attachColor(int index, const WGLTextureBase& texture);
    void attachDepth(const WGLTextureBase& texture);
    /// Selects the first `count` colour attachments as draw buffers.
    void setDrawBuffers(int count);

    GLuint id() const { return m_id; }
    QOpenGLContext* context() const { return m_context; }

    /// The frame buffer bound now; 0 is replaced by the context's default
    /// target, since a QOpenGLWidget draws into a frame buffer of its own.
    static GLuint currentBinding();
    /// Binds `id`, where 0 means the context's default target.
    static void bindId(GLuint id);

private:
    GLuint m_id = 0;
    QOpenGLExtraFunctions* m_functions = nullptr;
    QList<const WGLTextureBase*> m_attached;
    QOpenGLContext* m_context = nullptr;
};

} // namespace Welk
