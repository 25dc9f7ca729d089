// Dragging a point over a surface with the continuous projection.
#include "SearchTestMeshes.h"

#include "search/BvhClosestTriangleFinder.h"
#include "search/FastContinuousProjectionOnTriangleFinder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <set>

namespace {

using KeepDistance::FastContinuousProjectionOnTriangleFinder;
using SearchTestMeshes::Mesh;

// Against every pair of triangles: across each edge lies a triangle that
// shares it, and the sides of an edge held by three triangles form a ring.
TEST(FastContinuousProjection, NeighboursAcrossEdgesMatchAScanOfAllTriangles)
{
    Mesh m = SearchTestMeshes::sphere(6, 8, 1.0f, 0.02f, 5u);
    // Two fins on one edge of the sphere, and a triangle reusing a vertex.
    const int a = m.indices[0], b = m.indices[1];
    m.vertices << QVector3D(3, 0, 0) << QVector3D(0, 3, 0);
    m.indices << a << b << m.vertices.size() - 2;
    m.indices << b << a << m.vertices.size() - 1;
    m.indices << a << a << m.vertices.size() - 1;
    const FastContinuousProjectionOnTriangleFinder finder(m.vertices, m.indices);

    auto edge = [&](int t, int c) {
        const int x = m.indices[3 * t + (c + 1) % 3], y = m.indices[3 * t + (c + 2) % 3];
        return std::make_pair(std::min(x, y), std::max(x, y));
    };
    for (int t = 0; t < m.triangleCount(); ++t)
        for (int c = 0; c < 3; ++c) {
            const auto e = edge(t, c);
            std::set<int> sharing;
            for (int o = 0; o < m.triangleCount(); ++o)
                for (int k = 0; k < 3; ++k)
                    if (o != t && edge(o, k) == e && e.first != e.second)
                        sharing.insert(o);
            const int n = finder.neighbour(t, c);
            if (sharing.empty()) {
                EXPECT_EQ(n, -1) << t << " " << c;
                continue;
            }
            ASSERT_TRUE(sharing.count(n)) << t << " " << c;
            // Following the neighbours across this edge visits every side once.
            std::set<int> ring{t};
            int at = t;
            for (size_t step = 0; step <= sharing.size(); ++step) {
                int corner = 0;
                while (edge(at, corner) != e)
                    ++corner;
                at = finder.neighbour(at, corner);
                if (at == t)
                    break;
                ring.insert(at);
            }
            EXPECT_EQ(at, t);
            EXPECT_EQ(ring.size(), sharing.size() + 1);
        }
}

TEST(FastContinuousProjection, DragAcrossAFlatGridFollowsThePointer)
{
    const Mesh m = SearchTestMeshes::flatGrid(10, 10, 1.0f);
    const FastContinuousProjectionOnTriangleFinder finder(m.vertices, m.indices);
    Welk::WPointOnTriangle current;
    std::set<int> visited;
    for (int step = 0; step <= 200; ++step) {
        const float s = float(step) / 200.0f;
        // Diagonal path a little above the grid, crossing many triangles.
        const QVector3D target(0.05f + 0.9f * s, 0.1f + 0.75f * s * s, 0.2f);
        QString error = "stale";
        current = finder.project(target, current, &error);
        ASSERT_TRUE(current.isValid()) << step;
        EXPECT_TRUE(error.isEmpty());
        visited.insert(current.triangle);
        const QVector3D position = current.position(m.vertices, m.indices);
        EXPECT_LT((position - QVector3D(target.x(), target.y(), 0)).length(), 1e-5f) << step;
        EXPECT_GE(std::min({current.u, current.v, 1 - current.u - current.v}), -1e-6f);
    }
    EXPECT_GT(visited.size(), 15u);
}

TEST(FastContinuousProjection, KeepsItsDistanceOnACurvedSurfaceAndMovesContinuously)
{
    const Mesh m = SearchTestMeshes::sphere(24, 48, 1.0f, 0.0f, 1);
    const FastContinuousProjectionOnTriangleFinder finder(m.vertices, m.indices);
    Welk::WPointOnTriangle current;
    QVector3D last;
    for (int step = 0; step <= 300; ++step) {
        const float a = 2.0f * 3.14159265f * float(step) / 300.0f;
        const QVector3D target = 1.3f * QVector3D(std::cos(a), std::sin(a), 0.3f).normalized();
        QString error;
        current = finder.project(target, current, &error);
        ASSERT_TRUE(current.isValid()) << step << error.toStdString();
        const QVector3D position = current.position(m.vertices, m.indices);
        // Along interpolated normals a sphere maps nearly radially; the facets sag by under 1%.
        EXPECT_LT((position.normalized() - target.normalized()).length(), 0.01f) << step;
        EXPECT_NEAR(position.length(), 1.0f, 0.01f);
        if (step > 0) {
            EXPECT_LT((position - last).length(), 0.04f) << step;
        }
        last = position;
    }
}

TEST(FastContinuousProjection, StopsOnTheBorderAndStartsFromTheNearestPoint)
{
    const Mesh m = SearchTestMeshes::flatGrid(4, 4, 1.0f);
    const FastContinuousProjectionOnTriangleFinder finder(m.vertices, m.indices);
    // No previous point: the walk starts at the nearest triangle.
    const Welk::WPointOnTriangle start =
        finder.project(QVector3D(0.6f, 0.4f, -0.3f), Welk::WPointOnTriangle());
    ASSERT_TRUE(start.isValid());
    EXPECT_LT((start.position(m.vertices, m.indices) - QVector3D(0.6f, 0.4f, 0)).length(), 1e-5f);
    // Dragged beyond the border the point slides along it.
    const Welk::WPointOnTriangle outside = finder.project(QVector3D(1.5f, 0.45f, 0.1f), start);
    ASSERT_TRUE(outside.isValid());
    EXPECT_LT((outside.position(m.vertices, m.indices) - QVector3D(1.0f, 0.45f, 0)).length(), 1e-5f);
    // A previous point from a far triangle still ends where the position is.
    const Welk::WPointOnTriangle jump =
        finder.project(QVector3D(0.9f, 0.9f, 0.05f), Welk::WPointOnTriangle{0, 0.3f, 0.3f});
    EXPECT_LT((jump.position(m.vertices, m.indices) - QVector3D(0.9f, 0.9f, 0)).length(), 1e-5f);
}

TEST(FastContinuousProjection, ReportsASingularTriangleOnTheWay)
{
    // A strip along x; top corners 3 and 4 coincide, so one triangle has no area.
    Mesh m;
    const int n = 8;
    for (int i = 0; i <= n; ++i)
        m.vertices << QVector3D(float(i), 0, 0);
    for (int i = 0; i <= n; ++i)
        m.vertices << QVector3D(i == 3 ? 4.0f : float(i), 1, 0);
    for (int i = 0; i < n; ++i) {
        const int b0 = i, b1 = i + 1, t0 = n + 1 + i, t1 = n + 2 + i;
        m.indices << b0 << b1 << t0 << b1 << t1 << t0;
    }
    const FastContinuousProjectionOnTriangleFinder finder(m.vertices, m.indices);
    Welk::WPointOnTriangle current = finder.project(QVector3D(0.5f, 0.5f, 0.1f), Welk::WPointOnTriangle());
    ASSERT_TRUE(current.isValid());
    QString error;
    bool failed = false;
    for (int step = 1; step <= 60 && !failed; ++step) {
        const Welk::WPointOnTriangle next =
            finder.project(QVector3D(0.5f + 0.1f * float(step), 0.9f, 0.1f), current, &error);
        if (!next.isValid())
            failed = true;
        else
            current = next;
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(error, "Singular triangle or inconsistently oriented normals");
    // The caller keeps its last good point, which is not beyond the collapsed corner.
    EXPECT_TRUE(current.isValid());
    EXPECT_LE(current.position(m.vertices, m.indices).x(), 4.0f + 1e-5f);
    EXPECT_GT(current.position(m.vertices, m.indices).x(), 3.0f);
}

TEST(FastContinuousProjection, ReportsNormalsAgainstTheTriangle)
{
    const Mesh m = SearchTestMeshes::flatGrid(3, 3, 1.0f);
    QVector<QVector3D> normals(m.vertices.size(), QVector3D(0, 0, 1));
    normals[5] = QVector3D(0, 0, -1);
    const FastContinuousProjectionOnTriangleFinder finder(m.vertices, m.indices, nullptr, normals);
    QString error;
    const Welk::WPointOnTriangle hit =
        finder.project(m.vertices[5] + QVector3D(0.01f, 0.01f, 0.1f), Welk::WPointOnTriangle(), &error);
    EXPECT_FALSE(hit.isValid());
    EXPECT_EQ(error, FastContinuousProjectionOnTriangleFinder::singularTriangleMessage());
    // Far from that vertex all is well.
    error.clear();
    EXPECT_TRUE(finder.project(QVector3D(0.05f, 0.95f, 0.1f), Welk::WPointOnTriangle(), &error).isValid());
    EXPECT_TRUE(error.isEmpty());
}

TEST(FastContinuousProjection, AsPointFinderOfTheTree)
{
    const Mesh m = SearchTestMeshes::sphere(16, 32, 1.0f, 0.0f, 1);
    auto continuous = std::make_shared<FastContinuousProjectionOnTriangleFinder>(m.vertices, m.indices);
    const ClosestTriangleSearch::BvhClosestTriangleFinder tree(m.vertices, m.indices, {}, continuous);
    for (const QVector3D& q : SearchTestMeshes::queries(200, 1.5f, 5)) {
        if (q.length() < 0.3f)
            continue;
        float distance = std::numeric_limits<float>::max();
        const Welk::WPointOnTriangle hit = tree.find(q, &distance);
        ASSERT_TRUE(hit.isValid());
        // The walk from the tree's answer stays on that triangle.
        EXPECT_EQ(continuous->project(q, hit).triangle, hit.triangle);
        EXPECT_NEAR((hit.position(m.vertices, m.indices) - q).length(), distance, 1e-4f);
        EXPECT_NEAR(distance, std::abs(q.length() - 1.0f), 0.02f);
    }
}

} // namespace
