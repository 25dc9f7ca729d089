#pragma once

#include "WGLObject.h"

#include <QColor>
#include <QSize>

#include <memory>

class QOpenGLShaderProgram;

namespace Welk {

class WGLBufferVector3D;
class WGLTextureImg;
class WImg;

/// An image laid on the plane from (0, 0) to (width, height) in image
/// units (pixels, y up), for the flat views of the texture step. Empty
/// texels show a checkerboard.
class ZGLImage2D : public WGLObject
{
public:
    ZGLImage2D();
    ~ZGLImage2D() override;
    void draw(const WGLFrameData& frame) override;

    /// Replaces the image; a GL context of the share group must be current.
    void setImage(const WImg& image);
    QSize imageSize() const { return m_size; }

private:
    QSize m_size;
    std::unique_ptr<WGLTextureImg> m_texture;
    std::unique_ptr<WGLBufferVector3D> m_quad;
    std::unique_ptr<QOpenGLShaderProgram> m_program;
};

} // namespace Welk
