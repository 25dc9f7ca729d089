#pragma once

#include "geometry/GeomStackTriangulated.h"

#include <QImage>

#include <memory>

namespace Welk {
class WGLSharedContext;
}

namespace RenderTest {

/// The application and shared context all render tests use (created once).
Welk::WGLSharedContext* sharedContext();

/// A latitude-longitude sphere of quads around `centre`.
GeometryStack2::GeomStackTriangulated sphere(float radius = 1.0f, int rings = 24, int segments = 32,
                                             const QVector3D& centre = {});
/// A plane folded into a valley along x = 0, seen from +z: a crease.
GeometryStack2::GeomStackTriangulated valley(int cells = 40, float depth = 0.6f);
/// One quad from (-1,-1) to (1,1) with UVs over the whole texture.
GeometryStack2::GeomStackTriangulated texturedQuad();

/// Mean absolute difference per channel, and the share of pixels whose
/// largest channel difference exceeds `strong`.
struct ImageDifference
{
    double meanAbsolute = 0;
    double strongShare = 0;
};
ImageDifference compareImages(const QImage& a, const QImage& b, int strong = 40);

/// Compares `image` with tests/render/baselines/`name`.png. With
/// ZWELK_UPDATE_BASELINES=1 in the environment the baseline is written
/// instead. Returns an empty text when they match within tolerance.
QString checkBaseline(const QImage& image, const QString& name);

/// Pixels that differ from `background` by more than `threshold`.
QRect contentBounds(const QImage& image, const QColor& background, int threshold = 12);

double luminance(QRgb pixel);

} // namespace RenderTest

namespace Welk {
class WCamera3D;
class WGLDataGeomStackTriangulated;
class WGLMaterialCavity;
class WGLMaterialWireframe;
class WGLObjectRenderer;
class WGLObjectShadow;
class WGLTextureImg;
class WImg;
class ZGLBackground;
class ZGLGeom;
class ZGLViewport;
} // namespace Welk

namespace RenderTest {

/// One model in a top-level viewport of a fixed size, drawn the way the
/// model panes draw it: cavity material, optional wireframe, shadow, and
/// a flat background unless a gradient is asked for.
class Scene
{
public:
    explicit Scene(const GeometryStack2::GeomStackTriangulated& mesh, QSize size = QSize(320, 240),
                   int renderStrategy = 0);
    ~Scene();

    QImage render();
    void fit();

    void setWireframe(bool on);
    void setTexture(const Welk::WImg& image);

    Welk::WCamera3D& camera() { return *m_camera; }
    Welk::ZGLViewport& viewport() { return *m_viewport; }
    Welk::ZGLBackground& background() { return *m_background; }
    Welk::WGLObjectShadow& shadow() { return *m_shadow; }
    Welk::WGLMaterialCavity& surface() { return *m_surface; }
    Welk::WGLDataGeomStackTriangulated& data() { return *m_data; }
    QColor flatBackground() const { return QColor(40, 40, 40); }

private:
    GeometryStack2::GeomStackTriangulated m_mesh;
    std::shared_ptr<Welk::WCamera3D> m_camera;
    std::unique_ptr<Welk::ZGLBackground> m_background;
    std::unique_ptr<Welk::WGLObjectShadow> m_shadow;
    std::shared_ptr<Welk::WGLDataGeomStackTriangulated> m_data;
    std::shared_ptr<Welk::WGLMaterialCavity> m_surface;
    std::shared_ptr<Welk::WGLMaterialWireframe> m_wire;
    std::shared_ptr<Welk::WGLObjectRenderer> m_renderer;
    std::unique_ptr<Welk::WGLTextureImg> m_texture;
    std::unique_ptr<Welk::ZGLGeom> m_geom;
    Welk::ZGLViewport* m_viewport;
};

} // namespace RenderTest
