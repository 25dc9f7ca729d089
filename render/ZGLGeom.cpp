#include "ZGLGeom.h"

#include "WGLObjectRenderer.h"
#include "WGLSharedContext.h"

namespace Welk {

ZGLGeom::ZGLGeom(WGLSharedContext* context, std::shared_ptr<WGLObjectRenderer> renderer)
    : m_context(context), m_renderer(std::move(renderer))
{
}

void ZGLGeom::draw(const WGLFrameData& frame)
{
    if (m_context)
        m_context->makeCurrentIfNeeded();
    m_renderer->draw(frame);
}

} // namespace Welk
