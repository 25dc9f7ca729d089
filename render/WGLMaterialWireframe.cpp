#include "WGLMaterialWireframe.h"

#include "WGLBuffer.h"
#include "WGLData.h"
#include "WGLTexBuffer.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

WGLMaterialWireframe::WGLMaterialWireframe()
{
    setColor(QColor(40, 40, 40, 150));
}

void WGLMaterialWireframe::draw(const WGLFrameData& frame, WGLData& data, const QMatrix4x4& modelView)
{
    WGLBufferFloat* edges = data.edgeVertexIndices();
    if (!data.vertices() || !edges)
        return;
    QOpenGLShaderProgram* p =
        program(QStringLiteral(":/shaders/wireframe.vert"), QStringLiteral(":/shaders/wireframe.frag"), {});
    if (!p)
        return;
    p->bind();
    p->setUniformValue("modelViewMatrix", modelView);
    p->setUniformValue("projectionMatrix", frame.projectionMatrix);
    p->setUniformValue("color", color());
    bindTexBuffer(*p, "vertex", "vertexSize", *data.vertices(), 0);
    edges->bindTo(*p, "edgeVertexInd");
    frame.functions->glEnable(GL_BLEND);
    frame.functions->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    frame.functions->glDepthFunc(GL_LEQUAL);
    frame.functions->glDrawArrays(GL_LINES, 0, edges->count());
    frame.functions->glDepthFunc(GL_LESS);
    edges->releaseFrom(*p, "edgeVertexInd");
    p->release();
}

} // namespace Welk
