#include "ZGLBackground.h"

#include "WGLRenderPlane.h"
#include "WGLShaderBuilder.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QVector2D>

namespace Welk {

ZGLBackground::ZGLBackground() = default;
ZGLBackground::~ZGLBackground() = default;

void ZGLBackground::setGradient(float range, float center, float rate)
{
    m_range = range;
    m_center = center;
    m_rate = rate;
}

void ZGLBackground::draw(const WGLFrameData& frame)
{
    if (!m_program) {
        m_program = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/background.vert"),
                                                QStringLiteral(":/shaders/background.frag"));
        m_plane = std::make_unique<WGLRenderPlane>();
    }
    if (!m_program)
        return;
    QOpenGLShaderProgram& p = *m_program;
    p.bind();
    p.setUniformValue("color", m_color);
    p.setUniformValue("range", m_range);
    p.setUniformValue("center", m_center);
    p.setUniformValue("rate", m_rate);
    const QSize size = frame.pixelSize();
    p.setUniformValue("screenSize", QVector2D(size.width(), size.height()));
    m_plane->draw(p);
    p.release();
}

} // namespace Welk
