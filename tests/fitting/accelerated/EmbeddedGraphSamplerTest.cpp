#include "fitting/accelerated/EmbeddedGraphSampler.h"
#include "fitting/accelerated/NodeOrder.h"

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <queue>
#include <set>

using namespace WelkingAcceleratedVersion;

namespace {

/// A wavy n x n grid of unit spacing, shifted by `offset`, two triangles per cell.
void grid(int n, const Vertex& offset, std::vector<Vertex>& vertices, std::vector<long long>& triangles)
{
    const long long base = (long long)vertices.size();
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            vertices.emplace_back(Vertex(float(x), float(y), 0.3f * std::sin(0.7f * float(x + y))) + offset);
    for (int y = 0; y + 1 < n; ++y)
        for (int x = 0; x + 1 < n; ++x) {
            const long long a = base + y * n + x, b = a + 1, c = a + n, d = c + 1;
            triangles.insert(triangles.end(), {a, b, d, a, d, c});
        }
}

GraphSamplingParameters plain(int levels, float finalRadius, float initialRadius, int type)
{
    GraphSamplingParameters p;
    p.levels = levels;
    p.samplingFinal = finalRadius;
    p.samplingInitial = initialRadius;
    p.normalizeRadius = false;
    p.samplingType = type;
    return p;
}

void expectLevelInvariants(const EmbeddedGraphLevel& level, const std::vector<Vertex>& vertices, float radius, int k)
{
    ASSERT_EQ(level.influenceOffsets.size(), vertices.size() + 1);
    ASSERT_EQ(level.neighbourOffsets.size(), level.nodes.size() + 1);
    for (size_t v = 0; v < vertices.size(); ++v) {
        const long long begin = level.influenceOffsets[v], end = level.influenceOffsets[v + 1];
        ASSERT_GE(end - begin, 1);
        ASSERT_LE(end - begin, k);
        float sum = 0;
        for (long long i = begin; i < end; ++i)
            sum += level.weights[size_t(i)];
        ASSERT_NEAR(sum, 1.0f, 1e-5f) << "vertex " << v;
        // Covered: some node lies within the radius.
        float nearest = 1e30f;
        for (long long n : level.nodes)
            nearest = std::min(nearest, (vertices[size_t(n)] - vertices[v]).norm());
        ASSERT_LE(nearest, radius * 1.0001f) << "vertex " << v;
    }
    std::set<std::pair<long long, long long>> edges;
    for (size_t n = 0; n < level.nodes.size(); ++n)
        for (long long e = level.neighbourOffsets[n]; e < level.neighbourOffsets[n + 1]; ++e) {
            ASSERT_NE(level.neighbours[size_t(e)], (long long)n);
            edges.emplace((long long)n, level.neighbours[size_t(e)]);
        }
    for (const auto& e : edges)
        ASSERT_TRUE(edges.count({e.second, e.first})) << e.first << "-" << e.second;
}

} // namespace

TEST(GraphRadii, StepFromTheFinalRadiusAndNeverReachTheInitialOne)
{
    const std::vector<float> radii = levelRadii(plain(3, 0.1f, 10.0f, 0), {});
    ASSERT_EQ(radii.size(), 3u);
    EXPECT_FLOAT_EQ(radii[0], 0.1f);
    EXPECT_FLOAT_EQ(radii[1], 3.4f);
    EXPECT_FLOAT_EQ(radii[2], 6.7f);

    // Normalised: percentages of the principal-axes box diagonal, which a
    // rotation of the model does not change.
    std::vector<Vertex> box = {{0, 0, 0}, {30, 0, 0}, {0, 40, 0}, {30, 40, 0}};
    GraphSamplingParameters p = plain(1, 10.0f, 20.0f, 0);
    p.normalizeRadius = true;
    EXPECT_NEAR(levelRadii(p, box)[0], 5.0f, 1e-3f);
    const Eigen::Matrix3f turn = Eigen::AngleAxisf(0.7f, Vertex(1, 2, 3).normalized()).toRotationMatrix();
    for (Vertex& v : box)
        v = turn * v;
    EXPECT_NEAR(levelRadii(p, box)[0], 5.0f, 1e-3f);
}

TEST(GraphSamplers, LevelsCoverTheMeshWithNormalisedWeightsAndSymmetricNeighbours)
{
    std::vector<Vertex> vertices;
    std::vector<long long> triangles;
    grid(20, Vertex(0, 0, 0), vertices, triangles);
    for (int type : {0, 1}) {
        SCOPED_TRACE(type);
        const GraphSamplingParameters p = plain(3, 1.5f, 9.0f, type);
        const auto levels = buildEmbeddedGraph(p, vertices, triangles);
        ASSERT_EQ(levels.size(), 3u);
        const std::vector<float> radii = levelRadii(p, vertices);
        for (size_t l = 0; l < levels.size(); ++l)
            expectLevelInvariants(levels[l], vertices, radii[levels.size() - 1 - l], p.nodesPerVertex);
        // Level 0 is the coarsest.
        EXPECT_LT(levels[0].nodes.size(), levels[1].nodes.size());
        EXPECT_LT(levels[1].nodes.size(), levels[2].nodes.size());
        // Covered in vertex order: the first vertex is a node.
        EXPECT_NE(std::find(levels[2].nodes.begin(), levels[2].nodes.end(), 0LL), levels[2].nodes.end());
    }
}

