#pragma once

#include "WGLMaterial.h"

namespace Welk {

/// The lit surface: a colour, the model's texture or per-vertex colours,
/// lighting along the view axis (back faces lit alike), optional sRGB
/// output and a grey "ghost" look.
class WGLMaterialSurface : public WGLMaterial
{
public:
    enum ColorSpace
    {
        Linear = 0,
        Srgb = 1,
    };

    void draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView) override;

    void setLightingEnabled(bool enabled) { m_lighting = enabled; }
    bool isLightingEnabled() const { return m_lighting; }
    /// The texture drawn when the mesh has texture coordinates; null for none.
    void setTexture(const WGLTextureBase* texture) { m_texture = texture; }
    void setTextureEnabled(bool enabled) { m_textureEnabled = enabled; }
    void setIndexColorEnabled(bool enabled) { m_indexColorEnabled = enabled; }
    void setGhostEffectEnabled(bool enabled) { m_ghost = enabled; }
    void setColorSpace(ColorSpace space) { m_colorSpace = space; }

    /// The defines a draw of `data` uses, in the order the program takes them.
    QStringList definesFor(const WGLData& data) const;

private:
    bool m_lighting = true;
    bool m_textureEnabled = true;
    bool m_indexColorEnabled = true;
    bool m_ghost = false;
    ColorSpace m_colorSpace = Linear;
    const WGLTextureBase* m_texture = nullptr;
};

} // namespace Welk
