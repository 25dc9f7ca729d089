#include "WGLObjectShadow.h"

#include "WGLFrameBuffer.h"
#include "WGLFrameBufferPool.h"
#include "WGLRenderPlane.h"
#include "WGLShaderBuilder.h"
#include "WGLTexture.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QVector2D>

#include <algorithm>

namespace Welk {

WGLObjectShadow::WGLObjectShadow() = default;
WGLObjectShadow::~WGLObjectShadow() = default;

void WGLObjectShadow::removeChild(WGLObject* child)
{
    m_children.erase(std::remove(m_children.begin(), m_children.end(), child), m_children.end());
}

void WGLObjectShadow::drawChildren(const WGLFrameData& frame)
{
    for (WGLObject* child : m_children)
        if (child->isVisible())
            child->draw(frame);
}

void WGLObjectShadow::releaseTargets()
{
    m_color.reset();
    m_shadow.reset();
    m_xyz.reset();
    m_depth.reset();
    m_size = QSize();
}

void WGLObjectShadow::draw(const WGLFrameData& frame)
{
    if (!m_enabled) {
        releaseTargets();
        drawChildren(frame);
        return;
    }
    // A moving camera gets its frames sooner without the shadow's wide filter.
    if (frame.interactive) {
        drawChildren(frame);
        return;
    }
    if (!m_shadowProgram) {
        m_shadowProgram = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/screen_quad.vert"),
                                                      QStringLiteral(":/shaders/shadow.frag"));
        m_composeProgram = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/screen_quad.vert"),
                                                       QStringLiteral(":/shaders/shadow_compose.frag"));
        m_plane = std::make_unique<WGLRenderPlane>();
    }
    if (!m_shadowProgram || !m_composeProgram) {
        drawChildren(frame);
        return;
    }
    QOpenGLFunctions* f = frame.functions;
    const QSize size = frame.pixelSize();
    if (size != m_size)
        releaseTargets();
    if (!m_color) {
        m_color = std::make_unique<WGLTextureRGBA32>(size);
        m_shadow = std::make_unique<WGLTextureRGBA32>(size);
        m_xyz = std::make_unique<WGLTextureFloat>(size);
        m_depth = std::make_unique<WGLTextureDepthComp>(size);
        m_size = size;
    }

    const GLuint saved = WGLFrameBuffer::currentBinding();
    WGLFrameBuffer* target = frame.frameBufferPool->acquire();
    target->bind();
    target->attachColor(0, *m_color);
    target->attachColor(1, *m_xyz);
    target->attachDepth(*m_depth);
    f->glClearColor(0, 0, 0, 0);
    f->glEnable(GL_DEPTH_TEST);
    target->setDrawBuffers(2);
    f->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    drawChildren(frame);

    target->attachColor(0, *m_shadow);
    target->attachColor(1, *m_xyz); // read below; not a draw buffer any more
    f->glDisable(GL_DEPTH_TEST);
    f->glDisable(GL_BLEND);
    target->setDrawBuffers(1);
    QOpenGLShaderProgram& shadow = *m_shadowProgram;
    shadow.bind();
    m_xyz->bind(0);
    shadow.setUniformValue("textureXyz", 0);
    shadow.setUniformValue("screenSize", QVector2D(size.width(), size.height()));
    shadow.setUniformValue("shadowIntensity", m_intensity);
    m_plane->draw(shadow);
    shadow.release();

    f->glEnable(GL_DEPTH_TEST);
    f->glEnable(GL_BLEND);
    f->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    WGLFrameBuffer::bindId(saved);
    frame.frameBufferPool->release(target);

    QOpenGLShaderProgram& compose = *m_composeProgram;
    compose.bind();
    m_color->bind(0);
    m_shadow->bind(1);
    m_depth->bind(2);
    compose.setUniformValue("textureColor", 0);
    compose.setUniformValue("textureShadow", 1);
    compose.setUniformValue("textureDepth", 2);
    m_plane->draw(compose);
    f->glActiveTexture(GL_TEXTURE0);
    compose.release();
}

} // namespace Welk
