#include "WGLPolylines.h"

#include "WGLShaderBuilder.h"

#include <QOpenGLBuffer>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace Welk {

WGLPolylines::WGLPolylines() = default;
WGLPolylines::~WGLPolylines() = default;

void WGLPolylines::setPolylines(const QVector<Polyline>& lines)
{
    m_lines = lines;
    m_dirty = true;
}

void WGLPolylines::draw(const WGLFrameData& frame)
{
    if (m_lines.isEmpty())
        return;
    if (!m_program) {
        m_program = WGLShaderBuilder::fromFiles(QStringLiteral(":/shaders/lines.vert"),
                                                QStringLiteral(":/shaders/lines.frag"));
        m_buffer = std::make_unique<QOpenGLBuffer>(QOpenGLBuffer::VertexBuffer);
        m_buffer->setUsagePattern(QOpenGLBuffer::DynamicDraw);
        m_buffer->create();
        m_dirty = true;
    }
    if (!m_program)
        return;
    m_buffer->bind();
    if (m_dirty) {
        m_vertices.clear();
        for (const Polyline& line : m_lines) {
            const int n = line.points.size();
            const int segments = line.closed ? n : n - 1;
            for (int i = 0; i < segments; ++i)
                for (const QVector3D& p : {line.points[i], line.points[(i + 1) % n]})
                    m_vertices << p.x() << p.y() << p.z() << float(line.color.redF())
                               << float(line.color.greenF()) << float(line.color.blueF())
                               << float(line.color.alphaF());
        }
        m_buffer->allocate(m_vertices.constData(), m_vertices.size() * static_cast<int>(sizeof(float)));
        m_dirty = false;
    }
    QOpenGLShaderProgram& p = *m_program;
    p.bind();
    p.setUniformValue("modelViewMatrix", frame.viewMatrix);
    p.setUniformValue("projectionMatrix", frame.projectionMatrix);
    p.enableAttributeArray("position");
    p.enableAttributeArray("tint");
    p.setAttributeBuffer("position", GL_FLOAT, 0, 3, 7 * sizeof(float));
    p.setAttributeBuffer("tint", GL_FLOAT, 3 * sizeof(float), 4, 7 * sizeof(float));
    frame.functions->glEnable(GL_BLEND);
    frame.functions->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    frame.functions->glLineWidth(2.0f);
    frame.functions->glDrawArrays(GL_LINES, 0, m_vertices.size() / 7);
    frame.functions->glLineWidth(1.0f);
    p.disableAttributeArray("position");
    p.disableAttributeArray("tint");
    p.release();
    m_buffer->release();
}

} // namespace Welk
