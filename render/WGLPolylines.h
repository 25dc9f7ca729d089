#pragma once

#include "WGLObject.h"

#include <QColor>
#include <QVector3D>
#include <QVector>

#include <memory>

class QOpenGLBuffer;
class QOpenGLShaderProgram;

namespace Welk {

/// Curves drawn as lines over the model (plane 1), in the markers' style:
/// a dark outline under a coloured line.
class WGLPolylines : public WGLObject
{
public:
    struct Polyline
    {
        QVector<QVector3D> points;
        QColor color;
        bool closed = false;
    };

    WGLPolylines();
    ~WGLPolylines() override;
    void draw(const WGLFrameData& frame) override;
    void setPolylines(const QVector<Polyline>& lines);
    const QVector<Polyline>& polylines() const { return m_lines; }

private:
    QVector<Polyline> m_lines;
    QVector<float> m_vertices; ///< position 3, tint 4, as line segments
    bool m_dirty = true;
    std::unique_ptr<QOpenGLBuffer> m_buffer;
    std::unique_ptr<QOpenGLShaderProgram> m_program;
};

} // namespace Welk
