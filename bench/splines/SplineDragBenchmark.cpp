// What the spline step costs the window's thread on a dense scan: picking,
// dragging a control point along the surface (over the silhouette and
// back), and sampling the splines into the fit's point pairs, with the
// nearest-point lookups answered by the picking scene (Embree's point
// query) or by a closest-triangle tree built for them, in one run.
//
//   spline_drag [--triangles N] [--moves N] [--splines N]
//
// The scan is a bumpy closed sphere of about N triangles (default 3.34
// million), seen from above through a 1000 x 1000 pixel orthographic view.
// Drawing is not timed: the viewport's frame time is the render benchmark's.
#include "search/BvhClosestTriangleFinder.h"
#include "search/FastContinuousProjectionOnTriangleFinder.h"
#include "steps/points/PointSelectionModel.h"
#include "steps/splines/SelectPointsWithSplines/Controller.h"
#include "steps/splines/SplineSelectionModel.h"
#include "support/BenchMeshes.h"

#include <QCoreApplication>
#include <QStringList>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using namespace Welk::SelectPointsWithSplines;
using BenchMeshes::seconds;

constexpr double kPixelsPerUnit = 400.0;
constexpr double kCentre = 500.0;

/// The scan seen from above: rays straight down, picked through the
/// point step's model as the window does.
class TopView : public NodeDataInterface, public RendererInterface
{
public:
    TopView(const GeometryStack2::GeomStackTriangulated& mesh, WelkPlugin::PointSelectionModel& picker,
            WelkPlugin::SplineSelectionModel& splines)
        : m_mesh(mesh), m_picker(picker), m_splines(splines)
    {
    }

    const GeometryStack2::GeomStackTriangulated* geometry() const override { return &m_mesh; }
    Welk::WPointOnTriangle findPointOnTriangle(const QPointF& screen) const override
    {
        QVector3D origin, direction;
        viewRay(screen, origin, direction);
        return m_picker.pick(1, origin, direction);
    }
    bool viewRay(const QPointF& screen, QVector3D& origin, QVector3D& direction) const override
    {
        origin = QVector3D(float((screen.x() - kCentre) / kPixelsPerUnit),
                           float((kCentre - screen.y()) / kPixelsPerUnit), 10.0f);
        direction = QVector3D(0.0f, 0.0f, -1.0f);
        return true;
    }
    WelkPlugin::SplineSelectionModel* splines() override { return &m_splines; }
    bool hasResult() const override { return false; }

    bool projectToScreen(const QVector3D& p, QPointF& screen) const override
    {
        screen = QPointF(kCentre + kPixelsPerUnit * p.x(), kCentre - kPixelsPerUnit * p.y());
        return true;
    }
    void drawSplines(const SplineDrawing&) override {}
    void setHint(const QString& text) override { hint = text; }
    void showMessage(const QString&, const QString&) override {}
    void fitToView(const QVector3D&, const QVector3D&) override {}

    QString hint;

private:
    const GeometryStack2::GeomStackTriangulated& m_mesh;
    WelkPlugin::PointSelectionModel& m_picker;
    WelkPlugin::SplineSelectionModel& m_splines;
};

/// A press or release of the left button.
MouseEvent left(double x, double y)
{
    return MouseEvent{QPointF(x, y), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier};
}

