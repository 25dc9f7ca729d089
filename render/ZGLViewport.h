#pragma once

#include "WViewport.h"

#include <vector>

namespace Welk {

class WGLObjectShadow;
class WGLSharedContext;
class ZGLBackground;

/// The program's viewport: the gradient background and the soft shadow in
/// plane 0, under everything else. Models go into the shadow's children
/// (`addModel`), markers and labels into plane 1.
class ZGLViewport : public WViewport
{
    Q_OBJECT
public:
    ZGLViewport(std::shared_ptr<WCamera> camera, ZGLBackground* background, WGLObjectShadow* shadow,
                WGLSharedContext* context, QWidget* parent = nullptr);

    void addModel(WGLObject* object);
    void removeModel(WGLObject* object);
    ZGLBackground* background() const { return m_background; }
    WGLObjectShadow* shadow() const { return m_shadow; }
    WGLSharedContext* sharedContext() const { return m_context; }

private:
    ZGLBackground* m_background;
    WGLObjectShadow* m_shadow;
    WGLSharedContext* m_context;
};

} // namespace Welk
