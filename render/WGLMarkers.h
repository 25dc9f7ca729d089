#pragma once

#include "WGLObject.h"

#include <QColor>
#include <QVector3D>
#include <QVector>

#include <memory>

class QOpenGLBuffer;
class QOpenGLShaderProgram;

namespace Welk {

class WGLTexture;

/// Numbered discs pinned to 3D points, drawn at a fixed pixel size on top
/// of the model (plane 1). Pair i of the point step uses the same colour
/// on both models; a selected marker gets a white ring.
class WGLMarkers : public WGLObject
{
public:
    struct Marker
    {
        QVector3D position;
        QColor color;
        int label = -1; ///< the number shown; negative for none
        bool selected = false;
    };

    WGLMarkers();
    ~WGLMarkers() override;

    void draw(const WGLFrameData& frame) override;

    void setMarkers(const QVector<Marker>& markers);
    const QVector<Marker>& markers() const { return m_markers; }
    void setRadius(float pixels)
    {
        m_radius = pixels;
        m_dirty = true;
    }
    float radius() const { return m_radius; }
    /// Numbers on the discs, or plain discs.
    void setLabelsShown(bool shown)
    {
        m_labelsShown = shown;
        m_dirty = true;
    }
    bool labelsShown() const { return m_labelsShown; }

    /// The colour of pair `index`: well-separated hues that repeat after a while.
    static QColor pairColor(int index);

private:
    void rebuild();

    QVector<Marker> m_markers;
    QVector<float> m_vertices; ///< anchor 3, offset 2, uv 2, tint 4
    float m_radius = 10.0f;
    bool m_dirty = true;
    bool m_labelsShown = true;
    std::unique_ptr<QOpenGLBuffer> m_buffer;
    std::unique_ptr<QOpenGLShaderProgram> m_program;
    std::unique_ptr<WGLTexture> m_atlas;
};

} // namespace Welk
