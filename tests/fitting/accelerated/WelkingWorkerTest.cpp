#include "support/MeshFactory.h"
#include "support/TestFiles.h"

#include "fitting/accelerated/Deformer.h"
#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/FoldOvers.h"
#include "fitting/accelerated/IterativeSolverProblem.h"
#include "fitting/accelerated/WelkingWorker.h"

#include "geometry/GeomStackTriangulated.h"
#include "search/ClosestPointOnTriangle.h"

#include <gtest/gtest.h>

#include <QThread>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace WelkingAcceleratedVersion;

namespace {

/// The surface z = bump(x, y) over [0, 10]^2 sampled as an n x n grid.
float bump(float x, float y)
{
    return 1.2f * std::sin(0.35f * x) * std::cos(0.25f * y);
}

GeometryStack2::GeomStackTriangulated grid(int n, bool deformed)
{
    return GeometryStack2::GeomStackTriangulated(
        TestSupport::heightField(n, 10.0f, [deformed](float x, float y) { return deformed ? bump(x, y) : 0.0f; }));
}

struct Fit
{
    GeometryStack2::GeomStackTriangulated source = grid(14, false);
    GeometryStack2::GeomStackTriangulated target = grid(60, true);

    std::unique_ptr<FastWelkingWorker> worker(AcceleratedParameters parameters = AcceleratedParameters(),
                                              const QVector<quint8>& excluded = {},
                                              const QVector<Welk::WPointOnTriangle>& sourcePoints = {},
                                              const QVector<Welk::WPointOnTriangle>& targetPoints = {}) const
    {
        std::vector<Vertex> vertices;
        for (const QVector3D& v : source.vertices())
            vertices.emplace_back(v.x(), v.y(), v.z());
        const std::vector<long long> triangles(source.triangleVertexIndices().begin(),
                                               source.triangleVertexIndices().end());
        GraphSamplingParameters sampling;
        sampling.levels = parameters.subdivisions;
        sampling.samplingFinal = 8.0f;
        sampling.samplingInitial = 40.0f;
        auto levels = buildEmbeddedGraph(sampling, vertices, triangles);
        return std::make_unique<FastWelkingWorker>(source.vertices(), source.triangleVertexIndices(), QMatrix4x4(),
                                                   target.vertices(), target.normals(), QMatrix4x4(),
                                                   target.triangleVertexIndices(), sourcePoints, targetPoints,
                                                   excluded, std::move(levels),
                                                   parameters, 100.0f, nullptr);
    }
};

} // namespace

TEST(WelkingWorker, RecoversASmoothDeformation)
{
    const Fit fit;
    auto worker = fit.worker();
    QVector<QVector3D> result;
    int updates = 0;
    QObject::connect(worker.get(), &WelkingWorker::updated, [&](QVector<QVector3D> v, QVector<QVector3D>) {
        ++updates;
        EXPECT_EQ(v.size(), fit.source.vertexCount());
    });
    QObject::connect(worker.get(), &WelkingWorker::finished, [&](QVector<QVector3D> v) { result = v; });
    worker->start();
    ASSERT_EQ(result.size(), fit.source.vertexCount());
    EXPECT_EQ(updates, 3 * 7);
    double before = 0, after = 0;
    int inner = 0;
    for (int i = 0; i < result.size(); ++i) {
        const QVector3D& rest = fit.source.vertices()[i];
        // Away from the open border, where closest points pull inwards.
        if (rest.x() < 1.5f || rest.x() > 8.5f || rest.y() < 1.5f || rest.y() > 8.5f)
            continue;
        ++inner;
        before += std::fabs(double(bump(rest.x(), rest.y())));
        after += std::fabs(double(result[i].z() - bump(result[i].x(), result[i].y())));
    }
    ASSERT_GT(inner, 50);
    EXPECT_LT(after / inner, 0.03);
    EXPECT_LT(after, 0.05 * before);
}

