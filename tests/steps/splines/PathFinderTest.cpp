// Shortest paths over a mesh against a breadth-first count and straight
// lines on flat grids.
#include "SplineTestMeshes.h"

#include "steps/splines/DijkstraPathFinders.h"

#include <gtest/gtest.h>

#include <QQueue>
#include <QSet>

using namespace WSpline;
using Welk::WPointOnTriangle;

namespace {

/// Vertex index of a path point that stands for a vertex.
int vertexOf(const GeometryStack2::GeomStackTriangulated& mesh, const WPointOnTriangle& p)
{
    const int t = 3 * p.triangle;
    if (p.u == 1.0f)
        return mesh.triangleVertexIndices()[t];
    if (p.v == 1.0f)
        return mesh.triangleVertexIndices()[t + 1];
    EXPECT_EQ(p.u + p.v, 0.0f);
    return mesh.triangleVertexIndices()[t + 2];
}

QSet<QPair<int, int>> edges(const GeometryStack2::GeomStackTriangulated& mesh)
{
    QSet<QPair<int, int>> set;
    const QVector<int>& t = mesh.triangleVertexIndices();
    for (int k = 0; k < t.size(); k += 3)
        for (int c = 0; c < 3; ++c) {
            const int a = t[k + c], b = t[k + (c + 1) % 3];
            set.insert({std::min(a, b), std::max(a, b)});
        }
    return set;
}

/// Checks that the inner points are vertices joined by edges, and that the
/// first and last vertices belong to the end triangles.
QVector<int> checkPath(const GeometryStack2::GeomStackTriangulated& mesh, const QVector<WPointOnTriangle>& path,
                       const WPointOnTriangle& from, const WPointOnTriangle& to)
{
    EXPECT_GE(path.size(), 3);
    EXPECT_EQ(path.first(), from);
    EXPECT_EQ(path.last(), to);
    QVector<int> vertices;
    for (int k = 1; k + 1 < path.size(); ++k)
        vertices.append(vertexOf(mesh, path[k]));
    const QSet<QPair<int, int>> edgeSet = edges(mesh);
    for (int k = 1; k < vertices.size(); ++k)
        EXPECT_TRUE(edgeSet.contains({std::min(vertices[k - 1], vertices[k]), std::max(vertices[k - 1], vertices[k])}));
    const QVector<int>& t = mesh.triangleVertexIndices();
    const auto corner = [&](int triangle, int v) {
        return t[3 * triangle] == v || t[3 * triangle + 1] == v || t[3 * triangle + 2] == v;
    };
    EXPECT_TRUE(corner(from.triangle, vertices.first()));
    EXPECT_TRUE(corner(to.triangle, vertices.last()));
    return vertices;
}

int breadthFirstHops(const GeometryStack2::GeomStackTriangulated& mesh, int from, int to)
{
    QHash<int, QVector<int>> neighbours;
    for (const auto& e : edges(mesh)) {
        neighbours[e.first].append(e.second);
        neighbours[e.second].append(e.first);
    }
    QHash<int, int> distance{{from, 0}};
    QQueue<int> queue;
    queue.enqueue(from);
    while (!queue.isEmpty()) {
        const int v = queue.dequeue();
        for (int w : neighbours[v])
            if (!distance.contains(w)) {
                distance[w] = distance[v] + 1;
                queue.enqueue(w);
            }
    }
    return distance.value(to, -1);
}

TEST(PathFinders, NaivePathAlongAGridRowIsStraight)
{
    const auto mesh = SplineTestMeshes::flatGrid(10, 3);
    const WPointOnTriangle from = SplineTestMeshes::locate(mesh, 0.0f, 1.0f);
    const WPointOnTriangle to = SplineTestMeshes::locate(mesh, 10.0f, 1.0f);
    const NaiveDijkstraPathFinder finder(mesh);
    const QVector<WPointOnTriangle> path = finder.findPath(from, to);
    checkPath(mesh, path, from, to);
    float length = 0;
    for (int k = 1; k < path.size(); ++k) {
        length += (SplineTestMeshes::at(mesh, path[k]) - SplineTestMeshes::at(mesh, path[k - 1])).length();
        EXPECT_NEAR(SplineTestMeshes::at(mesh, path[k]).y(), 1.0f, 1e-5f);
    }
    EXPECT_NEAR(length, 10.0f, 1e-4f);
}

TEST(PathFinders, TopologicalPathHasTheFewestEdges)
{
    // Heights make the shortest-by-length path differ from the fewest edges.
    const auto mesh = SplineTestMeshes::grid(7, 6, {{3, 2}, {3, 3}}, [](float x, float y) {
        return std::abs(y - 3.0f) < 1.5f ? 4.0f * std::sin(x) : 0.0f;
    });
    const WPointOnTriangle from = SplineTestMeshes::locate(mesh, 0.2f, 3.1f);
    const WPointOnTriangle to = SplineTestMeshes::locate(mesh, 6.7f, 2.9f);
    ASSERT_TRUE(from.isValid() && to.isValid());
    const TopologicalDijkstraPathFinder topological(mesh);
    const QVector<int> vertices = checkPath(mesh, topological.findPath(from, to), from, to);
    // Fewest edges between some corner of `from` and some corner of `to`.
    int best = 1 << 30;
    const QVector<int>& t = mesh.triangleVertexIndices();
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            best = std::min(best, breadthFirstHops(mesh, t[3 * from.triangle + a], t[3 * to.triangle + b]));
    EXPECT_LE(vertices.size() - 1, best + 2); // the end costs may pick a corner a hop or two off
    EXPECT_GE(vertices.size() - 1, best);

    const NaiveDijkstraPathFinder naive(mesh);
    const TurnPenalizingDijkstraPathFinder turning(mesh);
    checkPath(mesh, naive.findPath(from, to), from, to);
    checkPath(mesh, turning.findPath(from, to), from, to);
}

TEST(PathFinders, TurnPenaltyStraightensAZigZag)
{
    // On a flat grid every monotone staircase of three diagonals and three
    // rows has the same length along edges; the turn penalty prefers few
    // turns.
    const auto mesh = SplineTestMeshes::flatGrid(6, 6);
    const WPointOnTriangle from = SplineTestMeshes::locate(mesh, 0.0f, 0.0f);
    const WPointOnTriangle to = SplineTestMeshes::locate(mesh, 6.0f, 3.0f);
    const auto turns = [&](const QVector<WPointOnTriangle>& path) {
        int count = 0;
        for (int k = 2; k < path.size(); ++k) {
            const QVector3D a = SplineTestMeshes::at(mesh, path[k - 1]) - SplineTestMeshes::at(mesh, path[k - 2]);
            const QVector3D b = SplineTestMeshes::at(mesh, path[k]) - SplineTestMeshes::at(mesh, path[k - 1]);
            if (a.lengthSquared() > 0 && b.lengthSquared() > 0 &&
                QVector3D::crossProduct(a.normalized(), b.normalized()).length() > 1e-3f)
                ++count;
        }
        return count;
    };
    const QVector<WPointOnTriangle> straight = TurnPenalizingDijkstraPathFinder(mesh, 2.0).findPath(from, to);
    checkPath(mesh, straight, from, to);
    EXPECT_LE(turns(straight), turns(NaiveDijkstraPathFinder(mesh).findPath(from, to)));
    EXPECT_LE(turns(straight), 1);
}

TEST(PathFinders, SameTriangleUnreachableAndInvalid)
{
    const auto mesh = SplineTestMeshes::flatGrid(3, 1);
    const NaiveDijkstraPathFinder finder(mesh);
    const WPointOnTriangle a{0, 0.2f, 0.3f}, b{0, 0.5f, 0.1f};
    EXPECT_EQ(finder.findPath(a, b), (QVector<WPointOnTriangle>{a, b}));
    EXPECT_TRUE(finder.findPath(a, WPointOnTriangle()).isEmpty());
    EXPECT_TRUE(finder.findPath(a, WPointOnTriangle{mesh.triangleCount(), 0, 0}).isEmpty());

    // Two separate squares.
    const auto parts = GeometryStack2::GeomStackTriangulated(TestSupport::polygonSoup(
        {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {5, 0, 0}, {6, 0, 0}, {6, 1, 0}, {5, 1, 0}},
        {{0, 1, 2, 3}, {4, 5, 6, 7}}));
    const TopologicalDijkstraPathFinder apart(parts);
    EXPECT_TRUE(apart.findPath({0, 0.3f, 0.3f}, {3, 0.3f, 0.3f}).isEmpty());
}

} // namespace
