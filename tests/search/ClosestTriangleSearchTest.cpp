// The closest-triangle tree against brute force over every triangle, on
// random, grid, degenerate and tied meshes.
#include "SearchTestMeshes.h"

#include "search/BvhClosestTriangleFinder.h"
#include "search/BvhPointOnTriangleFinder.h"
#include "search/ClosestPointOnTriangle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace ClosestTriangleSearch;
using SearchTestMeshes::Mesh;
constexpr float Largest = std::numeric_limits<float>::max();

/// The same per-triangle rule over every triangle, keeping the first of equal distances.
float bruteForce(const Mesh& m, const QVector3D& p, int* triangle = nullptr)
{
    const BvhPointOnTriangleFinder finder(m.vertices, m.indices);
    float best = Largest;
    int found = -1;
    for (int t = 0; t < m.triangleCount(); ++t) {
        const float before = best;
        finder.find(t, p, best);
        if (best < before)
            found = t;
    }
    if (triangle)
        *triangle = found;
    return best;
}

/// Searches every query and checks the answer against brute force and the
/// double-precision distance, and that the returned weights give the point.
void expectMatchesBruteForce(const Mesh& m, const QVector<QVector3D>& queries,
                             const BvhParameters& parameters = {})
{
    const BvhClosestTriangleFinder tree(m.vertices, m.indices, parameters);
    const BvhPointOnTriangleFinder finder(m.vertices, m.indices);
    for (const QVector3D& q : queries) {
        float distance = Largest;
        const Welk::WPointOnTriangle hit = tree.find(q, &distance);
        ASSERT_TRUE(hit.isValid());
        EXPECT_EQ(distance, bruteForce(m, q)) << q.x() << " " << q.y() << " " << q.z();
        const double exact = SearchTestMeshes::meshDistance(m, q);
        EXPECT_NEAR(distance, exact, 1e-4 * (1.0 + exact));
        EXPECT_NEAR((hit.position(m.vertices, m.indices) - q).length(), distance, 1e-4f * (1.0f + distance));
    }
}

TEST(ClosestTriangleSearch, RandomMeshesMatchBruteForce)
{
    const QVector<QVector3D> queries = SearchTestMeshes::queries(600, 1.5f, 7);
    expectMatchesBruteForce(SearchTestMeshes::sphere(24, 40, 1.0f, 0.05f, 3), queries);
    expectMatchesBruteForce(SearchTestMeshes::soup(1500, 5), queries);
    BvhParameters parallel;
    parallel.useParallelThreshold = true;
    parallel.parallelThreshold = 16;
    expectMatchesBruteForce(SearchTestMeshes::soup(1500, 5), queries, parallel);
    BvhParameters bigLeaves;
    bigLeaves.maxLeafSize = 64;
    bigLeaves.maxDepth = 4;
    expectMatchesBruteForce(SearchTestMeshes::sphere(24, 40, 1.0f, 0.05f, 3), queries, bigLeaves);
    // Large enough that the top nodes choose among centroid bins.
    const QVector<QVector3D> fewer = SearchTestMeshes::queries(150, 1.5f, 8);
    expectMatchesBruteForce(SearchTestMeshes::sphere(70, 90, 1.0f, 0.05f, 4), fewer);
    expectMatchesBruteForce(SearchTestMeshes::soup(9000, 6), fewer, parallel);
}

TEST(ClosestTriangleSearch, OverlappingSliversAreSplitInSpaceWithinTheBudget)
{
    const Mesh m = SearchTestMeshes::soup(3000, 9);
    const BvhClosestTriangleFinder tree(m.vertices, m.indices);
    EXPECT_GT(tree.spatialSplitCount(), 0);
    const size_t n = size_t(m.triangleCount());
    EXPECT_GT(tree.primitives().size(), n);
    EXPECT_LE(tree.primitives().size(), n + size_t(0.3 * double(n)));
    // Every triangle is reachable, and each leaf's run lies inside the primitive array.
    std::vector<int> seen(n, 0);
    for (const BvhNode& node : tree.nodes()) {
        if (node.count == 0)
            continue;
        ASSERT_LE(size_t(node.first) + node.count, tree.primitives().size());
        for (uint32_t i = node.first; i < node.first + node.count; ++i)
            seen[tree.primitives()[i]] = 1;
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), int(n));
}

