#pragma once

#include <QVector>

#include <memory>
#include <vector>

namespace Welk {

class WGLFrameBuffer;

/// A viewport's reusable frame buffers. A pass takes one for its frame and
/// gives it back, so passes can nest (the shadow holds one while a material
/// holds another) without creating frame buffers every frame. Lives and
/// dies with one GL context.
class WGLFrameBufferPool
{
public:
    WGLFrameBufferPool();
    ~WGLFrameBufferPool();

    WGLFrameBuffer* acquire();
    void release(WGLFrameBuffer* frameBuffer);
    int size() const { return static_cast<int>(m_frameBuffers.size()); }

private:
    std::vector<std::unique_ptr<WGLFrameBuffer>> m_frameBuffers;
    QVector<bool> m_free;
};

} // namespace Welk
