#pragma once

#include <QSize>

#include <memory>

namespace Welk {

class WGLFrameBuffer;
class WGLRenderPlane;
class WGLTextureDepthComp;
class WGLTextureRGBA32;

/// The targets of the frame-buffer strategy: one colour target per render
/// plane, a shared depth target, the frame buffer and the quad that lays
/// the planes over each other. Tied to the viewport's context.
struct WGLRenderPlanesData
{
    explicit WGLRenderPlanesData(QSize pixelSize);
    ~WGLRenderPlanesData();
    void resize(QSize pixelSize);

    QSize size;
    std::unique_ptr<WGLTextureRGBA32> plane[2];
    std::unique_ptr<WGLTextureDepthComp> depth;
    std::unique_ptr<WGLFrameBuffer> frameBuffer;
    std::unique_ptr<WGLRenderPlane> quad;
};

} // namespace Welk
