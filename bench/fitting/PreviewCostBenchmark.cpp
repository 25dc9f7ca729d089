// What the live preview costs a fit: the same fit on its own thread, once
// with every intermediate shape drawn in a viewport (normals, two uploads,
// a repaint) as the window does, once with nobody listening. Runs
// alternate so that machine noise hits both alike.
//
//   xvfb-run -s "-screen 0 1600x1000x24" build/bench/preview_cost BASE.obj TARGET.obj [--runs N]

#include "WCamera3D.h"
#include "WFrameThrottle.h"
#include "WGLDataGeomStackTriangulated.h"
#include "WGLMaterialCavity.h"
#include "WGLObjectRenderer.h"
#include "WGLObjectShadow.h"
#include "WGLSharedContext.h"
#include "ZGLBackground.h"
#include "ZGLGeom.h"
#include "ZGLViewport.h"

#include "steps/fitting/WelkingFit.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTest>
#include <QThread>

#include <fmt/core.h>

#include <algorithm>

using namespace Welk;
using namespace WelkPlugin;
using GeometryStack2::GeomStackTriangulated;

namespace {

struct Run
{
    double seconds = 0;
    int shapes = 0;
};

Run fit(const GeomStackTriangulated& base, const GeomStackTriangulated& target,
        WGLDataGeomStackTriangulated* data, ZGLViewport* view)
{
    FitInput input;
    input.base = base;
    input.target = target;
    auto* job = new WelkingFit(input, FitOptions());
    QThread thread;
    job->moveToThread(&thread);
    Run run;
    QObject::connect(&thread, &QThread::started, job, &WelkingFit::run);
    QObject::connect(job, &WelkingFit::finished, &thread, &QThread::quit);
    // As the window does: at most one shape a second, drawn without the shadow.
    WFrameThrottle throttle(1000);
    if (data) {
        view->setLightweight(true);
        QObject::connect(job, &WelkingFit::updated, &throttle, &WFrameThrottle::push);
        QObject::connect(&throttle, &WFrameThrottle::ready, view, [&](const QVector<QVector3D>& vertices) {
            data->setVertices(vertices);
            view->update();
            ++run.shapes;
        });
    }
    QEventLoop loop;
    QObject::connect(&thread, &QThread::finished, &loop, &QEventLoop::quit);
    QElapsedTimer timer;
    timer.start();
    thread.start();
    loop.exec();
    run.seconds = timer.nsecsElapsed() / 1e9;
    thread.wait();
    if (view)
        view->setLightweight(false);
    delete job;
    return run;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        fmt::print(stderr, "usage: preview_cost BASE.obj TARGET.obj [--runs N]\n");
        return 2;
    }
    int runs = 3;
    const int at = args.indexOf(QStringLiteral("--runs"));
    if (at > 0 && at + 1 < args.size())
        runs = args[at + 1].toInt();
    QString error;
    const GeomStackTriangulated base(args[1], error);
    const GeomStackTriangulated target(args[2], error);
    if (!error.isEmpty()) {
        fmt::print(stderr, "{}\n", error.toStdString());
        return 1;
    }
    WGLSharedContext shared(error);
    auto data = std::make_shared<WGLDataGeomStackTriangulated>(&shared, base);
    auto camera = std::make_shared<WCamera3D>();
    ZGLBackground background;
    WGLObjectShadow shadow;
    auto renderer = std::make_shared<WGLObjectRenderer>(data);
    renderer->addMaterial(std::make_shared<WGLMaterialCavity>());
    ZGLGeom geom(&shared, renderer);
    auto* view = new ZGLViewport(camera, &background, &shadow, &shared);
    view->addModel(&geom);
    // One pane of the window at 1600 x 1000.
    view->resize(640, 900);
    view->show();
    if (!QTest::qWaitForWindowExposed(view))
        fmt::print(stderr, "The viewport was never shown\n");
    camera->fitToView(data->boundsMin(), data->boundsMax(), view->size());

    std::vector<double> with, without;
    int shapes = 0;
    for (int i = 0; i < runs; ++i) {
        const Run a = fit(base, target, nullptr, nullptr);
        const Run b = fit(base, target, data.get(), view);
        without.push_back(a.seconds);
        with.push_back(b.seconds);
        shapes = b.shapes;
        fmt::print("run {}: without preview {:.2f} s, with preview {:.2f} s ({} shapes drawn)\n", i + 1,
                   a.seconds, b.seconds, b.shapes);
    }
    std::sort(with.begin(), with.end());
    std::sort(without.begin(), without.end());
    const double mw = with[with.size() / 2];
    const double mo = without[without.size() / 2];
    fmt::print(
        "median: without {:.2f} s, with {:.2f} s, preview cost {:+.1f}% ({} shapes, {} base vertices)\n", mo,
        mw, 100.0 * (mw - mo) / mo, shapes, base.vertexCount());
    delete view;
    shared.makeCurrentIfNeeded();
    return 0;
}