/// A move with the left button held.
MouseEvent dragged(double x, double y)
{
    return MouseEvent{QPointF(x, y), Qt::NoButton, Qt::LeftButton, Qt::NoModifier};
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5))];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    auto option = [&](const QString& name, long long fallback) {
        const int i = args.indexOf(name);
        return i >= 0 && i + 1 < args.size() ? args[i + 1].toLongLong() : fallback;
    };
    const long long triangles = option(QStringLiteral("--triangles"), 3340000);
    const int moves = int(option(QStringLiteral("--moves"), 400));
    const int splineCount = int(option(QStringLiteral("--splines"), 4));

    const BenchMeshes::Mesh sphere = BenchMeshes::bumpySphere(triangles);
    const GeometryStack2::GeomStackTriangulated mesh(
        sphere.vertices, sphere.indices, QVector<int>(sphere.indices.size() / 3, 3),
        [&] {
            QVector<int> offsets(sphere.indices.size() / 3 + 1);
            for (int i = 0; i < offsets.size(); ++i)
                offsets[i] = 3 * i;
            return offsets;
        }(),
        {}, {}, {}, QVector<int>(sphere.indices.size() / 3, -1), {}, QVector<int>(sphere.indices.size() / 3, -1),
        {}, QString());
    fmt::print("scan: {} vertices, {} triangles\n\n", mesh.vertexCount(), mesh.triangleCount());

    WelkPlugin::PointSelectionModel picker;
    const double sceneCpuBefore = BenchMeshes::cpuSeconds();
    const double pickScene = seconds([&] { picker.setMesh(1, mesh); });
    const double pickSceneCpu = BenchMeshes::cpuSeconds() - sceneCpuBefore;
    WelkPlugin::SplineSelectionModel splines;
    splines.setMesh(mesh);
    splines.setClosestPointLookup([&picker](const QVector3D& p) { return picker.closestPoint(1, p); });
    // The window builds this on a thread of its own when the step starts.
    const double cpuBefore = BenchMeshes::cpuSeconds();
    const double slideSearch = seconds([&] { splines.dragFinder(); });
    const double slideSearchCpu = BenchMeshes::cpuSeconds() - cpuBefore;
    TopView view(mesh, picker, splines);
    Controller controller(&view, &view);
    controller.start();

    // Splines across the top of the scan, each drawn by three clicks.
    for (int s = 0; s < splineCount; ++s) {
        const double y = 300.0 + 400.0 * s / std::max(1, splineCount - 1);
        for (double x : {250.0, 500.0, 750.0}) {
            controller.mousePress(left(x, y));
            controller.mouseRelease(left(x, y));
        }
        controller.keyPress(KeyEvent{Qt::Key_Return, Qt::NoModifier, false});
    }

    // Drag the first spline's first point right across the top, over the
    // silhouette (x = 1 is 900 pixels) and back.
    const QPointF start(250.0, 300.0);
    std::vector<double> pickOnly, perMove, beyond;
    controller.mousePress(left(start.x(), start.y()));
    const double firstMove = seconds([&] { controller.mouseMove(dragged(start.x() + 1.0, start.y())); });
    for (int k = 1; k <= moves; ++k) {
        const double phase = double(k) / moves;
        const double x = start.x() + 850.0 * std::sin(3.14159265 * phase);
        const double y = start.y() + 60.0 * std::sin(6.28318531 * phase);
        pickOnly.push_back(seconds([&] { view.findPointOnTriangle(QPointF(x, y)); }));
        const double t = seconds([&] { controller.mouseMove(dragged(x, y)); });
        // Past x = 1 the pick misses and the point slides.
        (x <= 900.0 ? perMove : beyond).push_back(t);
    }
    controller.mouseRelease(left(start.x(), start.y()));

    fmt::print("| step | time |\n|---|---|\n");
    fmt::print("| picking scene (Embree, built on entering the point step) | {:.2f} s ({:.2f} s CPU) |\n", pickScene,
               pickSceneCpu);
    fmt::print("| first drag move | {:.1f} us |\n", 1e6 * firstMove);
    fmt::print("| drag move over the scan: median / 99th percentile / slowest of {} | {:.1f} / {:.1f} / {:.1f} us |\n",
               perMove.size(), 1e6 * percentile(perMove, 0.5), 1e6 * percentile(perMove, 0.99),
               1e6 * percentile(perMove, 1.0));
    fmt::print("| sliding search (normals, neighbours; built beside the window's thread) | {:.0f} ms ({:.0f} ms CPU) |\n",
               1e3 * slideSearch, 1e3 * slideSearchCpu);
    fmt::print("| drag move past the silhouette: median / slowest of {} | {:.1f} / {:.1f} us |\n", beyond.size(),
               1e6 * percentile(beyond, 0.5), 1e6 * percentile(beyond, 1.0));
    fmt::print("| pick alone, median | {:.1f} us |\n\n", 1e6 * percentile(pickOnly, 0.5));

    // The fit's pairs: every spline sampled to its points, the samples put
    // back on the scan by nearest-point lookups.
    splines.setPointsPerSpline(200);
    WelkPlugin::SplineMap sampled;
    const double embree = seconds([&] { sampled = splines.sampledSplines(); });
    WelkPlugin::SplineMap sampledByTree;
    double treeBuild = 0.0;
    const double tree = seconds([&] {
        std::shared_ptr<ClosestTriangleSearch::BvhClosestTriangleFinder> finder;
        treeBuild = seconds([&] {
            finder = std::make_shared<ClosestTriangleSearch::BvhClosestTriangleFinder>(mesh.vertices(),
                                                                                        mesh.triangleVertexIndices());
        });
        splines.setClosestPointLookup([finder](const QVector3D& p) { return finder->find(p); });
        sampledByTree = splines.sampledSplines();
    });
    int differ = 0;
    for (auto it = sampled.cbegin(); it != sampled.cend(); ++it) {
        const auto& other = sampledByTree.value(it.key());
        for (int i = 0; i < it.value().size() && i < other.size(); ++i) {
            const QVector3D a = it.value()[i].position(mesh.vertices(), mesh.triangleVertexIndices());
            const QVector3D b = other[i].position(mesh.vertices(), mesh.triangleVertexIndices());
            differ += (a - b).length() > 1e-5f;
        }
    }
    fmt::print("| first sampling of {} splines x 200 points | time | vs picking scene |\n|---|---|---|\n",
               sampled.size());
    fmt::print("| picking scene's point query (no build) | {:.3f} s | 1.00x |\n", embree);
    fmt::print("| closest-triangle tree, built then queried | {:.3f} s (build {:.3f} s) | {:.1f}x |\n", tree,
               treeBuild, tree / embree);
    fmt::print("\nsample positions that differ by more than 1e-5: {}\n", differ);
    return 0;
}
