#include "WGLMaterialSurface.h"

#include "WGLBuffer.h"
#include "WGLData.h"
#include "WGLTexBuffer.h"
#include "WGLTexture.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

QStringList WGLMaterialSurface::definesFor(const WGLData& data) const
{
    QStringList defines;
    const bool indexColor = drawsIndexColors(data, m_indexColorEnabled);
    const bool texture = drawsTexture(data, m_textureEnabled, m_texture) && !indexColor;
    if (m_lighting)
        defines << QStringLiteral("isLightingEnabled");
    if (texture)
        defines << QStringLiteral("isTextureEnabled");
    if (m_ghost)
        defines << QStringLiteral("isGhostEffectEnabled");
    if (indexColor)
        defines << QStringLiteral("isIndexColorEnabled");
    return defines;
}

void WGLMaterialSurface::draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView)
{
    if (!data.vertices() || !data.triangleVertexIndices())
        return;
    const QStringList defines = definesFor(data);
    QOpenGLShaderProgram* p =
        program(QStringLiteral(":/shaders/surface.vert"), QStringLiteral(":/shaders/surface.frag"), defines);
    if (!p)
        return;
    p->bind();
    p->setUniformValue("modelViewMatrix", modelView);
    p->setUniformValue("projectionMatrix", frame.projectionMatrix);
    p->setUniformValue("normalMatrix", modelView.normalMatrix());
    p->setUniformValue("color", color());
    p->setUniformValue("ghostEffectBaseline", static_cast<float>(color().lightnessF()));
    p->setUniformValue("opacity", opacity());
    p->setUniformValue("colorSpace", static_cast<int>(m_colorSpace));
    bindTexBuffer(*p, "vertex", "vertexSize", *data.vertices(), 0);
    bindTexBuffer(*p, "normal", "normalSize", *data.normals(), 1);
    WGLBufferFloat* indices = vertexStream(frame, data);
    WGLBufferFloat* texIndices = texCoordStream(frame, data);
    indices->bindTo(*p, "triangleVertexInd");
    if (defines.contains(QStringLiteral("isTextureEnabled")) && texIndices) {
        bindTexBuffer(*p, "texCoord", "texCoordSize", *data.texCoords(), 2);
        m_texture->bind(3);
        p->setUniformValue("texture", 3);
        texIndices->bindTo(*p, "triangleTexCoordInd");
    }
    if (defines.contains(QStringLiteral("isIndexColorEnabled"))) {
        bindTexBuffer(*p, "triangleVertexColor", "triangleVertexColorSize", *data.vertexColors(), 4);
        indices->bindTo(*p, "triangleVertexColorInd");
    }
    frame.functions->glDrawArrays(GL_TRIANGLES, 0, indices->count());
    indices->releaseFrom(*p, "triangleVertexInd");
    if (texIndices)
        texIndices->releaseFrom(*p, "triangleTexCoordInd");
    indices->releaseFrom(*p, "triangleVertexColorInd");
    frame.functions->glActiveTexture(GL_TEXTURE0);
    p->release();
}

} // namespace Welk