TEST(ClosestTriangleSearch, PointsOnVerticesAndEdgesAreAtDistanceZero)
{
    const Mesh m =
        SearchTestMeshes::grid(12, 9, 2.0f, [](float x, float y) { return 0.3f * std::sin(2 * x) * y; });
    const BvhClosestTriangleFinder tree(m.vertices, m.indices);
    for (const QVector3D& v : m.vertices) {
        float distance = Largest;
        const Welk::WPointOnTriangle hit = tree.find(v, &distance);
        ASSERT_TRUE(hit.isValid());
        EXPECT_EQ(distance, 0.0f);
        // A vertex query lands in a vertex case: one weight is 1 and that corner is the vertex.
        EXPECT_LT((hit.position(m.vertices, m.indices) - v).length(), 1e-6f);
    }
    for (int t = 0; t < m.triangleCount(); ++t)
        for (int c = 0; c < 3; ++c) {
            const QVector3D mid =
                0.5f * (m.vertices[m.indices[3 * t + c]] + m.vertices[m.indices[3 * t + (c + 1) % 3]]);
            float distance = Largest;
            ASSERT_TRUE(tree.find(mid, &distance).isValid());
            EXPECT_LT(distance, 1e-5f);
        }
}

TEST(ClosestTriangleSearch, VertexCaseWeights)
{
    const QVector3D a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
    float u, v;
    EXPECT_EQ(closestPointOnTriangle(a, b, c, a, u, v), a);
    EXPECT_EQ(u, 1.0f);
    EXPECT_EQ(v, 0.0f);
    EXPECT_EQ(closestPointOnTriangle(a, b, c, QVector3D(2, -1, 0), u, v), b);
    EXPECT_EQ(u, 0.0f);
    EXPECT_EQ(v, 1.0f);
    EXPECT_EQ(closestPointOnTriangle(a, b, c, QVector3D(-0.1f, 3, 1), u, v), c);
    EXPECT_EQ(u, 0.0f);
    EXPECT_EQ(v, 0.0f);
    // Edge BC from beyond its middle, interior from above.
    const QVector3D onBc = closestPointOnTriangle(a, b, c, QVector3D(1, 1, 0.5f), u, v);
    EXPECT_NEAR((onBc - QVector3D(0.5f, 0.5f, 0)).length(), 0.0f, 1e-6f);
    EXPECT_EQ(u, 0.0f);
    EXPECT_NEAR(v, 0.5f, 1e-6f);
    closestPointOnTriangle(a, b, c, QVector3D(0.2f, 0.3f, -2), u, v);
    EXPECT_NEAR(u, 0.5f, 1e-6f);
    EXPECT_NEAR(v, 0.2f, 1e-6f);
}