TEST(GraphSamplers, GeodesicNodesStayOnTheirComponent)
{
    std::vector<Vertex> vertices;
    std::vector<long long> triangles;
    grid(6, Vertex(0, 0, 0), vertices, triangles);
    grid(6, Vertex(7, 0, 0), vertices, triangles);
    // A radius that spans either piece: one node per piece along the
    // surface, one node for both in straight lines.
    const auto geodesic = buildEmbeddedGraph(plain(1, 20.0f, 30.0f, 0), vertices, triangles);
    // Nodes come numbered for locality, not in the vertices' order.
    std::vector<long long> nodes = geodesic[0].nodes;
    std::sort(nodes.begin(), nodes.end());
    EXPECT_EQ(nodes, (std::vector<long long>{0, 36}));
    const auto straight = buildEmbeddedGraph(plain(1, 20.0f, 30.0f, 1), vertices, triangles);
    EXPECT_EQ(straight[0].nodes, (std::vector<long long>{0}));
    // A single node: every vertex gets it with the whole weight.
    for (size_t v = 0; v < vertices.size(); ++v) {
        ASSERT_EQ(straight[0].influenceOffsets[v + 1] - straight[0].influenceOffsets[v], 1);
        ASSERT_FLOAT_EQ(straight[0].weights[v], 1.0f);
    }
    EXPECT_TRUE(straight[0].neighbours.empty());
}

TEST(GraphSamplers, RadiusBelowTheEdgeLengthStillGivesAConnectedGraph)
{
    std::vector<Vertex> vertices;
    std::vector<long long> triangles;
    grid(7, Vertex(0, 0, 0), vertices, triangles);
    // Every vertex is its own node; neighbours come from the mesh edges.
    const auto levels = buildEmbeddedGraph(plain(1, 0.1f, 1.0f, 0), vertices, triangles);
    ASSERT_EQ(levels[0].nodes.size(), vertices.size());
    std::vector<char> reached(vertices.size(), 0);
    std::vector<long long> stack{0};
    reached[0] = 1;
    while (!stack.empty()) {
        const long long n = stack.back();
        stack.pop_back();
        for (long long e = levels[0].neighbourOffsets[size_t(n)]; e < levels[0].neighbourOffsets[size_t(n) + 1]; ++e)
            if (!reached[size_t(levels[0].neighbours[size_t(e)])]) {
                reached[size_t(levels[0].neighbours[size_t(e)])] = 1;
                stack.push_back(levels[0].neighbours[size_t(e)]);
            }
    }
    EXPECT_EQ(std::count(reached.begin(), reached.end(), 1), long(vertices.size()));
}

TEST(GraphSamplers, GeodesicInfluencesAreTheNearestNodesAlongTheSurface)
{
    // Enough nodes reaching enough vertices that each thread's reach list
    // spans several of its blocks: every vertex's influences must still be
    // its nearest nodes along the surface (ties within rounding aside).
    std::vector<Vertex> vertices;
    std::vector<long long> triangles;
    grid(70, Vertex(0, 0, 0), vertices, triangles);
    const GraphSamplingParameters p = plain(1, 4.0f, 5.0f, 0);
    const EmbeddedGraphLevel level = buildEmbeddedGraph(p, vertices, triangles)[0];
    ASSERT_GT(level.nodes.size(), 100u);

    std::vector<std::vector<std::pair<long long, float>>> adjacent(vertices.size());
    for (size_t t = 0; t < triangles.size(); t += 3)
        for (int c = 0; c < 3; ++c) {
            const long long a = triangles[t + size_t(c)], b = triangles[t + size_t((c + 1) % 3)];
            const float length = (vertices[size_t(a)] - vertices[size_t(b)]).norm();
            adjacent[size_t(a)].emplace_back(b, length);
            adjacent[size_t(b)].emplace_back(a, length);
        }
    // Each node's distance along the edges to every vertex.
    std::vector<std::vector<float>> distance(level.nodes.size());
    for (size_t n = 0; n < level.nodes.size(); ++n) {
        std::vector<float>& d = distance[n];
        d.assign(vertices.size(), std::numeric_limits<float>::infinity());
        using Entry = std::pair<float, long long>;
        std::priority_queue<Entry, std::vector<Entry>, std::greater<Entry>> queue;
        d[size_t(level.nodes[n])] = 0.0f;
        queue.emplace(0.0f, level.nodes[n]);
        while (!queue.empty()) {
            const auto [du, u] = queue.top();
            queue.pop();
            if (du > d[size_t(u)])
                continue;
            for (const auto& [v, length] : adjacent[size_t(u)])
                if (du + length < d[size_t(v)]) {
                    d[size_t(v)] = du + length;
                    queue.emplace(d[size_t(v)], v);
                }
        }
    }
    int checked = 0, full = 0;
    for (size_t v = 0; v < vertices.size(); ++v) {
        std::set<long long> chosen;
        float farthestChosen = 0.0f;
        for (long long i = level.influenceOffsets[v]; i < level.influenceOffsets[v + 1]; ++i) {
            const long long n = level.influences[size_t(i)];
            chosen.insert(n);
            farthestChosen = std::max(farthestChosen, distance[size_t(n)][v]);
        }
        // Fewer where fewer nodes lie within reach (near the border).
        ASSERT_GE(chosen.size(), 1u) << "vertex " << v;
        ASSERT_LE(chosen.size(), size_t(p.nodesPerVertex)) << "vertex " << v;
        full += chosen.size() == size_t(p.nodesPerVertex);
        for (size_t n = 0; n < level.nodes.size(); ++n) {
            if (!chosen.count((long long)n)) {
                ASSERT_GE(distance[n][v], farthestChosen - 1e-4f) << "vertex " << v << ", node " << n;
            }
        }
        ++checked;
    }
    EXPECT_EQ(checked, int(vertices.size()));
    EXPECT_GT(full, int(vertices.size()) / 2);
}

