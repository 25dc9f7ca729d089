#include "WGLMaterial.h"

#include "WGLData.h"
#include "WGLShaderBuilder.h"
#include "WGLTexBuffer.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

WGLMaterial::WGLMaterial() = default;
WGLMaterial::~WGLMaterial() = default;

QOpenGLShaderProgram* WGLMaterial::program(const QString& vertexPath, const QString& fragmentPath,
                                           const QStringList& defines)
{
    const QString paths = vertexPath + QLatin1Char('|') + fragmentPath;
    if (m_program && defines == m_defines && paths == m_paths)
        return m_program.get();
    if (m_programBuilds > 0 && defines == m_defines && paths == m_paths)
        return nullptr; // failed before with the same switches; already logged
    m_program = WGLShaderBuilder::fromFiles(vertexPath, fragmentPath, defines);
    m_defines = defines;
    m_paths = paths;
    ++m_programBuilds;
    return m_program.get();
}

bool WGLMaterial::drawsIndexColors(const WGLData& data, bool enabled)
{
    return enabled && data.vertexColors();
}

bool WGLMaterial::drawsTexture(const WGLData& data, bool enabled, const WGLTextureBase* texture)
{
    return enabled && texture && data.texCoords() && data.triangleTexCoordIndices() &&
           !drawsIndexColors(data, true);
}

WGLBufferFloat* WGLMaterial::vertexStream(const WGLFrameData& frame, const WGLData& data)
{
    if (frame.interactive && data.coarseTriangleVertexIndices())
        return data.coarseTriangleVertexIndices();
    return data.triangleVertexIndices();
}

WGLBufferFloat* WGLMaterial::texCoordStream(const WGLFrameData& frame, const WGLData& data)
{
    if (frame.interactive && data.coarseTriangleVertexIndices())
        return data.coarseTriangleTexCoordIndices();
    return data.triangleTexCoordIndices();
}

void WGLMaterial::bindTexBuffer(QOpenGLShaderProgram& program, const char* name, const char* sizeName,
                                const WGLTexBuffer& buffer, int unit)
{
    QOpenGLFunctions* f = QOpenGLContext::currentContext()->functions();
    f->glActiveTexture(GL_TEXTURE0 + unit);
    f->glBindTexture(GL_TEXTURE_2D, buffer.textureId());
    program.setUniformValue(name, unit);
    program.setUniformValue(sizeName, static_cast<float>(buffer.side()));
}

} // namespace Welk