TEST(ClosestTriangleSearch, EquidistantTrianglesGiveOneOfThemStably)
{
    // Two copies of a triangle above and below the query, and a shared edge.
    Mesh m;
    m.vertices = {{0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {0, 0, -1}, {1, 0, -1}, {0, 1, -1}, {1, 1, 1}};
    m.indices = {0, 1, 2, 3, 4, 5, 1, 6, 2};
    const BvhClosestTriangleFinder tree(m.vertices, m.indices);
    float distance = Largest;
    const Welk::WPointOnTriangle first = tree.find(QVector3D(0.2f, 0.2f, 0), &distance);
    EXPECT_FLOAT_EQ(distance, 1.0f);
    EXPECT_TRUE(first.triangle == 0 || first.triangle == 1);
    float again = Largest;
    EXPECT_EQ(tree.find(QVector3D(0.2f, 0.2f, 0), &again), first);
    // A point on the edge shared by triangles 0 and 2.
    distance = Largest;
    const Welk::WPointOnTriangle edge = tree.find(QVector3D(0.5f, 0.5f, 1.0f), &distance);
    EXPECT_TRUE(edge.triangle == 0 || edge.triangle == 2);
    EXPECT_EQ(distance, 0.0f);
}

TEST(ClosestTriangleSearch, DegenerateTrianglesNeverWinWithANonNumber)
{
    // A grid with collapsed and collinear triangles spliced in along shared edges.
    Mesh m = SearchTestMeshes::flatGrid(8, 8, 1.0f);
    const int n = m.triangleCount();
    for (int t = 0; t < n; t += 7) {
        const int a = m.indices[3 * t], b = m.indices[3 * t + 1], c = m.indices[3 * t + 2];
        m.indices << a << a << b; // two coincident corners
        m.indices << a << b << a; // again, other order
        m.indices << c << c << c; // a point
        const int mid = m.vertices.size();
        m.vertices.append(0.5f * (m.vertices[a] + m.vertices[b]));
        m.indices << a << mid << b; // collinear
    }
    const QVector<QVector3D> queries = SearchTestMeshes::queries(500, 1.2f, 13);
    expectMatchesBruteForce(m, queries);
    // On its own, a triangle with two equal corners answers only in its vertex regions.
    Mesh lone;
    lone.vertices = {{0, 0, 0}, {0, 0, 0}, {1, 0, 0}};
    lone.indices = {0, 1, 2};
    const BvhClosestTriangleFinder tree(lone.vertices, lone.indices);
    float distance = Largest;
    const Welk::WPointOnTriangle beside = tree.find(QVector3D(0.5f, 1.0f, 0.0f), &distance);
    EXPECT_FALSE(beside.isValid());
    EXPECT_EQ(distance, Largest);
    distance = Largest;
    EXPECT_TRUE(tree.find(QVector3D(-1.0f, 0.5f, 0.0f), &distance).isValid());
    EXPECT_FLOAT_EQ(distance, std::sqrt(1.25f));
}

TEST(ClosestTriangleSearch, CornersThatAreNotNumbersAreSkipped)
{
    Mesh m = SearchTestMeshes::flatGrid(16, 16, 1.0f);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (int k = 0; k < 40; ++k) {
        m.indices << m.vertices.size() << 0 << 1;
        m.vertices.append(QVector3D(k % 2 ? nan : 0.5f, nan, 0.25f));
    }
    const QVector<QVector3D> queries = SearchTestMeshes::queries(300, 1.2f, 4);
    const BvhClosestTriangleFinder tree(m.vertices, m.indices);
    for (const QVector3D& q : queries) {
        float distance = Largest;
        ASSERT_TRUE(tree.find(q, &distance).isValid());
        EXPECT_EQ(distance, bruteForce(m, q));
    }
}

TEST(ClosestTriangleSearch, SearchLimitAndSmallMeshes)
{
    const Mesh m = SearchTestMeshes::sphere(8, 12, 1.0f, 0.0f, 1);
    const BvhClosestTriangleFinder tree(m.vertices, m.indices);
    const QVector3D far(5, 0, 0);
    float limit = 1.0f;
    const Welk::WPointOnTriangle none = tree.find(far, &limit);
    EXPECT_EQ(none, Welk::WPointOnTriangle());
    EXPECT_EQ(limit, 1.0f);
    limit = 4.5f;
    EXPECT_TRUE(tree.find(far, &limit).isValid());
    EXPECT_LT(limit, 4.5f);
    EXPECT_TRUE(tree.find(far).isValid());

    const Mesh empty;
    const BvhClosestTriangleFinder emptyTree(empty.vertices, empty.indices);
    float distance = Largest;
    EXPECT_FALSE(emptyTree.find(far, &distance).isValid());
    EXPECT_EQ(distance, Largest);

    Mesh one;
    one.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    one.indices = {0, 1, 2};
    const BvhClosestTriangleFinder single(one.vertices, one.indices);
    EXPECT_EQ(single.nodes().size(), 1u);
    EXPECT_EQ(single.nodes()[0].count, 1u);
    const Welk::WPointOnTriangle hit = single.find(QVector3D(0.25f, 0.25f, 3));
    EXPECT_EQ(hit.triangle, 0);
    EXPECT_NEAR(hit.u, 0.5f, 1e-6f);
    EXPECT_NEAR(hit.v, 0.25f, 1e-6f);
}

TEST(ClosestTriangleSearch, BatchEqualsSingleQueries)
{
    const Mesh m = SearchTestMeshes::sphere(16, 24, 1.0f, 0.1f, 2);
    const BvhClosestTriangleFinder tree(m.vertices, m.indices);
    const QVector<QVector3D> queries = SearchTestMeshes::queries(2000, 1.5f, 3);
    QVector<float> distances;
    const QVector<Welk::WPointOnTriangle> batch = tree.findAll(queries, &distances);
    ASSERT_EQ(batch.size(), queries.size());
    ASSERT_EQ(distances.size(), queries.size());
    for (int i = 0; i < queries.size(); ++i) {
        float distance = Largest;
        EXPECT_EQ(batch[i], tree.find(queries[i], &distance));
        EXPECT_EQ(distances[i], distance);
    }
}

} // namespace