TEST(WelkingWorker, ALevelWhoseShapeStopsMovingEndsEarly)
{
    // A basemesh that already lies on its target: its rounds move it by a
    // hair, so each level ends after two or three rounds instead of seven
    // (never after one), and the result is the one that running every round
    // gives. (The smooth deformation above keeps moving and runs all 3 x 7
    // rounds.)
    Fit fit;
    fit.source = grid(14, true);
    const auto run = [&](float convergedMove, int& rounds) {
        AcceleratedParameters parameters;
        parameters.convergedMove = convergedMove;
        auto worker = fit.worker(parameters);
        QVector<QVector3D> result;
        QObject::connect(worker.get(), &WelkingWorker::finished, [&](QVector<QVector3D> v) { result = v; });
        worker->start();
        rounds = worker->course().rounds;
        return result;
    };
    int early = 0, all = 0;
    const QVector<QVector3D> stopped = run(AcceleratedParameters().convergedMove, early);
    const QVector<QVector3D> full = run(0.0f, all);
    EXPECT_EQ(all, 3 * 7);
    EXPECT_GE(early, 3 * 2);
    EXPECT_LE(early, 3 * 3);
    ASSERT_EQ(stopped.size(), full.size());
    double apart = 0.0;
    for (int i = 0; i < full.size(); ++i)
        apart = std::max(apart, double((stopped[i] - full[i]).length()));
    EXPECT_LT(apart, 0.02); // of a sheet 10 units across
}

TEST(WelkingWorker, InterruptionStillDeliversTheShapeReached)
{
    const Fit fit;
    auto worker = fit.worker();
    QVector<QVector3D> result, firstShape;
    int updates = 0;
    QObject::connect(worker.get(), &WelkingWorker::updated, [&](QVector<QVector3D> v, QVector<QVector3D>) {
        ++updates;
        firstShape = v;
        worker->terminate();
    });
    QObject::connect(worker.get(), &WelkingWorker::finished, [&](QVector<QVector3D> v) { result = v; });
    worker->start();
    EXPECT_EQ(updates, 1);
    ASSERT_EQ(result.size(), fit.source.vertexCount());
    // The shape of the one finished solve, in the basemesh's own units.
    EXPECT_EQ(result, firstShape);
    EXPECT_NE(result, fit.source.vertices());
}

TEST(WelkingWorker, ExcludedVerticesAreNeverMatched)
{
    const Fit fit;
    QVector<quint8> excluded(fit.source.vertexCount(), 0);
    for (int i = 0; i < excluded.size(); i += 2)
        excluded[i] = 1;
    auto worker = fit.worker(AcceleratedParameters(), excluded);
    std::vector<long long> sources;
    std::vector<EmbeddedGraphDeformer::Vec3> targets, normals;
    worker->findPairs(sources, targets, normals);
    ASSERT_FALSE(sources.empty());
    for (long long s : sources)
        ASSERT_EQ(s % 2, 1);
    QVector<quint8> all(fit.source.vertexCount(), 1);
    fit.worker(AcceleratedParameters(), all)->findPairs(sources, targets, normals);
    EXPECT_TRUE(sources.empty());
}

TEST(WelkingWorker, LandmarksPullTheirPointsToTheTarget)
{
    const Fit fit;
    // A point in the middle of the basemesh is tied to a point of the
    // target well away from where closest points would take it.
    const Welk::WPointOnTriangle sourcePoint{2 * (6 * 13 + 6), 0.3f, 0.3f};
    const QVector3D start = sourcePoint.position(fit.source.vertices(), fit.source.triangleVertexIndices());
    int best = 0;
    const QVector3D wanted = start + QVector3D(1.5f, 1.0f, bump(start.x() + 1.5f, start.y() + 1.0f));
    for (int t = 0; t < fit.target.triangleCount(); ++t) {
        const QVector3D c = Welk::WPointOnTriangle{t, 0.34f, 0.33f}.position(fit.target.vertices(),
                                                                             fit.target.triangleVertexIndices());
        const QVector3D b = Welk::WPointOnTriangle{best, 0.34f, 0.33f}.position(fit.target.vertices(),
                                                                                fit.target.triangleVertexIndices());
        if ((c - wanted).length() < (b - wanted).length())
            best = t;
    }
    const Welk::WPointOnTriangle targetPoint{best, 0.34f, 0.33f};
    const QVector3D goal = targetPoint.position(fit.target.vertices(), fit.target.triangleVertexIndices());

    QVector<QVector3D> free, tied;
    auto plain = fit.worker();
    QObject::connect(plain.get(), &WelkingWorker::finished, [&](QVector<QVector3D> v) { free = v; });
    plain->start();
    auto pinned = fit.worker(AcceleratedParameters(), {}, {sourcePoint}, {targetPoint});
    QObject::connect(pinned.get(), &WelkingWorker::finished, [&](QVector<QVector3D> v) { tied = v; });
    pinned->start();
    const float freeGap = (sourcePoint.position(free, fit.source.triangleVertexIndices()) - goal).length();
    const float tiedGap = (sourcePoint.position(tied, fit.source.triangleVertexIndices()) - goal).length();
    EXPECT_GT(freeGap, 1.0f);
    EXPECT_LT(tiedGap, 0.3f * freeGap);
}