namespace {

/// The largest index distance between graph neighbours.
long long bandwidth(const EmbeddedGraphLevel& level)
{
    long long widest = 0;
    for (size_t n = 0; n + 1 < level.neighbourOffsets.size(); ++n)
        for (long long e = level.neighbourOffsets[n]; e < level.neighbourOffsets[n + 1]; ++e)
            widest = std::max(widest, std::abs(level.neighbours[size_t(e)] - (long long)n));
    return widest;
}

} // namespace

TEST(NodeOrder, RenumberingAScrambledMeshKeepsTheGraphAndBringsNeighboursTogether)
{
    // Two 24 x 24 grids, the vertices shuffled as a scan or an exported
    // model may list them; a radius below the edge length puts a node on
    // every vertex, as on the finest level.
    const int n = 24;
    std::vector<Vertex> ordered;
    std::vector<long long> triangles;
    grid(n, Vertex(0, 0, 0), ordered, triangles);
    grid(n, Vertex(40, 0, 0), ordered, triangles);
    std::vector<long long> shuffle(ordered.size());
    std::iota(shuffle.begin(), shuffle.end(), 0LL);
    std::mt19937 random(11);
    std::shuffle(shuffle.begin(), shuffle.end(), random);
    std::vector<Vertex> vertices(ordered.size());
    for (size_t i = 0; i < ordered.size(); ++i)
        vertices[size_t(shuffle[i])] = ordered[i];
    for (long long& t : triangles)
        t = shuffle[size_t(t)];

    const EmbeddedGraphLevel sampled = makeSampler(4, triangles, vertices, 0)->sampleLevels({0.5f}, nullptr)[0];
    ASSERT_EQ(sampled.nodes.size(), vertices.size());
    ASSERT_GT(bandwidth(sampled), 10 * n);

    const std::vector<long long> order = localNodeOrder(sampled);
    std::vector<long long> sorted = order;
    std::sort(sorted.begin(), sorted.end());
    for (size_t i = 0; i < sorted.size(); ++i)
        ASSERT_EQ(sorted[i], (long long)i) << "not a permutation";
    EmbeddedGraphLevel level = sampled;
    renumberNodes(level, order);
    // Breadth first, a grid's neighbours lie within about two rows.
    EXPECT_LE(bandwidth(level), 3 * n);

    // The same graph under new names: every vertex has the same
    // influencing vertices with the same weights, in the same order, and
    // every node the same neighbours, listed ascending.
    ASSERT_EQ(level.influenceOffsets, sampled.influenceOffsets);
    ASSERT_EQ(level.weights, sampled.weights);
    for (size_t i = 0; i < level.influences.size(); ++i)
        ASSERT_EQ(level.nodes[size_t(level.influences[i])], sampled.nodes[size_t(sampled.influences[i])]);
    const auto neighbourVertices = [](const EmbeddedGraphLevel& l, size_t node) {
        std::set<long long> found;
        for (long long e = l.neighbourOffsets[node]; e < l.neighbourOffsets[node + 1]; ++e)
            found.insert(l.nodes[size_t(l.neighbours[size_t(e)])]);
        return found;
    };
    for (size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(neighbourVertices(level, i), neighbourVertices(sampled, size_t(order[i]))) << "node " << i;
        EXPECT_TRUE(std::is_sorted(level.neighbours.begin() + level.neighbourOffsets[i],
                                   level.neighbours.begin() + level.neighbourOffsets[i + 1]));
    }

    // The graph the fits get is numbered so.
    const EmbeddedGraphLevel built = buildEmbeddedGraph(plain(1, 0.5f, 1.0f, 0), vertices, triangles)[0];
    EXPECT_LE(bandwidth(built), 3 * n);
}
