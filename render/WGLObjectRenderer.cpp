#include "WGLObjectRenderer.h"

#include "WGLData.h"
#include "WGLMaterial.h"

namespace Welk {

WGLObjectRenderer::WGLObjectRenderer(std::shared_ptr<WGLData> data) : m_data(std::move(data)) {}
WGLObjectRenderer::~WGLObjectRenderer() = default;

void WGLObjectRenderer::draw(const WGLFrameData& frame)
{
    // QMatrix4x4 keeps type flags and multiplies translations cheaply.
    const QMatrix4x4 modelView = frame.viewMatrix * m_model;
    for (const auto& material : m_materials)
        if (material)
            material->draw(frame, *m_data, modelView);
}

} // namespace Welk
