#pragma once

#include "WGLMaterial.h"

namespace Welk {

/// Draws every polygon edge once, in one colour, over the surface.
class WGLMaterialWireframe : public WGLMaterial
{
public:
    WGLMaterialWireframe();
    void draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView) override;
};

} // namespace Welk
