#include "StepMeshes.h"

#include "geometry/ProgressInterface.h"
#include "steps/fitting/WelkingFit.h"

#include <gtest/gtest.h>

#include <QSet>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <atomic>

using namespace WelkPlugin;

namespace {

QCoreApplication& application()
{
    static int argc = 1;
    static char name[] = "steps_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

/// A basemesh sphere and a larger, shifted target sphere.
FitInput spheres(int rings = 10)
{
    FitInput input;
    input.base = StepMeshes::sphere(rings, 1.0f);
    input.target = StepMeshes::sphere(rings + 4, 1.3f, {0.2f, 0, 0});
    return input;
}

FitOptions quickOptions()
{
    FitOptions options;
    options.settings.accelerated.icpIterations = 3;
    options.settings.accelerated.subdivisions = 2;
    options.measure = true;
    return options;
}

/// Waits with the event loop running, so queued signals arrive.
bool waitFor(const std::function<bool()>& done, int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
    return done();
}

} // namespace

TEST(WelkingFit, AlignmentComposesTranslateRotateScaleAsTheBoxesSay)
{
    const QVector<QVector3D> source{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    QMatrix4x4 known;
    known.translate(3, -2, 5);
    known.rotate(40, QVector3D(1, 2, 3).normalized());
    known.scale(2.5f);
    QVector<QVector3D> target;
    for (const auto& p : source)
        target.append(known.map(p));

    const QMatrix4x4 both = WelkingFit::pairTransform(source, target, true, true);
    for (const auto& p : source)
        EXPECT_LT((both.map(p) - known.map(p)).length(), 1e-4f);

    // Scale alone: no rotation or translation, but the fitted factor.
    const QMatrix4x4 scaleOnly = WelkingFit::pairTransform(source, target, false, true);
    EXPECT_NEAR(scaleOnly.map(QVector3D(1, 0, 0)).length(), 2.5f, 1e-4f);
    EXPECT_EQ(scaleOnly.map(QVector3D(0, 0, 0)), QVector3D(0, 0, 0));

    // Rigid alone keeps the size.
    const QMatrix4x4 rigid = WelkingFit::pairTransform(source, target, true, false);
    EXPECT_NEAR((rigid.map(source[1]) - rigid.map(source[0])).length(), 1.0f, 1e-4f);

    // Two pairs, unequal counts or no box: identity.
    EXPECT_TRUE(WelkingFit::pairTransform(source.mid(0, 2), target.mid(0, 2), true, true).isIdentity());
    EXPECT_TRUE(WelkingFit::pairTransform(source, target.mid(0, 3), true, true).isIdentity());
    EXPECT_TRUE(WelkingFit::pairTransform(source, target, false, false).isIdentity());
}

TEST(WelkingFit, InputChecksNameWhatIsWrong)
{
    FitInput input = spheres();
    input.basePoints = {{0, 0.2f, 0.2f}};
    EXPECT_EQ(WelkingFit(input, FitOptions()).checkInput(),
              QStringLiteral("Point Correspondence step should contain equal number of points."));
    input.targetPoints = {{input.target.triangleCount(), 0.2f, 0.2f}};
    EXPECT_TRUE(WelkingFit(input, FitOptions()).checkInput().contains(QStringLiteral("Point 1 on the target")));
    input.targetPoints = {{3, 0.2f, 0.2f}};
    EXPECT_TRUE(WelkingFit(input, FitOptions()).checkInput().isEmpty());
    input.excludedVertices = {1, 0};
    WelkingFit fit(input, FitOptions());
    EXPECT_FALSE(fit.checkInput().isEmpty());
    fit.run();
    EXPECT_EQ(fit.result().status, FitResult::Failed);
    EXPECT_EQ(fit.result().error, fit.checkInput());
}

TEST(WelkingFit, MaskedPolygonsAndSelectionsBothExclude)
{
    FitInput input = spheres();
    input.basePolygonMask = QVector<quint8>(input.base.polygonCount(), 0);
    input.basePolygonMask[0] = 1; // the north cap's first triangle: vertices 0, 1, 2
    input.excludedVertices = QVector<quint8>(input.base.vertexCount(), 0);
    input.excludedVertices[50] = 1;
    FitOptions options;
    options.excludeMasked = true;
    QVector<quint8> excluded = WelkingFit(input, options).excludedVertices();
    EXPECT_EQ(std::count(excluded.begin(), excluded.end(), 1), 4);
    EXPECT_EQ(excluded[0] + excluded[1] + excluded[2] + excluded[50], 4);
    options.excludeMasked = false;
    excluded = WelkingFit(input, options).excludedVertices();
    EXPECT_EQ(std::count(excluded.begin(), excluded.end(), 1), 1);
}

// Spline points select the corner they lie nearest to; the fit leaves
// exactly those vertices out of matching, and they still follow their pairs.
TEST(WelkingFit, PointsSelectTheirNearestCornersForTheMask)
{
    FitInput input = spheres();
    const QVector<int>& corners = input.base.triangleVertexIndices();
    const QVector<Welk::WPointOnTriangle> points = {
        {0, 0.8f, 0.1f}, {1, 0.1f, 0.7f}, {2, 0.05f, 0.05f}, {2, 0.05f, 0.05f}, {-1, 0.3f, 0.3f},
        {input.base.triangleCount(), 0.3f, 0.3f}};
    const QVector<quint8> selected = WelkingFit::verticesNearestPoints(input.base, points);
    ASSERT_EQ(selected.size(), input.base.vertexCount());
    QSet<int> expected = {corners[0], corners[3 + 1], corners[6 + 2]};
    for (int v = 0; v < selected.size(); ++v)
        EXPECT_EQ(selected[v] != 0, expected.contains(v)) << v;

    input.excludedVertices = selected;
    EXPECT_EQ(WelkingFit(input, FitOptions()).excludedVertices(), selected);
}

TEST(WelkingFit, RunsOnAThreadWithLiveShapesAndMatchesADirectRun)
{
    application();
    const FitInput input = spheres();
    auto* fit = new WelkingFit(input, quickOptions());
    QThread thread;
    fit->moveToThread(&thread);
    std::atomic<int> updates{0};
    std::atomic<bool> finished{false};
    QVector<QVector3D> lastShape;
    QStringList texts;
    QObject::connect(&thread, &QThread::started, fit, &WelkingFit::run);
    QObject receiver;
    QObject::connect(fit, &WelkingFit::updated, &receiver, [&](QVector<QVector3D> vertices, QVector<QVector3D>) {
        EXPECT_EQ(QThread::currentThread(), receiver.thread());
        lastShape = vertices;
        ++updates;
    });
    QObject::connect(fit, &WelkingFit::progressChanged, &receiver,
                     [&](QString text, int, int) { texts.append(text); });
    QObject::connect(fit, &WelkingFit::finished, &receiver, [&] { finished = true; });
    thread.start();
    ASSERT_TRUE(waitFor([&] { return finished.load(); }, 60000));
    thread.quit();
    thread.wait();

    const FitResult& result = fit->result();
    ASSERT_EQ(result.status, FitResult::Finished) << result.error.toStdString();
    EXPECT_EQ(updates.load(), 2 * 3); // one shape per level and closest-point round
    EXPECT_EQ(lastShape, result.welked);
    EXPECT_TRUE(texts.contains(QStringLiteral("Building nodes")));
    EXPECT_TRUE(texts.contains(QStringLiteral("Welking (subdivision 2 of 2)")));
    ASSERT_TRUE(result.measured);
    // The basemesh now lies on the target sphere.
    EXPECT_LT(result.report.resultToTarget.rms, 0.02);
    ASSERT_EQ(result.report.vertexDistances.size(), input.base.vertexCount());
    EXPECT_FLOAT_EQ(*std::max_element(result.report.vertexDistances.begin(), result.report.vertexDistances.end()),
                    float(result.report.resultToTarget.max));
    EXPECT_EQ(result.graphNodes.size(), 2);
    EXPECT_EQ(result.vertices.size(), input.base.vertexCount());

    // The command line runs the same composition on its own thread, and
    // gets the same vertices bit for bit: the window and the batch tool
    // cannot drift apart, and scheduling does not change a fit.
    for (int run = 0; run < 3; ++run) {
        WelkingFit direct(input, quickOptions());
        direct.run();
        ASSERT_EQ(direct.result().status, FitResult::Finished);
        EXPECT_EQ(direct.result().vertices, result.vertices) << "run " << run;
    }
    delete fit;
}

TEST(WelkingFit, StopEndsEveryStageWithTheShapeReached)
{
    application();
    // Stopped before it starts: the start shape comes back, unmeasured.
    {
        WelkingFit fit(spheres(), quickOptions());
        fit.stop();
        fit.run();
        EXPECT_EQ(fit.result().status, FitResult::Interrupted);
        EXPECT_EQ(fit.result().welked, fit.input().base.vertices());
        EXPECT_FALSE(fit.result().measured);
    }
    // Stopped after the first intermediate shape: ends early with a shape.
    {
        FitOptions options = quickOptions();
        options.settings.accelerated.icpIterations = 50;
        WelkingFit fit(spheres(16), options);
        int updates = 0;
        QObject::connect(&fit, &WelkingFit::updated, [&](QVector<QVector3D>, QVector<QVector3D>) {
            if (++updates == 1)
                fit.stop();
        });
        fit.run();
        EXPECT_EQ(fit.result().status, FitResult::Interrupted);
        EXPECT_LE(updates, 2);
        EXPECT_EQ(fit.result().welked.size(), fit.input().base.vertexCount());
    }
    // A caller's progress that is cancelled stops the graph build.
    {
        struct Cancelled : Welk::ProgressInterface
        {
            void start(const QString&, long long) override {}
            void setValue(long long, const QString&) override {}
            void end() override {}
            bool isCancelled() const override { return true; }
        } cancelled;
        WelkingFit fit(spheres(), quickOptions(), &cancelled);
        fit.run();
        EXPECT_EQ(fit.result().status, FitResult::Interrupted);
    }
}

TEST(WelkingFit, AlignedBaseAndWarningsFollowTheTransform)
{
    FitInput input;
    input.base = StepMeshes::sphere(6, 1.0f);
    input.target = StepMeshes::sphere(12, 100.0f, {5000, 0, 0});
    // Three landmarks on each: the poles and a point at 30 degrees from the
    // north pole (vertex 1 of six rings, vertex 25 of twelve).
    const auto pointAt = [](const GeometryStack2::GeomStackTriangulated& mesh, int vertex) {
        const QVector<int>& t = mesh.triangleVertexIndices();
        for (int i = 0; i < t.size(); ++i)
            if (t[i] == vertex) {
                Welk::WPointOnTriangle p{i / 3, 0, 0};
                (i % 3 == 0 ? p.u : i % 3 == 1 ? p.v : p.u) = i % 3 == 2 ? 0.0f : 1.0f;
                return p;
            }
        return Welk::WPointOnTriangle();
    };
    for (int v : {0, input.base.vertexCount() - 1, 1})
        input.basePoints.append(pointAt(input.base, v));
    for (int v : {0, input.target.vertexCount() - 1, 25})
        input.targetPoints.append(pointAt(input.target, v));

    FitOptions options;
    WelkingFit plain(input, options);
    QVector<ModelWarning::Kind> kinds;
    for (const auto& w : plain.warnings())
        kinds.append(w.kind);
    EXPECT_TRUE(kinds.contains(ModelWarning::NoIntersection));
    EXPECT_TRUE(kinds.contains(ModelWarning::ScaleDiffers));

    options.rigid = options.scale = true;
    WelkingFit aligned(input, options);
    EXPECT_TRUE(aligned.warnings().isEmpty());
    EXPECT_LT((aligned.alignedBase()[0] - input.target.vertices()[0]).length(), 0.01f);
    EXPECT_LT((aligned.alignedBase()[1] - input.target.vertices()[25]).length(), 0.01f);
}

namespace {

/// A thin capsule and the same capsule bent sharply at its middle, like an
/// arm straight in the basemesh and bent at the elbow in the scan: closest
/// points crowd the inside of the bend.
FitInput straightAndBentArm()
{
    const auto arm = [](const QVector3D& p) { return QVector3D(0.3f * p.x(), 0.3f * p.y(), 3.0f * p.z()); };
    const auto bent = [&](const QVector3D& p) {
        const QVector3D q = arm(p);
        const float radius = 0.35f, length = radius * float(M_PI) / 2;
        if (q.z() < -length / 2)
            return q;
        const float angle = std::min(q.z() + length / 2, length) / radius;
        float x = radius - (radius - q.x()) * std::cos(angle);
        float z = -length / 2 + (radius - q.x()) * std::sin(angle);
        if (q.z() > length / 2) {
            x += (q.z() - length / 2) * std::sin(angle);
            z += (q.z() - length / 2) * std::cos(angle);
        }
        return QVector3D(x, q.y(), z);
    };
    FitInput input;
    input.base = StepMeshes::sphere(16, 1.0f);
    input.target = StepMeshes::sphere(48, 1.0f);
    QVector<QVector3D> base = input.base.vertices(), target = input.target.vertices();
    for (QVector3D& p : base)
        p = arm(p);
    for (QVector3D& p : target)
        p = bent(p);
    input.base.setVertices(base);
    input.target.setVertices(target);
    return input;
}

} // namespace

TEST(WelkingFit, TheFoldsACartoonFitMakesAtABendAreRepairedAtLittleCost)
{
    const FitInput input = straightAndBentArm();
    FitOptions options;
    options.engine = FitEngine::Cartoon;
    options.measure = true;
    // The folds of closest-point matching at a bend; coverage pairs fold
    // the bend elsewhere, see below.
    options.settings.accelerated.coveragePairs = false;
    options.settings.accelerated.repairFolds = false;
    WelkingFit folding(input, options);
    folding.run();
    ASSERT_EQ(folding.result().status, FitResult::Finished) << folding.result().error.toStdString();
    const FitReport& folded = folding.result().report;
    ASSERT_GT(folded.addedFolds(), 0) << "the pair no longer folds without the repair; it tests nothing";

    options.settings.accelerated.repairFolds = true;
    WelkingFit repairing(input, options);
    repairing.run();
    ASSERT_EQ(repairing.result().status, FitResult::Finished);
    const FitReport& repaired = repairing.result().report;
    EXPECT_LE(repaired.addedFolds(), 0);
    EXPECT_EQ(repairing.result().course.foldsBeforeRepair, folded.addedFolds());
    EXPECT_EQ(repairing.result().course.foldsAfterRepair, 0);
    // Only the vertices around the folds moved, and back onto the target.
    EXPECT_LT(repaired.resultToTarget.rms, 1.2 * folded.resultToTarget.rms);
    EXPECT_LT(repaired.targetToResult.rms, 1.05 * folded.targetToResult.rms);
    int moved = 0;
    for (int v = 0; v < input.base.vertexCount(); ++v)
        moved += repairing.result().vertices[v] != folding.result().vertices[v];
    EXPECT_GT(moved, 0);
    EXPECT_LT(moved, input.base.vertexCount() / 4);

    // With coverage pairs (the default) the scan's outside of the bend,
    // which closest points leave uncovered, is reached: repaired, the fit
    // covers the scan better and lies closer to it than without them.
    options.settings.accelerated.coveragePairs = true;
    WelkingFit covering(input, options);
    covering.run();
    ASSERT_EQ(covering.result().status, FitResult::Finished);
    const FitReport& covered = covering.result().report;
    EXPECT_LE(covered.addedFolds(), 0);
    EXPECT_LT(covered.targetToResult.rms, 0.5 * repaired.targetToResult.rms);
    EXPECT_LT(covered.resultToTarget.rms, repaired.resultToTarget.rms);
}