TEST(WelkingWorker, RunsOnItsOwnThread)
{
    const Fit fit;
    AcceleratedParameters quick;
    quick.subdivisions = 1;
    quick.icpIterations = 2;
    auto worker = fit.worker(quick);
    QThread thread;
    worker->moveToThread(&thread);
    QVector<QVector3D> result;
    QThread* ranOn = nullptr;
    QObject::connect(&thread, &QThread::started, worker.get(), &WelkingWorker::start);
    QObject::connect(worker.get(), &WelkingWorker::finished, worker.get(), [&](QVector<QVector3D> v) {
        result = v;
        ranOn = QThread::currentThread();
        thread.quit();
    }, Qt::DirectConnection);
    thread.start();
    ASSERT_TRUE(thread.wait(60000));
    EXPECT_EQ(ranOn, &thread);
    EXPECT_EQ(result.size(), fit.source.vertexCount());
    worker->moveToThread(QThread::currentThread());
}

namespace {

/// The fast deformer, except that one of its solves throws the shape far
/// off, as a fit that diverges does.
class DivergingDeformer : public EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer
{
public:
    explicit DivergingDeformer(int divergeAt) : m_divergeAt(divergeAt) {}
    void solve(const std::vector<long long>& sources, const std::vector<EmbeddedGraphDeformer::Vec3>& targets,
               const std::vector<EmbeddedGraphDeformer::Vec3>& normals, std::vector<EmbeddedGraphDeformer::Vec3>& vertices,
               std::vector<EmbeddedGraphDeformer::Vec3>& nodes, Eigen::VectorXf& state,
               const EmbeddedGraphDeformer::SolveBudget& budget) override
    {
        Deformer::solve(sources, targets, normals, vertices, nodes, state, budget);
        if (++m_solves == m_divergeAt)
            for (auto& v : vertices)
                v = 30.0f * v + EmbeddedGraphDeformer::Vec3(0, 0, 500.0f);
    }

private:
    int m_divergeAt;
    int m_solves = 0;
};

QVector<QVector3D> runWith(WelkingWorker& worker, EmbeddedGraphDeformer::Abstract::Deformer& deformer)
{
    QVector<QVector3D> result;
    QObject::connect(&worker, &WelkingWorker::finished, [&](QVector<QVector3D> v) { result = v; });
    worker.run(&deformer);
    return result;
}

double meanBumpError(const QVector<QVector3D>& shape)
{
    double sum = 0;
    for (const QVector3D& p : shape)
        sum += std::fabs(double(p.z() - bump(p.x(), p.y())));
    return sum / std::max(1, shape.size());
}

} // namespace

TEST(WelkingWorker, ARoundThatThrowsTheShapeOffIsUndoneAndAnUnguardedOneReported)
{
    const Fit fit;
    AcceleratedParameters parameters;
    parameters.subdivisions = 2;
    parameters.icpIterations = 3;
    parameters.repairFolds = false;

    // A sound fit: nothing undone, and it ends nearer than it began.
    auto sound = fit.worker(parameters);
    EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer plain;
    const QVector<QVector3D> good = runWith(*sound, plain);
    EXPECT_EQ(sound->course().rejectedRounds, 0);
    EXPECT_FALSE(sound->course().diverged());
    EXPECT_LT(sound->course().endDistance, 0.5 * sound->course().startDistance);

    // The last solve of a level throws the shape off: the level falls back
    // to its best shape, and the fit ends as well as the sound one.
    for (int divergeAt : {3, 6}) {
        auto guarded = fit.worker(parameters);
        DivergingDeformer diverging(divergeAt);
        const QVector<QVector3D> kept = runWith(*guarded, diverging);
        ASSERT_EQ(kept.size(), fit.source.vertexCount());
        EXPECT_EQ(guarded->course().rejectedRounds, 1) << "diverging at solve " << divergeAt;
        EXPECT_FALSE(guarded->course().diverged());
        EXPECT_EQ(guarded->course().flownOffVertices, 0);
        EXPECT_LT(meanBumpError(kept), 2 * meanBumpError(good) + 0.01);
    }

    // Without the guard the thrown shape is the result, and the course says so.
    parameters.rejectWorseRounds = false;
    auto unguarded = fit.worker(parameters);
    DivergingDeformer diverging(6);
    const QVector<QVector3D> thrown = runWith(*unguarded, diverging);
    EXPECT_EQ(unguarded->course().rejectedRounds, 0);
    EXPECT_TRUE(unguarded->course().diverged());
    EXPECT_EQ(unguarded->course().flownOffVertices, fit.source.vertexCount());
    EXPECT_GT(unguarded->course().endDistance, unguarded->course().startDistance);
    EXPECT_GT(meanBumpError(thrown), 100 * meanBumpError(good));
}

