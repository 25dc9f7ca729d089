#pragma once

#include "WGLMaterial.h"

#include <QSize>

namespace Welk {

class WGLRenderPlane;
class WGLTextureDepthComp;
class WGLTextureFloat;
class WGLTextureRGBA32;

/// The clay look: the lit surface, with convex ridges lighter and creases
/// darker. The surface pass writes two colours, view-space positions and
/// normals into screen-sized targets; a compose pass estimates curvature
/// from the normals of neighbouring pixels and blends the two colours.
/// With cavity off it draws the surface pass straight into the target.
class WGLMaterialCavity : public WGLMaterial
{
public:
    WGLMaterialCavity();
    ~WGLMaterialCavity() override;

    void draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView) override;

    void setCavityEnabled(bool enabled) { m_cavity = enabled; }
    bool isCavityEnabled() const { return m_cavity; }
    /// Writes depth only: the model hides what lies behind it but shows nothing.
    void setDepthOnly(bool depthOnly) { m_depthOnly = depthOnly; }
    void setLightingEnabled(bool enabled) { m_lighting = enabled; }
    void setTexture(const WGLTextureBase* texture) { m_texture = texture; }
    void setTextureEnabled(bool enabled) { m_textureEnabled = enabled; }
    void setIndexColorEnabled(bool enabled) { m_indexColorEnabled = enabled; }

    QStringList definesFor(const WGLData& data) const;
    /// Size of the screen targets in use (empty before the first cavity draw).
    QSize targetSize() const { return m_size; }

private:
    void surfacePass(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView);
    void depthPass(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView);
    void resizeTargets(QSize size);

    bool m_cavity = true;
    bool m_depthOnly = false;
    bool m_lighting = true;
    bool m_textureEnabled = true;
    bool m_indexColorEnabled = true;
    const WGLTextureBase* m_texture = nullptr;

    QSize m_size;
    std::unique_ptr<WGLTextureRGBA32> m_colorA;
    std::unique_ptr<WGLTextureRGBA32> m_colorB;
    std::unique_ptr<WGLTextureFloat> m_normal;
    std::unique_ptr<WGLTextureFloat> m_xyz;
    std::unique_ptr<WGLTextureDepthComp> m_depth;
    std::unique_ptr<WGLRenderPlane> m_plane;
    std::unique_ptr<QOpenGLShaderProgram> m_compose;
    std::unique_ptr<QOpenGLShaderProgram> m_depthCopy;
    std::unique_ptr<QOpenGLShaderProgram> m_depthProgram;
};

} // namespace Welk
