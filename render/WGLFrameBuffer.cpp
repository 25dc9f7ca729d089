#include "WGLFrameBuffer.h"

#include "WGLTexture.h"

#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>

namespace Welk {

WGLFrameBuffer::WGLFrameBuffer() : m_context(QOpenGLContext::currentContext())
{
    if (!m_context)
        qFatal("WGLFramebuffer is initialized without current GL context");
    m_functions = m_context->extraFunctions();
    m_functions->glGenFramebuffers(1, &m_id);
}

WGLFrameBuffer::~WGLFrameBuffer()
{
    if (QOpenGLContext::currentContext() != m_context)
        qFatal("Destructing WGLFrameBuffer not in a context in which it was created");
    m_functions->glDeleteFramebuffers(1, &m_id);
}

void WGLFrameBuffer::bind()
{
    if (QOpenGLContext::currentContext() != m_context)
        qFatal("Trying to bind WGLFrameBuffer not in a context in which it was created");
    bindId(m_id);
}

void WGLFrameBuffer::release()
{
    bindId(0);
}

void WGLFrameBuffer::attachColor(int index, const WGLTextureBase& texture)
{
    m_functions->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0 + index, GL_TEXTURE_2D,
                                        texture.id(), 0);
    if (!m_attached.contains(&texture))
        m_attached.append(&texture);
}

void WGLFrameBuffer::attachDepth(const WGLTextureBase& texture)
{
    m_functions->glFramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, texture.id(), 0);
    if (!m_attached.contains(&texture))
        m_attached.append(&texture);
}

void WGLFrameBuffer::setDrawBuffers(int count)
{
    static const GLenum buffers[4] = {GL_COLOR_ATTACHMENT0, GL_COLOR_ATTACHMENT1, GL_COLOR_ATTACHMENT2,
                                      GL_COLOR_ATTACHMENT3};
    m_functions->glDrawBuffers(count, buffers);
}

GLuint WGLFrameBuffer::currentBinding()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    GLint id = 0;
    context->functions()->glGetIntegerv(GL_FRAMEBUFFER_BINDING, &id);
    return id == 0 ? context->defaultFramebufferObject() : static_cast<GLuint>(id);
}

void WGLFrameBuffer::bindId(GLuint id)
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    context->functions()->glBindFramebuffer(GL_FRAMEBUFFER,
                                            id == 0 ? context->defaultFramebufferObject() : id);
}

} // namespace Welk