TEST(WelkingWorker, CholeskyOnCoarseLevelsFitsAsTheBlockPreconditionerDoes)
{
    // A pose-free pair with a bend: the coarse levels solve through the
    // Cholesky preconditioner (up to 1000 nodes), or through the node
    // blocks everywhere (0). Both must land on the target alike, and the
    // Cholesky must neither add fold-overs nor take more steps.
    const Fit fit;
    QVector<QVector3D> results[2];
    long long products[2] = {0, 0};
    for (int run = 0; run < 2; ++run) {
        AcceleratedParameters parameters;
        parameters.repairFolds = false; // judge the solves, not the repair
        parameters.coveragePairs = false; // the Cholesky's pattern has vertex pairs only
        // Border pairs turn their rows towards the gap every round, and a
        // factor renewed on a count of iterations then saves no products
        // (197 against 177 here): the two are not meant together.
        parameters.borderPairs = false;
        parameters.directSolveNodes = run == 0 ? 0 : 1000;
        // Both preconditioners solve to the same tolerance.
        parameters.coarseSolveTolerance = parameters.finestSolveTolerance = 0.0005f;
        auto worker = fit.worker(parameters);
        EmbeddedGraphDeformer::IterativeSolverDeformer::Deformer deformer;
        results[run] = runWith(*worker, deformer);
        ASSERT_EQ(results[run].size(), fit.source.vertexCount());
        ASSERT_NE(deformer.problem(), nullptr);
        EXPECT_EQ(deformer.problem()->directSolve(), run == 1); // the last level has few nodes here
        products[run] = deformer.problem()->counters().products;
        EXPECT_LT(meanBumpError(results[run]), 0.03) << run;
        EXPECT_LE(foldedTriangleCount(results[run], fit.source.triangleVertexIndices()),
                  foldedTriangleCount(fit.source.vertices(), fit.source.triangleVertexIndices()))
            << run;
    }
    double largest = 0;
    for (int i = 0; i < results[0].size(); ++i)
        largest = std::max(largest, double((results[0][i] - results[1][i]).length()));
    EXPECT_LT(largest, 0.05); // on a 10 x 10 grid
    // One product per solve against tens: the point of the factor.
    EXPECT_LT(2 * products[1], products[0]);
}

namespace {

/// A closed latitude-longitude sphere; with `spike`, the region around +x
/// pushed out into a horn 1.5 radii long; with `flatten` as well, the horn
/// pressed into a thin fin (its two sides `flatten` of the horn's width
/// apart).
GeometryStack2::GeomStackTriangulated sphere(int rings, int segments, bool spike, float flatten = 1.0f)
{
    QVector<QVector3D> vertices;
    QVector<QVector<int>> polygons;
    const float pi = 3.14159265f;
    vertices.append(QVector3D(0, 0, 1));
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const float theta = pi * float(r) / float(rings), phi = 2 * pi * float(s) / float(segments);
            QVector3D p(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta));
            if (spike) {
                const float horn = std::pow(std::max(0.0f, p.x()), 12.0f);
                p *= 1.0f + 1.5f * horn;
                p.setZ(p.z() * (1.0f - (1.0f - flatten) * std::min(1.0f, 4.0f * horn)));
            }
            vertices.append(p);
        }
    vertices.append(QVector3D(0, 0, -1));
    const auto at = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    for (int s = 0; s < segments; ++s) {
        polygons.append({0, at(1, s), at(1, s + 1)});
        for (int r = 1; r + 1 < rings; ++r)
            polygons.append({at(r, s), at(r + 1, s), at(r + 1, s + 1), at(r, s + 1)});
        polygons.append({at(rings - 1, s), int(vertices.size()) - 1, at(rings - 1, s + 1)});
    }
    return GeometryStack2::GeomStackTriangulated(TestSupport::polygonSoup(vertices, polygons));
}

