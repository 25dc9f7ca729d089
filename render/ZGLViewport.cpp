#include "ZGLViewport.h"

#include "WGLObjectShadow.h"
#include "WGLSharedContext.h"
#include "ZGLBackground.h"

namespace Welk {

ZGLViewport::ZGLViewport(std::shared_ptr<WCamera> camera, ZGLBackground* background, WGLObjectShadow* shadow,
                         WGLSharedContext* context, QWidget* parent)
    : WViewport(std::move(camera), parent), m_background(background), m_shadow(shadow), m_context(context)
{
    if (m_context)
        m_context->makeCurrentIfNeeded();
    addObject(m_background, 0);
    addObject(m_shadow, 0);
}

void ZGLViewport::addModel(WGLObject* object)
{
    m_shadow->addChild(object);
}

void ZGLViewport::removeModel(WGLObject* object)
{
    m_shadow->removeChild(object);
}

} // namespace Welk
