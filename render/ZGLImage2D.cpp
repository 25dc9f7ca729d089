#include "ZGLImage2D.h"

#include "WGLBuffer.h"
#include "WGLShaderBuilder.h"
#include "WGLTextureImg.h"

#include "document/WImg.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

ZGLImage2D::ZGLImage2D() = default;
ZGLImage2D::~ZGLImage2D() = default;

void ZGLImage2D::setImage(const WImg& image)
{
    if (image.isNull()) {
        m_texture.reset();
        m_quad.reset();
        m_size = QSize();
        return;
    }
    m_texture = std::make_unique<WGLTextureImg>(image);
    m_size = QSize(image.width(), image.height());
    const float w = m_size.width();
    const float h = m_size.height();
    // Texture coordinates follow from the positions in the shader's input.
    m_quad = std::make_unique<WGLBufferVector3D>(
        QVector<QVector3D>{{0, 0, 0}, {w, 0, 0}, {w, h, 0}, {0, 0, 0}, {w, h, 0}, {0, h, 0}});
}

void ZGLImage2D::draw(const WGLFrameData& frame)
{
    if (!m_texture)
        return;
    if (!m_program)
        m_program = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/image2d.vert"),
                                                QStringLiteral(":/shaders/image2d.frag"));
    if (!m_program)
        return;
    QOpenGLShaderProgram& p = *m_program;
    p.bind();
    p.setUniformValue("modelViewMatrix", frame.viewMatrix);
    p.setUniformValue("projectionMatrix", frame.projectionMatrix);
    p.setUniformValue("imageSize", QVector2D(m_size.width(), m_size.height()));
    p.setUniformValue("checkerDark", QColor(60, 60, 60));
    p.setUniformValue("checkerLight", QColor(90, 90, 90));
    m_texture->bind(0);
    p.setUniformValue("texture", 0);
    m_quad->bindTo(p, "vertex");
    frame.functions->glDisable(GL_DEPTH_TEST);
    frame.functions->glDrawArrays(GL_TRIANGLES, 0, 6);
    frame.functions->glEnable(GL_DEPTH_TEST);
    m_quad->releaseFrom(p, "vertex");
    p.release();
}

} // namespace Welk