/// Each target vertex's squared distance to the nearest result vertex.
std::vector<float> squaredCoverage(const QVector<QVector3D>& target, const QVector<QVector3D>& result)
{
    std::vector<float> squared;
    for (const QVector3D& t : target) {
        float nearest = std::numeric_limits<float>::max();
        for (const QVector3D& v : result)
            nearest = std::min(nearest, (t - v).lengthSquared());
        squared.push_back(nearest);
    }
    return squared;
}

/// The largest distance from a target vertex to the nearest result vertex.
float worstCoverage(const QVector<QVector3D>& target, const QVector<QVector3D>& result)
{
    const std::vector<float> squared = squaredCoverage(target, result);
    return squared.empty() ? 0.0f : std::sqrt(*std::max_element(squared.begin(), squared.end()));
}

/// Their root mean square.
float rmsCoverage(const QVector<QVector3D>& target, const QVector<QVector3D>& result)
{
    const std::vector<float> squared = squaredCoverage(target, result);
    double sum = 0;
    for (float d : squared)
        sum += double(d);
    return float(std::sqrt(sum / double(std::max<size_t>(1, squared.size()))));
}

/// The fast fit of `source` onto `target`, without point pairs.
QVector<QVector3D> fastFit(const GeometryStack2::GeomStackTriangulated& source,
                           const GeometryStack2::GeomStackTriangulated& target, const AcceleratedParameters& parameters)
{
    std::vector<Vertex> vertices;
    for (const QVector3D& v : source.vertices())
        vertices.emplace_back(v.x(), v.y(), v.z());
    const std::vector<long long> triangles(source.triangleVertexIndices().begin(), source.triangleVertexIndices().end());
    const auto levels = buildEmbeddedGraph(GraphSamplingParameters(), vertices, triangles);
    FastWelkingWorker worker(source.vertices(), source.triangleVertexIndices(), QMatrix4x4(), target.vertices(),
                             target.normals(), QMatrix4x4(), target.triangleVertexIndices(), {}, {}, {}, levels,
                             parameters, 100.0f, nullptr);
    QVector<QVector3D> result;
    QObject::connect(&worker, &WelkingWorker::finished, [&](QVector<QVector3D> v) { result = v; });
    worker.start();
    EXPECT_EQ(result.size(), source.vertexCount());
    return result;
}

/// A 24 x 48 sphere fitted to `target` with the fast fit.
QVector<QVector3D> fitSphereTo(const GeometryStack2::GeomStackTriangulated& target, const AcceleratedParameters& parameters)
{
    return fastFit(sphere(24, 48, false), target, parameters);
}

/// How far along +x a shape reaches.
float reachAlongX(const QVector<QVector3D>& shape)
{
    float reach = 0;
    for (const QVector3D& v : shape)
        reach = std::max(reach, v.x());
    return reach;
}

} // namespace

TEST(WelkingWorker, CoveragePairsDrawTheBasemeshIntoPartsOfTheTargetItNeverCameNear)
{
    // Closest points from the sphere alone climb the horn only as far as
    // smoothness lets the nearest target vertices pull; target vertices
    // on the horn looking for the basemesh reach its tip.
    const GeometryStack2::GeomStackTriangulated target = sphere(48, 96, true);
    AcceleratedParameters parameters;
    parameters.coveragePairs = false;
    const QVector<QVector3D> without = fitSphereTo(target, parameters);
    parameters.coveragePairs = true;
    const QVector<QVector3D> with = fitSphereTo(target, parameters);
    const float worstWithout = worstCoverage(target.vertices(), without);
    const float worstWith = worstCoverage(target.vertices(), with);
    EXPECT_LT(worstWith, 0.7f * worstWithout) << worstWith << " against " << worstWithout;
    // And the horn's tip, 2.5 from the centre, is reached.
    EXPECT_GT(reachAlongX(with), 2.2f);
}

TEST(WelkingWorker, CoveragePairsReachTheTipOfAThinFin)
{
    // A fin's two sides lie close together: a target vertex on one side
    // often has its nearest basemesh vertex on the other, facing away. The
    // pair then goes to the nearest vertex facing its way, and the fin is
    // filled to its tip, 2.5 from the centre; pairs only to the nearest
    // vertex stop at about 1.8 here.
    EXPECT_GT(reachAlongX(fitSphereTo(sphere(48, 96, true, 0.08f), AcceleratedParameters())), 2.1f);
}

