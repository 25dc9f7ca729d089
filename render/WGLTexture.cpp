#include "WGLTexture.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>

namespace Welk {

namespace {

QOpenGLFunctions* gl()
{
    QOpenGLContext* context = QOpenGLContext::currentContext();
    if (!context)
        qFatal("A GL texture is used without a current GL context");
    return context->functions();
}

} // namespace

WGLTextureBase::WGLTextureBase(QSize size, GLint internalFormat, GLenum format, GLenum type, GLint filter,
                               const void* pixels)
    : m_size(size)
{
    QOpenGLFunctions* f = gl();
    f->glGenTextures(1, &m_id);
    f->glBindTexture(GL_TEXTURE_2D, m_id);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    f->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    f->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    f->glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, qMax(1, size.width()), qMax(1, size.height()), 0,
                    format, type, pixels);
    f->glBindTexture(GL_TEXTURE_2D, 0);
}

WGLTextureBase::~WGLTextureBase()
{
    if (m_id && QOpenGLContext::currentContext())
        gl()->glDeleteTextures(1, &m_id);
}

void WGLTextureBase::bind(int unit) const
{
    QOpenGLFunctions* f = gl();
    f->glActiveTexture(GL_TEXTURE0 + unit);
    f->glBindTexture(GL_TEXTURE_2D, m_id);
}

WGLTexture::WGLTexture(QSize size, const void* rgbaPixels)
    : WGLTextureBase(size, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, GL_LINEAR, rgbaPixels)
{
}

WGLTextureRGBA32::WGLTextureRGBA32(QSize size)
    : WGLTextureBase(size, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, GL_NEAREST)
{
}

WGLTextureFloat::WGLTextureFloat(QSize size) : WGLTextureBase(size, GL_RGBA32F, GL_RGBA, GL_FLOAT, GL_NEAREST)
{
}

WGLTextureDepthComp::WGLTextureDepthComp(QSize size)
    : WGLTextureBase(size, GL_DEPTH_COMPONENT24, GL_DEPTH_COMPONENT, GL_UNSIGNED_INT, GL_NEAREST)
{
}

} // namespace Welk
