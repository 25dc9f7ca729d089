#pragma once

#include "WGLFrameData.h"

namespace Welk {

/// Anything a viewport draws. Invisible objects are skipped.
class WGLObject
{
public:
    virtual ~WGLObject() = default;
    virtual void draw(const WGLFrameData& frame) = 0;
    /// Called once after every object of a frame is drawn; only multipass
    /// objects use it.
    virtual void finalDraw(const WGLFrameData& frame) {}

    bool isVisible() const { return m_visible; }
    void setVisible(bool visible) { m_visible = visible; }

private:
    bool m_visible = true;
};

/// An object that may draw in several passes.
class ZGLMultipassObject : public WGLObject
{
public:
    void finalDraw(const WGLFrameData& frame) override {}
};

} // namespace Welk
