#pragma once

#include <QSize>

#include <qopengl.h>

namespace Welk {

/// A GL texture name, deleted with the object. Render targets and images
/// derive from it; all of them are plain 2D textures with linear or nearest
/// filtering and clamped edges.
class WGLTextureBase
{
public:
    virtual ~WGLTextureBase();
    WGLTextureBase(const WGLTextureBase&) = delete;
    WGLTextureBase& operator=(const WGLTextureBase&) = delete;

    GLuint id() const { return m_id; }
    QSize size() const { return m_size; }
    void bind(int unit) const;

protected:
    WGLTextureBase(QSize size, GLint internalFormat, GLenum format, GLenum type, GLint filter,
                   const void* pixels = nullptr);

private:
    GLuint m_id = 0;
    QSize m_size;
};

/// A general colour texture: 8 bits per channel, linear filtering.
class WGLTexture : public WGLTextureBase
{
public:
    explicit WGLTexture(QSize size, const void* rgbaPixels = nullptr);
};

/// The RGBA 8-bit colour target of a frame buffer (nearest filtering, so a
/// full-screen copy is exact).
class WGLTextureRGBA32 : public WGLTextureBase
{
public:
    explicit WGLTextureRGBA32(QSize size);
};

/// A float RGBA target: view-space positions and normals.
class WGLTextureFloat : public WGLTextureBase
{
public:
    explicit WGLTextureFloat(QSize size);
};

/// A depth target, read back by the compose passes.
class WGLTextureDepthComp : public WGLTextureBase
{
public:
    explicit WGLTextureDepthComp(QSize size);
};

} // namespace Welk
