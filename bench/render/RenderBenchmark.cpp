// Times the viewport on meshes of 100k, 1M and 3M triangles: creating the
// GL arrays, drawing a frame at 1600x1000 with each material setting, and
// moving the vertices (the live preview of a fit). "moving" is a frame while
// the camera moves: dense meshes then draw their coarse stream, no shadow.
//
//   xvfb-run -s "-screen 0 1600x1000x24" build/bench/render [--frames N] [--sizes 0.1,1,3]

#include "WCamera3D.h"
#include "WGLDataGeomStackTriangulated.h"
#include "WGLMaterialCavity.h"
#include "WGLMaterialWireframe.h"
#include "WGLObjectRenderer.h"
#include "WGLObjectShadow.h"
#include "WGLSharedContext.h"
#include "ZGLBackground.h"
#include "ZGLGeom.h"
#include "ZGLViewport.h"

#include "geometry/GeomStackTriangulated.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QTest>

#include <fmt/core.h>

#include <cmath>
#include <memory>

using namespace Welk;
using GeometryStack2::GeomStackTriangulated;

namespace {

/// A bumpy closed surface of about `triangles` triangles (quads fanned in two).
GeomStackTriangulated bumpySphere(int triangles)
{
    const int rings = std::max(4, static_cast<int>(std::sqrt(triangles / 4.0)));
    const int segments = std::max(4, triangles / (2 * rings));
    QVector<QVector3D> v;
    v.reserve((rings + 1) * segments);
    for (int r = 0; r <= rings; ++r) {
        const double theta = M_PI * r / rings;
        for (int s = 0; s < segments; ++s) {
            const double phi = 2 * M_PI * s / segments;
            const double bump = 1.0 + 0.05 * std::sin(7 * theta) * std::sin(9 * phi);
            v << QVector3D(bump * std::sin(theta) * std::cos(phi), bump * std::cos(theta),
                           bump * std::sin(theta) * std::sin(phi));
        }
    }
    QVector<int> corners;
    QVector<int> sizes;
    QVector<int> offsets{0};
    corners.reserve(rings * segments * 4);
    for (int r = 0; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const int a = r * segments + s;
            const int b = r * segments + (s + 1) % segments;
            corners << a << b << b + segments << a + segments;
            sizes << 4;
            offsets << corners.size();
        }
    return GeomStackTriangulated(v, corners, sizes, offsets, {}, {}, {}, QVector<int>(sizes.size(), 0),
                                 {QStringLiteral("default")}, QVector<int>(sizes.size(), -1), {}, {});
}

/// A viewport whose frame can be drawn and waited for on demand.
class BenchViewport : public ZGLViewport
{
public:
    using ZGLViewport::ZGLViewport;
    double frameMilliseconds(int frames)
    {
        makeCurrent();
        paintGL(); // warm-up: programs and targets
        context()->functions()->glFinish();
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < frames; ++i)
            paintGL();
        context()->functions()->glFinish();
        const double ms = timer.nsecsElapsed() / 1e6 / frames;
        doneCurrent();
        return ms;
    }
};

void finish(WGLSharedContext& context)
{
    context.makeCurrentIfNeeded();
    QOpenGLContext::currentContext()->functions()->glFinish();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    int frames = 5;
    QList<double> sizes{0.1, 1.0, 3.0};
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == QStringLiteral("--frames"))
            frames = args[i + 1].toInt();
        if (args[i] == QStringLiteral("--sizes")) {
            sizes.clear();
            for (const QString& s : args[i + 1].split(QLatin1Char(',')))
                sizes << s.toDouble();
        }
    }
    QString error;
    WGLSharedContext shared(error);
    if (!error.isEmpty()) {
        fmt::print(stderr, "{}\n", error.toStdString());
        return 1;
    }
    fmt::print("{:>10} {:>9} {:>9} {:>9} {:>9} {:>9} {:>9} {:>9} {:>10} {:>9}\n", "triangles", "create", "clay",
               "+shadow", "+wire", "moving", "plain", "update", "upload", "GPU MB");
    for (double millions : sizes) {
        const GeomStackTriangulated mesh = bumpySphere(static_cast<int>(millions * 1e6));
        QElapsedTimer timer;
        finish(shared);
        timer.start();
        auto data = std::make_shared<WGLDataGeomStackTriangulated>(&shared, mesh);
        finish(shared);
        const double createMs = timer.nsecsElapsed() / 1e6;

        auto camera = std::make_shared<WCamera3D>();
        ZGLBackground background;
        WGLObjectShadow shadow;
        auto cavity = std::make_shared<WGLMaterialCavity>();
        auto wire = std::make_shared<WGLMaterialWireframe>();
        auto renderer = std::make_shared<WGLObjectRenderer>(data);
        renderer->addMaterial(cavity);
        ZGLGeom geom(&shared, renderer);
        auto* view = new BenchViewport(camera, &background, &shadow, &shared);
        view->addModel(&geom);
        view->setFixedSize(1600, 1000);
        view->show();
        if (!QTest::qWaitForWindowExposed(view))
            fmt::print(stderr, "The viewport was never shown\n");
        camera->fitToView(data->boundsMin(), data->boundsMax(), view->size());

        shadow.setEnabled(false);
        const double clay = view->frameMilliseconds(frames);
        shadow.setEnabled(true);
        const double shadowed = view->frameMilliseconds(frames);
        renderer->setMaterials({cavity, wire});
        const double wired = view->frameMilliseconds(frames);
        renderer->setMaterials({cavity});
        view->beginInteraction();
        const double moving = view->frameMilliseconds(frames);
        view->endInteraction();
        shadow.setEnabled(false);
        cavity->setCavityEnabled(false);
        const double plain = view->frameMilliseconds(frames);

        // Live preview: new positions, normals recomputed, two uploads.
        QVector<QVector3D> moved = mesh.vertices();
        for (QVector3D& p : moved)
            p *= 1.01f;
        finish(shared);
        timer.restart();
        data->setVertices(moved);
        finish(shared);
        const double updateMs = timer.nsecsElapsed() / 1e6;
        const QVector<QVector3D> normals = mesh.normals();
        finish(shared);
        timer.restart();
        data->updateVertices(moved, normals);
        finish(shared);
        const double uploadMs = timer.nsecsElapsed() / 1e6;

        fmt::print(
            "{:>10} {:>7.0f}ms {:>7.1f}ms {:>7.1f}ms {:>7.1f}ms {:>7.1f}ms {:>7.1f}ms {:>7.1f}ms {:>8.1f}ms {:>9.1f}\n",
            mesh.triangleCount(), createMs, clay, shadowed, wired, moving, plain, updateMs, uploadMs,
            data->gpuBytes() / 1e6);
        delete view;
        shared.makeCurrentIfNeeded();
    }
    return 0;
}
