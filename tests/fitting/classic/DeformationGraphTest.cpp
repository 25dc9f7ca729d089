#include "ClassicMeshes.h"

#include "fitting/classic/DeformationGraphRoutine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <vector>

using namespace DeformationGraphRoutine;

namespace {

struct Graph
{
    ClassicMeshes::Mesh mesh;
    NodeLevel level;
};

Graph buildLevel(const ClassicMeshes::Mesh& mesh, float radius, int k = 8, bool dijkstra = false)
{
    Graph g{mesh, {}};
    auto connectivity = std::make_shared<MeshConnectivity>(mesh.vertices.size(), mesh.triangles);
    std::unique_ptr<NodesSamplerAndInfluenceSearcher> sampler;
    if (dijkstra)
        sampler = std::make_unique<DijkstraNodesSamplerAndInfluenceSearcherOld>();
    else
        sampler = std::make_unique<FastMarching2NodesSamplerAndInfluenceSearcher>();
    DeformationGraphUniversalNodesCreator creator(k, mesh.vertices, mesh.triangles, connectivity, std::move(sampler));
    EXPECT_TRUE(creator.createLevel(radius, g.level.nodeVertices, g.level.nodes, g.level.influences,
                                    g.level.neighbours, nullptr, nullptr));
    return g;
}

bool areNeighbours(const NeighbourLists& n, int a, int b)
{
    const auto begin = n.indices.begin() + n.offsets[size_t(a)], end = n.indices.begin() + n.offsets[size_t(a) + 1];
    return std::binary_search(begin, end, b);
}

std::vector<float> distancesFrom(const NodesSamplerAndInfluenceSearcher& sampler, const ClassicMeshes::Mesh& mesh,
                                 int source)
{
    MeshConnectivity connectivity(mesh.vertices.size(), mesh.triangles);
    auto state = sampler.createState(mesh.vertices, connectivity);
    std::vector<float> d(size_t(mesh.vertices.size()), -1.0f);
    state->begin(source);
    float distance = 0;
    for (int v = state->next(distance); v >= 0; v = state->next(distance))
        d[size_t(v)] = distance;
    return d;
}

} // namespace

TEST(DeformationGraphMarching, FastMarchingFollowsStraightLinesOnAPlane)
{
    // Sheared cells give obtuse corners, which the update must unfold.
    for (const float shear : {0.0f, 0.6f}) {
        const ClassicMeshes::Mesh mesh = ClassicMeshes::grid(21, 10.0f, {}, shear);
        const std::vector<float> fast = distancesFrom(FastMarching2NodesSamplerAndInfluenceSearcher(), mesh, 0);
        const std::vector<float> edges = distancesFrom(DijkstraNodesSamplerAndInfluenceSearcherOld(), mesh, 0);
        double worstFast = 0, worstEdges = 0;
        for (int v = 0; v < mesh.vertices.size(); ++v) {
            const double truth = double(mesh.vertices[v].distanceToPoint(mesh.vertices[0]));
            ASSERT_GE(fast[size_t(v)], 0.0f);
            // Neither marching finds a way shorter than the straight line.
            EXPECT_GE(fast[size_t(v)], truth * 0.999 - 1e-4);
            EXPECT_GE(edges[size_t(v)], truth * 0.999 - 1e-4);
            worstFast = std::max(worstFast, double(fast[size_t(v)]) - truth);
            worstEdges = std::max(worstEdges, double(edges[size_t(v)]) - truth);
        }
        EXPECT_LT(worstFast, 0.06 * 10.0) << "shear " << shear;
        EXPECT_LT(worstFast, worstEdges) << "shear " << shear;
    }
}

TEST(DeformationGraphMarching, CoincidentVerticesGiveFiniteDistances)
{
    ClassicMeshes::Mesh mesh = ClassicMeshes::grid(6, 5.0f);
    mesh.vertices[14] = mesh.vertices[15]; // collapse one edge
    const std::vector<float> d = distancesFrom(FastMarching2NodesSamplerAndInfluenceSearcher(), mesh, 0);
    for (float x : d) {
        EXPECT_TRUE(std::isfinite(x));
        EXPECT_GE(x, 0.0f);
    }
}

