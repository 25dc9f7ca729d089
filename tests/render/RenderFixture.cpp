#include "RenderFixture.h"

#include "WGLSharedContext.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>

#include <cmath>

namespace RenderTest {

using GeometryStack2::GeomStackTriangulated;

namespace {

GeomStackTriangulated fromLists(const QVector<QVector3D>& vertices, const QVector<QVector<int>>& polygons,
                                const QVector<QVector2D>& uvs = {})
{
    QVector<int> corners;
    QVector<int> sizes;
    QVector<int> offsets{0};
    for (const auto& p : polygons) {
        corners += p;
        sizes << p.size();
        offsets << corners.size();
    }
    const QVector<int> uvCorners = uvs.isEmpty() ? QVector<int>() : corners;
    return GeomStackTriangulated(vertices, corners, sizes, offsets, uvs, uvCorners, {},
                                 QVector<int>(sizes.size(), 0), {QStringLiteral("default")},
                                 QVector<int>(sizes.size(), -1), {}, {});
}

} // namespace

Welk::WGLSharedContext* sharedContext()
{
    // Both live until the process ends: tearing GL down during static
    // destruction, after the platform plugin is gone, would crash.
    static QApplication* app = nullptr;
    static Welk::WGLSharedContext* context = nullptr;
    if (!app) {
        QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
        static int argc = 1;
        static char name[] = "render_tests";
        static char* argv[] = {name, nullptr};
        app = new QApplication(argc, argv);
        QString error;
        context = new Welk::WGLSharedContext(error);
        if (!error.isEmpty())
            qFatal("%s", qPrintable(error));
    }
    return context;
}

GeomStackTriangulated sphere(float radius, int rings, int segments, const QVector3D& centre)
{
    QVector<QVector3D> v;
    for (int r = 0; r <= rings; ++r) {
        const double theta = M_PI * r / rings;
        for (int s = 0; s < segments; ++s) {
            const double phi = 2 * M_PI * s / segments;
            v << centre + radius * QVector3D(std::sin(theta) * std::cos(phi), std::cos(theta),
                                             std::sin(theta) * std::sin(phi));
        }
    }
    QVector<QVector<int>> polygons;
    for (int r = 0; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const int a = r * segments + s;
            const int b = r * segments + (s + 1) % segments;
            polygons << QVector<int>{a, b, b + segments, a + segments};
        }
    return fromLists(v, polygons);
}

GeomStackTriangulated valley(int cells, float depth)
{
    QVector<QVector3D> v;
    for (int j = 0; j <= cells; ++j)
        for (int i = 0; i <= cells; ++i) {
            const float x = -1.0f + 2.0f * i / cells;
            const float y = -1.0f + 2.0f * j / cells;
            v << QVector3D(x, y, depth * std::abs(x));
        }
    QVector<QVector<int>> polygons;
    for (int j = 0; j < cells; ++j)
        for (int i = 0; i < cells; ++i) {
            const int a = j * (cells + 1) + i;
            polygons << QVector<int>{a, a + 1, a + cells + 2, a + cells + 1};
        }
    return fromLists(v, polygons);
}

GeomStackTriangulated texturedQuad()
{
    return fromLists({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, {{0, 1, 2, 3}},
                     {{0, 0}, {1, 0}, {1, 1}, {0, 1}});
}

ImageDifference compareImages(const QImage& a, const QImage& b, int strong)
{
    ImageDifference d;
    if (a.size() != b.size() || a.isNull()) {
        d.meanAbsolute = 255;
        d.strongShare = 1;
        return d;
    }
    const QImage x = a.convertToFormat(QImage::Format_RGB32);
    const QImage y = b.convertToFormat(QImage::Format_RGB32);
    double sum = 0;
    qint64 strongCount = 0;
    for (int row = 0; row < x.height(); ++row) {
        const QRgb* p = reinterpret_cast<const QRgb*>(x.constScanLine(row));
        const QRgb* q = reinterpret_cast<const QRgb*>(y.constScanLine(row));
        for (int col = 0; col < x.width(); ++col) {
            const int dr = std::abs(qRed(p[col]) - qRed(q[col]));
            const int dg = std::abs(qGreen(p[col]) - qGreen(q[col]));
            const int db = std::abs(qBlue(p[col]) - qBlue(q[col]));
            sum += dr + dg + db;
            if (std::max({dr, dg, db}) > strong)
                ++strongCount;
        }
    }
    const double pixels = double(x.width()) * x.height();
    d.meanAbsolute = sum / (3 * pixels);
    d.strongShare = strongCount / pixels;
    return d;
}

QString checkBaseline(const QImage& image, const QString& name)
{
    const QString path = QStringLiteral(ZWELK_RENDER_BASELINES "/%1.png").arg(name);
    if (qEnvironmentVariableIntValue("ZWELK_UPDATE_BASELINES") == 1) {
        image.save(path);
        return {};
    }
    QImage baseline(path);
    if (baseline.isNull())
        return QStringLiteral("missing baseline %1").arg(path);
    const ImageDifference d = compareImages(image, baseline);
    // llvmpipe is deterministic up to rounding at triangle edges.
    if (d.meanAbsolute > 1.5 || d.strongShare > 0.005) {
        image.save(QDir::temp().filePath(name + QStringLiteral("-actual.png")));
        return QStringLiteral("%1 differs from its baseline: mean %2, strong share %3 (actual image in %4)")
            .arg(name)
            .arg(d.meanAbsolute)
            .arg(d.strongShare)
            .arg(QDir::tempPath());
    }
    return {};
}

QRect contentBounds(const QImage& image, const QColor& background, int threshold)
{
    QRect bounds;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            if (std::abs(qRed(p) - background.red()) > threshold ||
                std::abs(qGreen(p) - background.green()) > threshold ||
                std::abs(qBlue(p) - background.blue()) > threshold)
                bounds |= QRect(x, y, 1, 1);
        }
    return bounds;
}

double luminance(QRgb p)
{
    return 0.299 * qRed(p) + 0.587 * qGreen(p) + 0.114 * qBlue(p);
}

} // namespace RenderTest

