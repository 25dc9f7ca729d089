#pragma once

#include "exchange/PluginGLVisualParams.h"

#include <QColor>
#include <QImage>
#include <QVector3D>
#include <QVector>
#include <QWidget>

#include <memory>

class QLabel;
class QToolButton;

namespace GeometryStack2 {
class GeomStackTriangulated;
}

namespace Welk {
class WCamera3D;
class WContextNavigation2WithGeom;
class WGLDataGeomStackTriangulated;
class WGLMarkers;
class WGLMaterialCavity;
class WGLMaterialWireframe;
class WGLObjectRenderer;
class WGLObjectShadow;
class WGLPolylines;
class WGLSharedContext;
class WGLTextureImg;
class WImg;
class ZGLBackground;
class ZGLGeom;
class ZGLViewport;
} // namespace Welk

namespace WelkPlugin {

/// A model's pane: a header with its role, file name, counts and the
/// display toggles, over an OpenGL view of the model navigated as in
/// ZBrush. Steps draw their markers and curves into `markers()` and
/// `polylines()`, and a running fit shows its shapes through `setVertices`.
class ZModelView : public QWidget
{
    Q_OBJECT
public:
    ZModelView(const QString& role, QWidget* parent = nullptr);
    ~ZModelView() override;

    /// Shows `mesh` (kept by the caller for the view's life) with `texture`
    /// where the mesh has texture coordinates. Builds the GL arrays in the
    /// shared context.
    void setModel(const GeometryStack2::GeomStackTriangulated* mesh, const QString& fileName,
                  Welk::WGLSharedContext* context, const Welk::WImg& texture);
    void setVisualParams(const PluginGLVisualParams& params);
    /// Replaces the texture drawn on the model (a null image removes it).
    void setTexture(const Welk::WImg& texture);
    /// For meshes read from GoZ files, which hold ZBrush's own frame: y and
    /// z point the other way than in OBJ files (the view starts turned
    /// half about x, so models stand as in ZBrush), and texture coordinates
    /// count v from the top of the image. Call before `setModel`.
    void setGoZConventions(bool goz) { m_gozConventions = goz; }
    Welk::WGLSharedContext* sharedContext() const { return m_context; }
    void setToggles(bool wireframe, bool texture, bool lighting);

    /// The header's text, for tests and accessibility.
    QString headerText() const;
    const GeometryStack2::GeomStackTriangulated* mesh() const { return m_mesh; }

    Welk::ZGLViewport* viewport() const { return m_viewport; }
    Welk::WContextNavigation2WithGeom* navigation() const { return m_navigation; }
    Welk::WCamera3D& camera() const { return *m_camera; }
    Welk::WGLMarkers* markers() const { return m_markers.get(); }
    /// Small markers for the fit's graph nodes.
    Welk::WGLMarkers* nodeMarkers() const { return m_nodeMarkers.get(); }
    Welk::WGLPolylines* polylines() const { return m_polylines.get(); }
    /// The control points of the spline step.
    Welk::WGLMarkers* splineMarkers() const { return m_splineMarkers.get(); }
    Welk::WGLDataGeomStackTriangulated* glData() const { return m_data.get(); }

    /// The drawn image, as on screen.
    QImage grabImage();

    /// The camera ray under view pixel `p` (y down), in model space.
    void rayAt(const QPointF& p, QVector3D& origin, QVector3D& direction) const;
    /// The view pixel of a model position; false when it lies behind the
    /// camera or there is no view yet.
    bool projectToScreen(const QVector3D& position, QPointF& pixel) const;

public slots:
    /// Draws the model with new positions (same count); a list of another
    /// size is ignored. Costs one upload of positions and one of normals.
    void setVertices(const QVector<QVector3D>& vertices);
    /// Back to the positions of the mesh as loaded.
    void resetVertices();
    /// Colours the model per vertex (same count as the vertices); an empty
    /// list goes back to the model's own look (clay, with masked parts shaded).
    void setVertexColors(const QVector<QColor>& colors);
    /// Shades the vertices of polygons masked in ZBrush (one byte a polygon,
    /// non-zero masked); nothing when none is masked.
    void setPolygonMask(const QVector<quint8>& polygonMask);
    /// Frames the whole model.
    void fitToView();

signals:
    /// The positions drawn now (after `setVertices` or `resetVertices`).
    void verticesShown(const QVector<QVector3D>& vertices);
    void wireframeToggled(bool visible);
    void textureToggled(bool visible);
    void lightingToggled(bool enabled);

protected:
    void updateMaterials();
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* m_header;
    QLabel* m_title;
    QLabel* m_counts;
    QToolButton* m_wireframe;
    QToolButton* m_texture;
    QToolButton* m_lighting;
    QString m_role;

    const GeometryStack2::GeomStackTriangulated* m_mesh = nullptr;
    Welk::WGLSharedContext* m_context = nullptr;
    std::shared_ptr<Welk::WCamera3D> m_camera;
    std::unique_ptr<Welk::ZGLBackground> m_background;
    std::unique_ptr<Welk::WGLObjectShadow> m_shadow;
    std::shared_ptr<Welk::WGLDataGeomStackTriangulated> m_data;
    std::shared_ptr<Welk::WGLMaterialCavity> m_surface;
    std::shared_ptr<Welk::WGLMaterialWireframe> m_wire;
    std::unique_ptr<Welk::WGLTextureImg> m_textureImage;
    std::shared_ptr<Welk::WGLObjectRenderer> m_renderer;
    std::unique_ptr<Welk::ZGLGeom> m_geom;
    std::unique_ptr<Welk::WGLMarkers> m_markers;
    std::unique_ptr<Welk::WGLMarkers> m_nodeMarkers;
    std::unique_ptr<Welk::WGLMarkers> m_splineMarkers;
    std::unique_ptr<Welk::WGLPolylines> m_polylines;
    Welk::ZGLViewport* m_viewport = nullptr;
    Welk::WContextNavigation2WithGeom* m_navigation = nullptr;
    bool m_fitted = false;
    bool m_gozConventions = false;
    QVector<QColor> m_maskColors;
};

} // namespace WelkPlugin
