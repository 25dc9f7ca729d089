#include "ClassicMeshes.h"

#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/WelkingWorker.h"
#include "fitting/classic/ClassicWelking.h"
#include "fitting/classic/FindClosestPointsFunctorWithFilteringHeuristics.h"
#include "fitting/classic/WelkingWorker.h"

#include "geometry/ProgressInterface.h"
#include "search/KDTree.h"

#include <gtest/gtest.h>

#include <QJsonObject>
#include <QVector2D>
#include <QTemporaryDir>
#include <QThread>

#include <cmath>
#include <memory>

using namespace Welk;

namespace {

float bump(float x, float y) { return 1.2f * std::sin(0.35f * x) * std::cos(0.25f * y); }

ClassicWelkingInput pair(int baseN = 14, int targetN = 50)
{
    const ClassicMeshes::Mesh base = ClassicMeshes::grid(baseN, 10.0f);
    const ClassicMeshes::Mesh target = ClassicMeshes::grid(targetN, 10.0f, bump);
    ClassicWelkingInput input;
    input.vertices = base.vertices;
    input.triangles = base.triangles;
    input.targetVertices = target.vertices;
    input.targetTriangles = target.triangles;
    input.parameters.nSubdivisions = 2;
    input.parameters.nICPIterations = 3;
    input.parameters.samplingMinMultiplier = 1.5f;
    input.parameters.samplingMaxMultiplier = 6.0f;
    return input;
}

/// Mean distance from the grid vertices to the bump surface, away from
/// the borders where closest points pull inwards.
double interiorError(const QVector<QVector3D>& vertices)
{
    double sum = 0;
    int count = 0;
    for (const QVector3D& v : vertices)
        if (v.x() > 1.5f && v.x() < 8.5f && v.y() > 1.5f && v.y() < 8.5f) {
            sum += std::abs(double(v.z() - bump(v.x(), v.y())));
            ++count;
        }
    return sum / std::max(1, count);
}

class CancelAfter : public ProgressInterface
{
public:
    explicit CancelAfter(int values) : m_values(values) {}
    void start(const QString& label, long long) override { labels.append(label); }
    void setValue(long long, const QString& label) override
    {
        ++m_seen;
        if (!label.isEmpty() && !labels.contains(label))
            labels.append(label);
    }
    void end() override {}
    bool isCancelled() const override { return m_values >= 0 && m_seen >= m_values; }
    QStringList labels;

private:
    int m_values;
    int m_seen = 0;
};

} // namespace

TEST(WelkingParameters, JsonKeepsEveryFieldAndMissingKeysReadAsZero)
{
    WelkingParameters p;
    p.nNodesToUse = 6;
    p.maxDp = 0.03f;
    p.globalControlPointsWeightInitial = 25.0f;
    const QJsonObject json = p.toJson();
    EXPECT_EQ(json.size(), 16);
    EXPECT_EQ(json.value(QStringLiteral("nEndLevMarIters")).toInt(), 100);
    EXPECT_EQ(WelkingParameters::fromJson(json), p);

    QJsonObject partial = json;
    partial.remove(QStringLiteral("nSubdivisions"));
    partial.remove(QStringLiteral("samplingMinMultiplier"));
    const WelkingParameters read = WelkingParameters::fromJson(partial);
    EXPECT_EQ(read.nSubdivisions, 0);
    EXPECT_EQ(read.samplingMinMultiplier, 0.0f);
    EXPECT_NE(read, p);
    EXPECT_TRUE(read.validate().contains(QStringLiteral("nSubdivisions")));

    WelkingParameters zeroRadius;
    zeroRadius.samplingMinMultiplier = 0.0f;
    EXPECT_TRUE(zeroRadius.validate().contains(QStringLiteral("samplingMinMultiplier")));
    EXPECT_TRUE(WelkingParameters().validate().isEmpty());

    QTemporaryDir dir;
    QString error;
    const QString path = dir.filePath(QStringLiteral("p.json"));
    ASSERT_TRUE(WelkingParameters::save(path, p, error)) << error.toStdString();
    WelkingParameters loaded;
    ASSERT_TRUE(WelkingParameters::load(path, loaded, error));
    EXPECT_EQ(loaded, p);
    EXPECT_FALSE(WelkingParameters::load(dir.filePath(QStringLiteral("missing.json")), loaded, error));
    EXPECT_FALSE(error.isEmpty());
}