#include "WCamera3D.h"
#include "WGLDataGeomStackTriangulated.h"
#include "WGLMaterialCavity.h"
#include "WGLMaterialWireframe.h"
#include "WGLObjectRenderer.h"
#include "WGLObjectShadow.h"
#include "WGLTextureImg.h"
#include "ZGLBackground.h"
#include "ZGLGeom.h"
#include "ZGLViewport.h"

#include "document/WImg.h"

#include <QTest>

namespace RenderTest {

Scene::Scene(const GeometryStack2::GeomStackTriangulated& mesh, QSize size, int renderStrategy)
    : m_mesh(mesh), m_camera(std::make_shared<Welk::WCamera3D>()),
      m_background(std::make_unique<Welk::ZGLBackground>()),
      m_shadow(std::make_unique<Welk::WGLObjectShadow>())
{
    Welk::WGLSharedContext* context = sharedContext();
    context->makeCurrentIfNeeded();
    m_background->setColor(flatBackground());
    m_background->setGradient(0.0f, 0.75f, 0.25f);
    m_data = std::make_shared<Welk::WGLDataGeomStackTriangulated>(context, m_mesh);
    m_surface = std::make_shared<Welk::WGLMaterialCavity>();
    m_wire = std::make_shared<Welk::WGLMaterialWireframe>();
    m_renderer = std::make_shared<Welk::WGLObjectRenderer>(m_data);
    m_renderer->addMaterial(m_surface);
    m_geom = std::make_unique<Welk::ZGLGeom>(context, m_renderer);
    m_viewport = new Welk::ZGLViewport(m_camera, m_background.get(), m_shadow.get(), context);
    m_viewport->addModel(m_geom.get());
    m_viewport->setRequestedRenderStrategy(static_cast<Welk::WViewport::RenderStrategy>(renderStrategy));
    m_viewport->setFixedSize(size);
    m_viewport->show();
    if (!QTest::qWaitForWindowExposed(m_viewport))
        qWarning("The test viewport was never shown");
    fit();
}

Scene::~Scene()
{
    delete m_viewport;
    sharedContext()->makeCurrentIfNeeded();
    m_geom.reset();
    m_renderer.reset();
    m_data.reset();
    m_surface.reset();
    m_wire.reset();
    m_texture.reset();
}

void Scene::fit()
{
    m_camera->fitToView(m_data->boundsMin(), m_data->boundsMax(), m_viewport->size());
}

QImage Scene::render()
{
    return m_viewport->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
}

void Scene::setWireframe(bool on)
{
    if (on)
        m_renderer->setMaterials({m_surface, m_wire});
    else
        m_renderer->setMaterials({m_surface});
}

void Scene::setTexture(const Welk::WImg& image)
{
    sharedContext()->makeCurrentIfNeeded();
    m_texture = std::make_unique<Welk::WGLTextureImg>(image);
    m_surface->setTexture(m_texture.get());
}

} // namespace RenderTest
