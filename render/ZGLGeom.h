#pragma once

#include "WGLObject.h"

#include <memory>

namespace Welk {

class WGLObjectRenderer;
class WGLSharedContext;

/// The scene object the steps use for a mesh: makes sure a context of the
/// share group is usable, then draws through its renderer.
class ZGLGeom : public ZGLMultipassObject
{
public:
    ZGLGeom(WGLSharedContext* context, std::shared_ptr<WGLObjectRenderer> renderer);
    void draw(const WGLFrameData& frame) override;
    WGLObjectRenderer& renderer() const { return *m_renderer; }

private:
    WGLSharedContext* m_context;
    std::shared_ptr<WGLObjectRenderer> m_renderer;
};

} // namespace Welk