TEST(WelkingWorker, CoveragePairsOnTheCoarsestLevelCarryAnArmToWhereTheTargetRaisesIt)
{
    // Two scanned bodies: in the basemesh the arms hang by the sides, in
    // the target they are spread. Every vertex of a hanging arm finds its
    // nearest target vertex on the target's flank, so vertex pairs alone
    // press the arm against the body, and the finest level's coverage
    // pairs come too late to lift it: the target's arm stayed about 0.1
    // from the result (4 % of the body's diagonal). Here the target's
    // vertices lie 0.046 from the result's, RMS, and 0.012 with the
    // coarsest level's pairs.
    const QString basePath = TestSupport::sharedDataFile(QStringLiteral("bcpd-bodies/01.obj"));
    const QString targetPath = TestSupport::sharedDataFile(QStringLiteral("bcpd-bodies/09.obj"));
    ZWELK_REQUIRE_DATA(basePath);
    ZWELK_REQUIRE_DATA(targetPath);
    QString error;
    const GeometryStack2::GeomStackTriangulated source(basePath, error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    const GeometryStack2::GeomStackTriangulated target(targetPath, error);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    AcceleratedParameters parameters;
    parameters.coverageCoarsestLevel = false;
    const QVector<QVector3D> finestOnly = fastFit(source, target, parameters);
    parameters.coverageCoarsestLevel = true;
    const QVector<QVector3D> both = fastFit(source, target, parameters);
    const float without = rmsCoverage(target.vertices(), finestOnly);
    const float with = rmsCoverage(target.vertices(), both);
    EXPECT_LT(with, 0.5f * without) << with << " against " << without;
    // Lifted, not torn: no fold added on the way.
    EXPECT_LE(foldedTriangleCount(both, source.triangleVertexIndices()),
              foldedTriangleCount(source.vertices(), source.triangleVertexIndices()));
}

TEST(WelkingWorker, SurfacePairsPutTheVerticesOnACoarseTargetsFacets)
{
    // A fine sphere fitted to a coarse, faceted one: a vertex held to the
    // tangent plane of its nearest target vertex ends off the facets, one
    // held to the plane through its nearest point of the surface on them.
    const GeometryStack2::GeomStackTriangulated target = sphere(6, 12, false);
    const auto meanDistance = [&](const QVector<QVector3D>& shape) {
        const QVector<int>& t = target.triangleVertexIndices();
        const QVector<QVector3D>& p = target.vertices();
        double sum = 0;
        for (const QVector3D& v : shape) {
            float best = std::numeric_limits<float>::max();
            for (int i = 0; i + 2 < t.size(); i += 3) {
                float a = 0, b = 0;
                const QVector3D q = ClosestTriangleSearch::closestPointOnTriangle(p[t[i]], p[t[i + 1]], p[t[i + 2]], v, a, b);
                best = std::min(best, (q - v).length());
            }
            sum += double(best);
        }
        return sum / std::max(1, shape.size());
    };
    AcceleratedParameters parameters;
    const double onSurface = meanDistance(fitSphereTo(target, parameters));
    parameters.surfacePairs = false;
    const double onVertexPlanes = meanDistance(fitSphereTo(target, parameters));
    EXPECT_LT(onSurface, 0.1 * onVertexPlanes);
}

TEST(WelkingWorker, BorderPairsCloseTheGapBetweenTwoOpenBorders)
{
    // A flat patch that runs one unit past the target patch's edges at
    // x = 10 and y = 10: the plane rows hold it in the plane, and only the
    // weak point rows pulled its edges in, while a border vertex matched
    // with a border vertex pulls straight at it.
    const auto patch = [](int n, float size) {
        return GeometryStack2::GeomStackTriangulated(
            TestSupport::heightField(n, size, [](float, float) { return 0.0f; }));
    };
    const GeometryStack2::GeomStackTriangulated source = patch(23, 11.0f), target = patch(21, 10.0f);
    AcceleratedParameters parameters;
    const float with = reachAlongX(fastFit(source, target, parameters));
    parameters.borderPairs = false;
    const float without = reachAlongX(fastFit(source, target, parameters));
    EXPECT_LT(with, 10.1f);
    EXPECT_GT(without, 10.2f);
}
