#pragma once

#include "WGLObject.h"

#include <QSize>

#include <memory>
#include <vector>

class QOpenGLShaderProgram;

namespace Welk {

class WGLRenderPlane;
class WGLTextureDepthComp;
class WGLTextureFloat;
class WGLTextureRGBA32;

/// Draws its children with a soft screen-space shadow: a point is shaded
/// when parts of the model above it on screen rise steeply towards the eye.
/// Disabled, it draws the children directly.
class WGLObjectShadow : public WGLObject
{
public:
    WGLObjectShadow();
    ~WGLObjectShadow() override;
    void draw(const WGLFrameData& frame) override;

    void addChild(WGLObject* child) { m_children.push_back(child); }
    void removeChild(WGLObject* child);
    const std::vector<WGLObject*>& children() const { return m_children; }

    void setEnabled(bool enabled) { m_enabled = enabled; }
    bool isEnabled() const { return m_enabled; }
    float intensity() const { return m_intensity; }
    void setIntensity(float intensity) { m_intensity = intensity; }
    QSize targetSize() const { return m_size; }

private:
    void drawChildren(const WGLFrameData& frame);
    void releaseTargets();

    std::vector<WGLObject*> m_children;
    float m_intensity = 0.25f;
    bool m_enabled = true;
    QSize m_size;
    std::unique_ptr<WGLTextureRGBA32> m_color;
    std::unique_ptr<WGLTextureRGBA32> m_shadow;
    std::unique_ptr<WGLTextureFloat> m_xyz;
    std::unique_ptr<WGLTextureDepthComp> m_depth;
    std::unique_ptr<WGLRenderPlane> m_plane;
    std::unique_ptr<QOpenGLShaderProgram> m_shadowProgram;
    std::unique_ptr<QOpenGLShaderProgram> m_composeProgram;
};

} // namespace Welk