TEST(DeformationGraph, SamplingCoversTheSurfaceWithSeparatedNodes)
{
    const ClassicMeshes::Mesh mesh = ClassicMeshes::grid(25, 12.0f, [](float x, float y) {
        return 0.8f * std::sin(0.5f * x) * std::cos(0.4f * y);
    });
    const float radius = 2.0f;
    for (const bool dijkstra : {false, true}) {
        const Graph g = buildLevel(mesh, radius, 8, dijkstra);
        const NodeLevel& level = g.level;
        ASSERT_GT(level.nodes.size(), 4);
        // Node positions are their vertices, and sampling starts at vertex 0.
        EXPECT_EQ(level.nodeVertices.first(), 0);
        for (int n = 0; n < level.nodes.size(); ++n)
            EXPECT_EQ(level.nodes[n], mesh.vertices[level.nodeVertices[n]]);
        // Every vertex lies within the radius of a node; a straight line is
        // never longer than the surface path.
        for (const QVector3D& v : mesh.vertices) {
            float nearest = 1e9f;
            for (const QVector3D& n : level.nodes)
                nearest = std::min(nearest, v.distanceToPoint(n));
            EXPECT_LE(nearest, radius * 1.0001f);
        }
        // No node lies inside another's radius, up to how much longer than
        // the surface path the marching measures: a little for fast
        // marching, up to sqrt(2) for paths along the grid's edges.
        const float separation = dijkstra ? 0.7f : 0.75f;
        for (int a = 0; a < level.nodes.size(); ++a)
            for (int b = a + 1; b < level.nodes.size(); ++b)
                EXPECT_GT(level.nodes[a].distanceToPoint(level.nodes[b]), separation * radius) << dijkstra;
    }
}

TEST(DeformationGraph, WeightsAndNeighbours)
{
    const ClassicMeshes::Mesh mesh = ClassicMeshes::grid(20, 10.0f);
    const Graph g = buildLevel(mesh, 1.5f, 6);
    const InfluenceLists& inf = g.level.influences;
    ASSERT_EQ(inf.vertexCount(), mesh.vertices.size());
    for (int v = 0; v < inf.vertexCount(); ++v) {
        const long long begin = inf.offsets[size_t(v)], end = inf.offsets[size_t(v) + 1];
        ASSERT_EQ(end - begin, 6);
        ASSERT_EQ(inf.weightOffsets[size_t(v) + 1] - inf.weightOffsets[size_t(v)], end - begin);
        double sum = 0;
        float farthest = 1;
        for (long long k = begin; k < end; ++k) {
            EXPECT_GE(inf.weights[size_t(k)], 0.0f);
            sum += double(inf.weights[size_t(k)]);
        }
        // The farthest node is listed last and carries no weight.
        farthest = inf.weights[size_t(end - 1)];
        EXPECT_NEAR(sum, 1.0, 1e-5);
        EXPECT_EQ(farthest, 0.0f);
        // A node vertex is moved mostly by its own node.
        const int own = g.level.nodeVertices.indexOf(v);
        if (own >= 0) {
            EXPECT_EQ(inf.nodeIndices[size_t(begin)], own);
            EXPECT_GT(inf.weights[size_t(begin)], 0.2f);
        }
        // Nodes moving one vertex are neighbours.
        for (long long a = begin; a < end; ++a)
            for (long long b = begin; b < end; ++b)
                if (a != b) {
                    EXPECT_TRUE(areNeighbours(g.level.neighbours, inf.nodeIndices[size_t(a)], inf.nodeIndices[size_t(b)]));
                }
    }
    const NeighbourLists& n = g.level.neighbours;
    for (int a = 0; a < n.nodeCount(); ++a) {
        EXPECT_TRUE(std::is_sorted(n.indices.begin() + n.offsets[size_t(a)], n.indices.begin() + n.offsets[size_t(a) + 1]));
        for (long long k = n.offsets[size_t(a)]; k < n.offsets[size_t(a) + 1]; ++k) {
            EXPECT_NE(n.indices[size_t(k)], a);
            EXPECT_TRUE(areNeighbours(n, n.indices[size_t(k)], a));
        }
    }
}

TEST(DeformationGraph, LargeRadiusGivesOneNodePerComponent)
{
    const ClassicMeshes::Mesh mesh =
        ClassicMeshes::merged(ClassicMeshes::grid(5, 2.0f), ClassicMeshes::translated(ClassicMeshes::grid(4, 1.0f), {10, 0, 0}));
    const Graph g = buildLevel(mesh, 100.0f);
    ASSERT_EQ(g.level.nodes.size(), 2);
    EXPECT_EQ(g.level.nodeVertices[1], 25);
    EXPECT_TRUE(g.level.neighbours.indices.empty());
    for (int v = 0; v < mesh.vertices.size(); ++v) {
        ASSERT_EQ(g.level.influences.offsets[size_t(v) + 1] - g.level.influences.offsets[size_t(v)], 1);
        EXPECT_EQ(g.level.influences.weights[size_t(v)], 1.0f);
        EXPECT_EQ(g.level.influences.nodeIndices[size_t(v)], v < 25 ? 0 : 1);
    }
}