TEST(FindClosestPoints, MaskAndNormalsFilter)
{
    // Base: a flat grid facing +z (counter-clockwise triangles).
    const ClassicMeshes::Mesh base = ClassicMeshes::grid(3, 2.0f);
    const QVector<QVector3D> target = {{0, 0, 0.1f}, {2, 2, 0.1f}};
    const std::unique_ptr<KDTree::NodeBase> tree(KDTree::build(target, 128));
    const float c = 0.6f;
    // The first target normal lies exactly at the threshold, the second faces away.
    const QVector<QVector3D> normals = {QVector3D(std::sqrt(1 - c * c), 0, c), QVector3D(0, 0, -1)};
    QVector<bool> mask(base.vertices.size(), false);
    mask[1] = true;
    Welking::FindClosestPointsFunctorWithFilteringHeuristics match(*tree, normals, base.triangles, mask, c);
    const QVector<int> m = match.findClosestPoints(base.vertices, target);
    EXPECT_EQ(m[0], 0);
    EXPECT_EQ(m[1], -1); // masked
    EXPECT_EQ(m[3], 0);  // two vertices may share a target
    EXPECT_EQ(m[8], -1); // opposite normals
    const QVector<QVector3D> n =
        Welking::FindClosestPointsFunctorWithFilteringHeuristics::vertexNormals(base.vertices, base.triangles);
    for (const QVector3D& v : n)
        EXPECT_NEAR(v.z(), 1.0f, 1e-6f);
}

TEST(ClassicWelking, IdentityStaysIdentity)
{
    ClassicWelkingInput input = pair(10, 10);
    input.targetVertices = input.vertices;
    input.targetTriangles = input.triangles;
    const ClassicWelkingResult result = runClassicWelking(input, nullptr);
    ASSERT_TRUE(result.error.isEmpty()) << result.error.toStdString();
    ASSERT_EQ(result.vertices.size(), input.vertices.size());
    for (int v = 0; v < input.vertices.size(); ++v)
        EXPECT_LT(result.vertices[v].distanceToPoint(input.vertices[v]), 1e-4f);
    EXPECT_EQ(result.levelNodeCounts.size(), 2);
    EXPECT_LT(result.levelNodeCounts[0], result.levelNodeCounts[1]);
}

TEST(ClassicWelking, RecoversASmoothDeformationAndAgreesWithTheFastFit)
{
    ClassicWelkingInput input = pair();
    // Landmarks at the four corners hold the grid from sliding along the
    // surface, where neither fit has anything to go by.
    const int n = 14, m = 50;
    const int baseCorners[4] = {0, n - 1, n * (n - 1), n * n - 1};
    const int targetCorners[4] = {0, m - 1, m * (m - 1), m * m - 1};
    for (int c = 0; c < 4; ++c) {
        const int bt = input.triangles.indexOf(baseCorners[c]) / 3;
        const int tt = input.targetTriangles.indexOf(targetCorners[c]) / 3;
        auto point = [](const QVector<int>& triangles, int t, int vertex) {
            const int corner = triangles.mid(3 * t, 3).indexOf(vertex);
            return WPointOnTriangle{t, corner == 0 ? 1.0f : 0.0f, corner == 1 ? 1.0f : 0.0f};
        };
        input.basePoints.append(point(input.triangles, bt, baseCorners[c]));
        input.targetPoints.append(point(input.targetTriangles, tt, targetCorners[c]));
    }
    CancelAfter progress(-1);
    const ClassicWelkingResult classic = runClassicWelking(input, &progress);
    ASSERT_TRUE(classic.error.isEmpty()) << classic.error.toStdString();
    EXPECT_FALSE(classic.interrupted);
    EXPECT_TRUE(progress.labels.contains(QStringLiteral("Building nodes")));
    EXPECT_TRUE(progress.labels.contains(QStringLiteral("Welking (subdivision 2 of 2)")));
    const double before = interiorError(input.vertices);
    const double after = interiorError(classic.vertices);
    EXPECT_LT(after, 0.05 * before) << before << " -> " << after;

    // The fast fit on the same pair with the same landmarks lands as near
    // the surface, and in about the same places.
    using namespace WelkingAcceleratedVersion;
    std::vector<Vertex> vertices;
    for (const QVector3D& v : input.vertices)
        vertices.emplace_back(v.x(), v.y(), v.z());
    GraphSamplingParameters sampling;
    sampling.levels = 3;
    sampling.samplingFinal = 8.0f;
    sampling.samplingInitial = 40.0f;
    auto levels = buildEmbeddedGraph(sampling, vertices,
                                     std::vector<long long>(input.triangles.begin(), input.triangles.end()));
    const QVector<QVector3D> targetNormals = Welking::FindClosestPointsFunctorWithFilteringHeuristics::vertexNormals(
        input.targetVertices, input.targetTriangles);
    FastWelkingWorker fast(input.vertices, input.triangles, QMatrix4x4(), input.targetVertices, targetNormals,
                           QMatrix4x4(), input.targetTriangles, input.basePoints, input.targetPoints, {},
                           std::move(levels), AcceleratedParameters(), 100.0f, nullptr);
    QVector<QVector3D> fastResult;
    QObject::connect(&fast, &FastWelkingWorker::finished, [&](QVector<QVector3D> v) { fastResult = v; });
    fast.start();
    ASSERT_EQ(fastResult.size(), classic.vertices.size());
    EXPECT_NEAR(interiorError(fastResult), after, 0.01);
    double gap = 0;
    for (int v = 0; v < fastResult.size(); ++v)
        gap += double(fastResult[v].distanceToPoint(classic.vertices[v]));
    EXPECT_LT(gap / fastResult.size(), 0.1);
}

