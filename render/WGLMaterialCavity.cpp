#include "WGLMaterialCavity.h"

#include "WGLBuffer.h"
#include "WGLData.h"
#include "WGLFrameBuffer.h"
#include "WGLFrameBufferPool.h"
#include "WGLRenderPlane.h"
#include "WGLShaderBuilder.h"
#include "WGLTexBuffer.h"
#include "WGLTexture.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

WGLMaterialCavity::WGLMaterialCavity() = default;
WGLMaterialCavity::~WGLMaterialCavity() = default;

QStringList WGLMaterialCavity::definesFor(const WGLData& data) const
{
    QStringList defines;
    const bool indexColor = drawsIndexColors(data, m_indexColorEnabled);
    const bool texture = drawsTexture(data, m_textureEnabled, m_texture) && !indexColor;
    if (m_lighting)
        defines << QStringLiteral("isLightingEnabled");
    if (texture)
        defines << QStringLiteral("isTextureEnabled");
    if (indexColor)
        defines << QStringLiteral("isIndexColorEnabled");
    return defines;
}

void WGLMaterialCavity::resizeTargets(QSize size)
{
    if (size == m_size && m_colorA)
        return;
    m_colorA = std::make_unique<WGLTextureRGBA32>(size);
    m_colorB = std::make_unique<WGLTextureRGBA32>(size);
    m_normal = std::make_unique<WGLTextureFloat>(size);
    m_xyz = std::make_unique<WGLTextureFloat>(size);
    m_depth = std::make_unique<WGLTextureDepthComp>(size);
    m_size = size;
}

void WGLMaterialCavity::surfacePass(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView)
{
    const QStringList defines = definesFor(data);
    QOpenGLShaderProgram* p = program(QStringLiteral(":/shaders/cavity_surface.vert"),
                                      QStringLiteral(":/shaders/cavity_surface.frag"), defines);
    if (!p)
        return;
    p->bind();
    p->setUniformValue("modelViewMatrix", modelView);
    p->setUniformValue("projectionMatrix", frame.projectionMatrix);
    p->setUniformValue("normalMatrix", modelView.normalMatrix());
    p->setUniformValue("uniformColor", color());
    p->setUniformValue("opacity", opacity());
    bindTexBuffer(*p, "vertexTex", "vertexTexSize", *data.vertices(), 0);
    bindTexBuffer(*p, "customNormalTex", "customNormalTexSize", *data.normals(), 1);
    WGLBufferFloat* indices = vertexStream(frame, data);
    WGLBufferFloat* texIndices = texCoordStream(frame, data);
    indices->bindTo(*p, "triangleVertexInd");
    indices->bindTo(*p, "triangleCustomNormalInd");
    const bool textured = defines.contains(QStringLiteral("isTextureEnabled")) && texIndices;
    const bool coloured = defines.contains(QStringLiteral("isIndexColorEnabled"));
    if (textured) {
        bindTexBuffer(*p, "texCoordTex", "texCoordTexSize", *data.texCoords(), 2);
        m_texture->bind(3);
        p->setUniformValue("texture", 3);
        texIndices->bindTo(*p, "triangleTexCoordInd");
    }
    if (coloured) {
        bindTexBuffer(*p, "colorTex", "colorTexSize", *data.vertexColors(), 4);
        indices->bindTo(*p, "triangleColorInd");
    }
    frame.functions->glDrawArrays(GL_TRIANGLES, 0, indices->count());
    indices->releaseFrom(*p, "triangleVertexInd");
    indices->releaseFrom(*p, "triangleCustomNormalInd");
    if (textured)
        texIndices->releaseFrom(*p, "triangleTexCoordInd");
    if (coloured)
        indices->releaseFrom(*p, "triangleColorInd");
    frame.functions->glActiveTexture(GL_TEXTURE0);
    p->release();
}

void WGLMaterialCavity::depthPass(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView)
{
    if (!m_depthProgram)
        m_depthProgram = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/cavity_depth.vert"),
                                                     QStringLiteral(":/shaders/cavity_depth.frag"));
    if (!m_depthProgram)
        return;
    QOpenGLShaderProgram& p = *m_depthProgram;
    p.bind();
    p.setUniformValue("modelViewMatrix", modelView);
    p.setUniformValue("projectionMatrix", frame.projectionMatrix);
    bindTexBuffer(p, "vertexTex", "vertexTexSize", *data.vertices(), 0);
    WGLBufferFloat* indices = vertexStream(frame, data);
    indices->bindTo(p, "triangleVertexInd");
    frame.functions->glDrawArrays(GL_TRIANGLES, 0, indices->count());
    indices->releaseFrom(p, "triangleVertexInd");
    p.release();
}

void WGLMaterialCavity::draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView)
{
    if (!data.vertices() || !data.normals() || !data.triangleVertexIndices())
        return;
    if (!m_cavity) {
        if (m_depthOnly)
            depthPass(frame, data, modelView);
        else
            surfacePass(frame, data, modelView);
        return;
    }
    QOpenGLFunctions* f = frame.functions;
    resizeTargets(frame.pixelSize());
    if (!m_plane)
        m_plane = std::make_unique<WGLRenderPlane>();

    const GLuint saved = WGLFrameBuffer::currentBinding();
    WGLFrameBuffer* target = frame.frameBufferPool->acquire();
    target->bind();
    target->attachColor(0, *m_colorA);
    target->attachColor(1, *m_xyz);
    target->attachColor(2, *m_normal);
    target->attachColor(3, *m_colorB);
    target->attachDepth(*m_depth);
    target->setDrawBuffers(4);
    f->glClearColor(0, 0, 0, 0);
    f->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    f->glDisable(GL_BLEND);
    if (m_depthOnly)
        depthPass(frame, data, modelView);
    else
        surfacePass(frame, data, modelView);
    f->glEnable(GL_BLEND);
    target->setDrawBuffers(1);
    WGLFrameBuffer::bindId(saved);
    frame.frameBufferPool->release(target);

    if (m_depthOnly) {
        if (!m_depthCopy)
            m_depthCopy = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/screen_quad.vert"),
                                                      QStringLiteral(":/shaders/cavity_depth_copy.frag"));
        if (!m_depthCopy)
            return;
        m_depthCopy->bind();
        m_depth->bind(0);
        m_depthCopy->setUniformValue("textureDepth", 0);
        f->glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
        m_plane->draw(*m_depthCopy);
        f->glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        m_depthCopy->release();
        return;
    }
    if (!m_compose)
        m_compose = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/screen_quad.vert"),
                                                QStringLiteral(":/shaders/cavity_compose.frag"));
    if (!m_compose)
        return;
    QOpenGLShaderProgram& p = *m_compose;
    p.bind();
    m_colorA->bind(0);
    m_depth->bind(1);
    m_normal->bind(2);
    m_xyz->bind(3);
    m_colorB->bind(4);
    p.setUniformValue("textureColor", 0);
    p.setUniformValue("textureDepth", 1);
    p.setUniformValue("textureNormal", 2);
    p.setUniformValue("textureXyz", 3);
    p.setUniformValue("textureAlternativeColor", 4);
    p.setUniformValue("screenSize", QVector2D(m_size.width(), m_size.height()));
    m_plane->draw(p);
    f->glActiveTexture(GL_TEXTURE0);
    p.release();
}

} // namespace Welk
