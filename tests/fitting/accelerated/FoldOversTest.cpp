#include "support/MeshFactory.h"

#include "fitting/accelerated/DeformerTypes.h"
#include "fitting/accelerated/FoldOvers.h"

#include "geometry/GeomStackTriangulated.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace WelkingAcceleratedVersion;

namespace {

/// An n x n grid in the plane z = 0, two triangles per cell, facing +z.
void flatGrid(int n, QVector<QVector3D>& vertices, QVector<int>& triangles)
{
    vertices.clear();
    triangles.clear();
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            vertices.append(QVector3D(float(i), float(j), 0.0f));
    for (int j = 0; j + 1 < n; ++j)
        for (int i = 0; i + 1 < n; ++i) {
            const int a = j * n + i;
            triangles << a << a + 1 << a + n + 1 << a << a + n + 1 << a + n;
        }
}

int downwardTriangles(const QVector<QVector3D>& v, const QVector<int>& t)
{
    int count = 0;
    for (int i = 0; i < t.size(); i += 3)
        count += QVector3D::crossProduct(v[t[i + 1]] - v[t[i]], v[t[i + 2]] - v[t[i]]).z() < 0;
    return count;
}

} // namespace

TEST(FoldOvers, SmoothSurfacesHaveNoneWhicheverWayTheyFace)
{
    QVector<QVector3D> vertices;
    QVector<int> triangles;
    flatGrid(8, vertices, triangles);
    EXPECT_EQ(foldedTriangleCount(vertices, triangles), 0);

    // The rule compares a triangle with its neighbourhood, not with a fixed
    // side: reversing every triangle folds none of them.
    QVector<int> reversed = triangles;
    for (int i = 0; i < reversed.size(); i += 3)
        std::swap(reversed[i + 1], reversed[i + 2]);
    EXPECT_EQ(foldedTriangleCount(vertices, reversed), 0);

    const GeometryStack2::GeomStackTriangulated cube(TestSupport::cube());
    EXPECT_EQ(foldedTriangleCount(cube.vertices(), cube.triangleVertexIndices()), 0);
}

TEST(FoldOvers, AVertexPulledAcrossItsNeighbourFoldsTheTrianglesThatTurned)
{
    QVector<QVector3D> vertices;
    QVector<int> triangles;
    flatGrid(9, vertices, triangles);
    // Pull an inner vertex past its right-hand neighbour: the cells it
    // crosses turn upside down while their surroundings still face up.
    const int centre = 4 * 9 + 4;
    vertices[centre] += QVector3D(1.6f, 0.3f, 0.0f);
    const int turned = downwardTriangles(vertices, triangles);
    ASSERT_GT(turned, 0);
    EXPECT_EQ(foldedTriangleCount(vertices, triangles), turned);

    // Eigen points in a std::vector with long long indices count the same.
    std::vector<EmbeddedGraphDeformer::Vec3> points;
    for (const QVector3D& p : vertices)
        points.emplace_back(p.x(), p.y(), p.z());
    const std::vector<long long> indices(triangles.begin(), triangles.end());
    const std::vector<char> folded = foldedTriangles(points, indices);
    ASSERT_EQ(folded.size(), size_t(triangles.size() / 3));
    for (int t = 0; t < triangles.size() / 3; ++t) {
        const QVector3D n = QVector3D::crossProduct(vertices[triangles[3 * t + 1]] - vertices[triangles[3 * t]],
                                                    vertices[triangles[3 * t + 2]] - vertices[triangles[3 * t]]);
        EXPECT_EQ(folded[size_t(t)] != 0, n.z() < 0) << "triangle " << t;
    }
}

TEST(FoldOvers, LargeNeighboursOutweighSmallOnes)
{
    // A fan around vertex 0 of four triangles: three small ones facing up and
    // one large one facing down. Counted per triangle the small ones would
    // win; weighted by area the large one sets the direction, so the small
    // ones are the folded ones.
    const QVector<QVector3D> vertices{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}, {0, -1, 0}, {30, 30, 0}};
    const QVector<int> triangles{0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 5, 1};
    const std::vector<char> folded = foldedTriangles(vertices, triangles);
    EXPECT_TRUE(folded[0]);
    EXPECT_TRUE(folded[1]);
    EXPECT_TRUE(folded[2]);
    EXPECT_FALSE(folded[3]);
}

TEST(FoldOvers, ASliverThatRoundingCouldTurnOverCountsWithATolerance)
{
    QVector<QVector3D> vertices;
    QVector<int> triangles;
    flatGrid(5, vertices, triangles);
    // Squeeze one cell's diagonal triangle to a sliver: its far corner sits
    // a millionth off the diagonal, on the side that keeps it facing up.
    const int a = 2 * 5 + 2, c = a + 5 + 1, far = a + 1;
    vertices[far] = 0.5f * (vertices[a] + vertices[c]) + QVector3D(0.7e-6f, -0.7e-6f, 0.0f);
    ASSERT_EQ(foldedTriangleCount(vertices, triangles), 0);
    int sliver = -1;
    for (int t = 0; t < triangles.size() / 3; ++t)
        if (triangles[3 * t] == a && triangles[3 * t + 1] == far)
            sliver = t;
    ASSERT_GE(sliver, 0);
    // Moving the far corner by 2e-6 turns it over, so a tolerance of 2e-6
    // counts it; 1e-8 does not, nor does any well-shaped triangle.
    const std::vector<char> wide = foldedTriangles(vertices, triangles, 0.0, 2e-6);
    const std::vector<char> narrow = foldedTriangles(vertices, triangles, 0.0, 1e-8);
    for (int t = 0; t < triangles.size() / 3; ++t) {
        EXPECT_EQ(wide[size_t(t)] != 0, t == sliver) << t;
        EXPECT_FALSE(narrow[size_t(t)]) << t;
    }
    QVector<QVector3D> turned = vertices;
    turned[far] += QVector3D(-2e-6f, 2e-6f, 0.0f);
    EXPECT_EQ(foldedTriangleCount(turned, triangles), 1);
}
