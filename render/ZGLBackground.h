#pragma once

#include "WGLObject.h"

#include <QColor>

#include <memory>

class QOpenGLShaderProgram;

namespace Welk {

class WGLRenderPlane;

/// The viewport's backdrop: a vertical gradient around a base colour, as
/// ZBrush draws its canvas. `center` is the height (0 bottom, 1 top) where
/// the plain colour shows; `rate` and `range` set how fast it lightens
/// below and darkens above.
class ZGLBackground : public WGLObject
{
public:
    ZGLBackground();
    ~ZGLBackground() override;
    void draw(const WGLFrameData& frame) override;

    void setColor(const QColor& color) { m_color = color; }
    QColor color() const { return m_color; }
    void setGradient(float range, float center, float rate);
    float range() const { return m_range; }
    float center() const { return m_center; }
    float rate() const { return m_rate; }

private:
    QColor m_color = QColor(48, 48, 48);
    float m_range = 0.5f;
    float m_center = 0.75f;
    float m_rate = 0.25f;
    std::unique_ptr<WGLRenderPlane> m_plane;
    std::unique_ptr<QOpenGLShaderProgram> m_program;
};

} // namespace Welk