TEST(DeformationGraph, DegenerateInputs)
{
    // Fewer than three indices: no surface, no nodes.
    ClassicMeshes::Mesh line;
    line.vertices = {{0, 0, 0}, {1, 0, 0}};
    line.triangles = {0, 1};
    EXPECT_EQ(buildLevel(line, 1.0f).level.nodes.size(), 0);

    // All candidates equally far: weights stay finite and share the vertex.
    const std::vector<float> equal = NodesSamplerAndInfluenceSearcher::weightsFromDistances({2.0f, 2.0f});
    EXPECT_FLOAT_EQ(equal[0], 0.5f);
    EXPECT_FLOAT_EQ(equal[1], 0.5f);
    const std::vector<float> w = NodesSamplerAndInfluenceSearcher::weightsFromDistances({0.0f, 1.0f, 2.0f});
    // (1 - 0)^3 : (1 - 1/4)^3 : 0
    EXPECT_NEAR(w[0], 1.0 / (1.0 + 0.421875), 1e-6);
    EXPECT_NEAR(w[1], 0.421875 / (1.0 + 0.421875), 1e-6);
    EXPECT_EQ(w[2], 0.0f);
}

namespace {

class RecordingCreator : public NodesCreator
{
public:
    bool createLevel(float radius, QVector<int>&, QVector<QVector3D>& nodes, InfluenceLists&, NeighbourLists&,
                     SamplerNotifier*, SamplerNotifier*) override
    {
        radii.push_back(radius);
        nodes = {QVector3D(radius, 0, 0)};
        return true;
    }
    std::vector<float> radii;
};

class StopAfter : public DeformationGraphCreatorUpdateCallback
{
public:
    explicit StopAfter(int levels) : m_levels(levels) {}
    void begin(int) override {}
    void setValue(int) override {}
    void levelStarted(int) override { ++m_started; }
    void finish() override {}
    bool isInterrupted() override { return m_started >= m_levels; }

private:
    int m_levels;
    int m_started = 0;
};

} // namespace

TEST(DeformationGraph, LevelsRunFromCoarseToFine)
{
    RecordingCreator creator;
    std::vector<NodeLevel> levels;
    ASSERT_TRUE(createLevels(creator, 1.0f, 4.0f, 3, levels, nullptr));
    ASSERT_EQ(creator.radii.size(), 3u);
    EXPECT_FLOAT_EQ(creator.radii[0], 1.0f);
    EXPECT_FLOAT_EQ(creator.radii[2], 3.0f); // radiusMax itself is never used
    EXPECT_FLOAT_EQ(levels[0].nodes[0].x(), 3.0f);
    EXPECT_FLOAT_EQ(levels[2].nodes[0].x(), 1.0f);

    RecordingCreator stopped;
    StopAfter callback(1);
    EXPECT_FALSE(createLevels(stopped, 1.0f, 4.0f, 3, levels, &callback));
    EXPECT_EQ(stopped.radii.size(), 1u);
    EXPECT_EQ(levels[2].nodes.size(), 1);
    EXPECT_TRUE(levels[0].nodes.isEmpty());
    EXPECT_TRUE(levels[1].nodes.isEmpty());
}

namespace {

/// Records the values it is given in call order, and whether two calls ever
/// overlapped.
class RecordingNotifier : public SamplerNotifier
{
public:
    explicit RecordingNotifier(int capacity) : m_values(size_t(capacity), -1) {}
    void setValue(int value) override
    {
        if (m_inside.fetch_add(1) != 0)
            overlapped = true;
        const int slot = m_calls.fetch_add(1);
        if (slot < int(m_values.size()))
            m_values[size_t(slot)] = value;
        // A little work inside the call, so that overlapping calls would meet.
        volatile int spin = 0;
        for (int i = 0; i < 20000; ++i)
            spin = spin + i;
        m_inside.fetch_sub(1);
    }
    bool isInterrupted() override { return false; }
    std::vector<int> values() const
    {
        return {m_values.begin(), m_values.begin() + std::min<size_t>(size_t(m_calls.load()), m_values.size())};
    }
    std::atomic<bool> overlapped{false};

private:
    std::vector<int> m_values;
    std::atomic<int> m_inside{0};
    std::atomic<int> m_calls{0};
};

} // namespace

// The influence search runs on every worker; the notifier behind it is the
// caller's (a progress dialog), so it is asked by one worker at a time and
// its value never goes back.
TEST(DeformationGraph, InfluenceProgressComesFromOneWorkerAtATimeAndOnlyGrows)
{
    const ClassicMeshes::Mesh mesh = ClassicMeshes::grid(80, 10.0f);
    MeshConnectivity connectivity(mesh.vertices.size(), mesh.triangles);
    const int n = mesh.vertices.size();
    RecordingNotifier notifier(n);
    const NodesSamplerAndInfluenceSearcher::Result result =
        FastMarching2NodesSamplerAndInfluenceSearcher().sample(mesh.vertices, connectivity, 1.0f, 6, nullptr, &notifier);
    EXPECT_FALSE(result.interrupted);
    EXPECT_FALSE(notifier.overlapped);
    const std::vector<int> values = notifier.values();
    ASSERT_FALSE(values.empty());
    for (size_t i = 1; i < values.size(); ++i)
        EXPECT_LT(values[i - 1], values[i]) << "call " << i;
    EXPECT_LE(values.back(), n);
}
