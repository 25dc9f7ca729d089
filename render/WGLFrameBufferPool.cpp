#include "WGLFrameBufferPool.h"

#include "WGLFrameBuffer.h"

namespace Welk {

WGLFrameBufferPool::WGLFrameBufferPool() = default;
WGLFrameBufferPool::~WGLFrameBufferPool() = default;

WGLFrameBuffer* WGLFrameBufferPool::acquire()
{
    for (int i = 0; i < m_free.size(); ++i) {
        if (m_free[i]) {
            m_free[i] = false;
            return m_frameBuffers[i].get();
        }
    }
    m_frameBuffers.push_back(std::make_unique<WGLFrameBuffer>());
    m_free.append(false);
    return m_frameBuffers.back().get();
}

void WGLFrameBufferPool::release(WGLFrameBuffer* frameBuffer)
{
    for (int i = 0; i < m_free.size(); ++i) {
        if (m_frameBuffers[i].get() == frameBuffer) {
            m_free[i] = true;
            return;
        }
    }
}

} // namespace Welk
