#include "WGLRenderPlanesData.h"

#include "WGLFrameBuffer.h"
#include "WGLRenderPlane.h"
#include "WGLTexture.h"

namespace Welk {

WGLRenderPlanesData::WGLRenderPlanesData(QSize pixelSize)
    : frameBuffer(std::make_unique<WGLFrameBuffer>()), quad(std::make_unique<WGLRenderPlane>())
{
    resize(pixelSize);
}

WGLRenderPlanesData::~WGLRenderPlanesData() = default;

void WGLRenderPlanesData::resize(QSize pixelSize)
{
    if (pixelSize == size && depth)
        return;
    size = pixelSize;
    plane[0] = std::make_unique<WGLTextureRGBA32>(size);
    plane[1] = std::make_unique<WGLTextureRGBA32>(size);
    depth = std::make_unique<WGLTextureDepthComp>(size);
}

} // namespace Welk