TEST(ClassicWelking, ControlPointsPullAndSettingsThatCannotRunSayWhy)
{
    ClassicWelkingInput input = pair(10, 30);
    // Pin the basemesh corner triangle's first corner (vertex 0) to a
    // point lifted off the target.
    input.basePoints = {WPointOnTriangle{0, 1.0f, 0.0f}};
    input.targetPoints = {WPointOnTriangle{0, 1.0f, 0.0f}};
    input.targetVertices[0] += QVector3D(0, 0, 1.0f);
    input.parameters.globalControlPointsWeightFinal = 50.0f;
    input.parameters.globalControlPointsWeightInitial = 50.0f;
    const ClassicWelkingResult pulled = runClassicWelking(input, nullptr);
    ASSERT_TRUE(pulled.error.isEmpty());
    EXPECT_LT(pulled.vertices[0].distanceToPoint(input.targetVertices[0]), 0.1f);

    input.parameters.nSubdivisions = 0;
    const ClassicWelkingResult none = runClassicWelking(input, nullptr);
    EXPECT_TRUE(none.error.contains(QStringLiteral("graph level")));
    EXPECT_EQ(none.vertices, input.vertices);
}

TEST(ClassicWelking, InterruptionKeepsTheShapeReached)
{
    const ClassicWelkingInput input = pair(10, 30);
    CancelAfter progress(3);
    const ClassicWelkingResult result = runClassicWelking(input, &progress);
    EXPECT_TRUE(result.interrupted);
    EXPECT_TRUE(result.error.isEmpty());
    EXPECT_EQ(result.vertices.size(), input.vertices.size());
}

TEST(ClassicWelking, WorkerRunsOnItsOwnThread)
{
    const ClassicWelkingInput input = pair(10, 30);
    WelkingWorker worker(input.vertices, input.triangles, QMatrix4x4(), input.targetVertices, {},
                         input.targetTriangles, QMatrix4x4(), {}, {}, {}, input.parameters, 100.0f, nullptr, true);
    QThread thread;
    worker.moveToThread(&thread);
    QVector<QVector3D> result;
    int updates = 0;
    Qt::HANDLE fitThread = nullptr;
    QObject::connect(&worker, &WelkingWorker::updated, &worker, [&](QVector<QVector3D> v, QVector<QVector3D>) {
        ++updates;
        EXPECT_EQ(v.size(), input.vertices.size());
    }, Qt::DirectConnection);
    QObject::connect(&worker, &WelkingWorker::finished, &worker, [&](QVector<QVector3D> v) {
        result = v;
        fitThread = QThread::currentThreadId();
        thread.quit();
    }, Qt::DirectConnection);
    QObject::connect(&thread, &QThread::started, &worker, &WelkingWorker::start);
    thread.start();
    ASSERT_TRUE(thread.wait(120000));
    EXPECT_EQ(result.size(), input.vertices.size());
    EXPECT_NE(fitThread, QThread::currentThreadId());
    // Warm start and every matching round of both levels.
    EXPECT_EQ(updates, 2 * (1 + input.parameters.nICPIterations));
    EXPECT_LT(interiorError(result), 0.2 * interiorError(input.vertices));
}
