#pragma once

#include "WGLFrameData.h"

#include <QColor>
#include <QMatrix4x4>
#include <QStringList>

#include <memory>

class QOpenGLShaderProgram;

namespace Welk {

class WGLBufferFloat;
class WGLData;
class WGLTexBuffer;
class WGLTextureBase;

/// How a mesh is shaded. A material owns one compiled program at a time and
/// rebuilds it when the switches that select its features change.
class WGLMaterial
{
public:
    WGLMaterial();
    virtual ~WGLMaterial();
    WGLMaterial(const WGLMaterial&) = delete;
    WGLMaterial& operator=(const WGLMaterial&) = delete;

    /// Draws `data` with `modelView` into the current target.
    virtual void draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView) = 0;

    QColor color() const { return m_color; }
    void setColor(const QColor& color) { m_color = color; }
    float opacity() const { return m_opacity; }
    void setOpacity(float opacity) { m_opacity = opacity; }

    /// Programs built so far; a test sees a rebuild as a change here.
    int programBuilds() const { return m_programBuilds; }
    /// The defines of the program in use.
    QStringList programDefines() const { return m_defines; }

protected:
    /// Returns the program for `defines`, rebuilding it when they changed;
    /// null when the shaders fail (logged).
    QOpenGLShaderProgram* program(const QString& vertexPath, const QString& fragmentPath,
                                  const QStringList& defines);
    /// Binds a texture buffer to the sampler `name` on `unit`, with its side in `sizeName`.
    /// Whether a draw of `data` can show `texture` (the mesh has texture
    /// coordinates and their index stream), and its per-vertex colours;
    /// colours win over the texture.
    static bool drawsTexture(const WGLData& data, bool enabled, const WGLTextureBase* texture);
    static bool drawsIndexColors(const WGLData& data, bool enabled);
    /// The triangle streams to draw: the coarse ones while the camera moves,
    /// when the mesh has them.
    static WGLBufferFloat* vertexStream(const WGLFrameData& frame, const WGLData& data);
    static WGLBufferFloat* texCoordStream(const WGLFrameData& frame, const WGLData& data);
    static void bindTexBuffer(QOpenGLShaderProgram& program, const char* name, const char* sizeName,
                              const WGLTexBuffer& buffer, int unit);

private:
    std::unique_ptr<QOpenGLShaderProgram> m_program;
    QStringList m_defines;
    QString m_paths;
    QColor m_color = QColor(200, 185, 170);
    float m_opacity = 1.0f;
    int m_programBuilds = 0;
};

} // namespace Welk
