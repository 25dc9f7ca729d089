// The spatially split tree against the closest-triangle search and brute force.
#include "SearchTestMeshes.h"

#include "search/BvhClosestTriangleFinder.h"
#include "search/SBVHTree.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

namespace {

using SearchTestMeshes::Mesh;
constexpr float Largest = std::numeric_limits<float>::max();

void expectAgreesWithClosestTriangleSearch(const Mesh& m, SBVH::SBVHBuilder& builder,
                                           const QVector<QVector3D>& queries)
{
    const SBVH::SBVHTree tree(builder);
    const ClosestTriangleSearch::BvhClosestTriangleFinder plain(m.vertices, m.indices);
    for (const QVector3D& q : queries) {
        QVector3D closest;
        const int t = tree.findClosestTriangle(q, closest);
        float expected = Largest;
        plain.find(q, &expected);
        ASSERT_GE(t, 0);
        // The plain search rebuilds corners from differences, so the last bit may differ.
        EXPECT_NEAR(std::sqrt((closest - q).lengthSquared()), expected, 1e-6f * (1.0f + expected));
        EXPECT_NEAR(expected, SearchTestMeshes::meshDistance(m, q), 1e-4 * (1.0 + expected));
    }
    // Every triangle is referenced by some leaf.
    const QVector<int> referenced = tree.root()->triangles();
    EXPECT_EQ(int(std::set<int>(referenced.begin(), referenced.end()).size()), m.triangleCount());
    EXPECT_GE(referenced.size(), m.triangleCount());
    EXPECT_GT(tree.leafCount(), 0);
}

TEST(SBVH, SerialAndThreadedBuildsAgreeWithTheClosestTriangleSearch)
{
    const QVector<QVector3D> queries = SearchTestMeshes::queries(500, 1.5f, 21);
    for (const Mesh& m :
         {SearchTestMeshes::sphere(20, 32, 1.0f, 0.05f, 4), SearchTestMeshes::soup(1200, 8)}) {
        SBVH::SBVHRecursiveBuilder serial(m.vertices, m.indices);
        expectAgreesWithClosestTriangleSearch(m, serial, queries);
        for (int threads : {0, 1, 2, 5}) {
            SBVH::SBVHMultithreadRecursiveBuilder threaded(m.vertices, m.indices);
            threaded.threadCount = threads;
            expectAgreesWithClosestTriangleSearch(m, threaded, queries);
        }
    }
}

TEST(SBVH, SplitsReferenceCrossingTrianglesOnBothSides)
{
    const Mesh m = SearchTestMeshes::soup(800, 2);
    SBVH::SBVHRecursiveBuilder builder(m.vertices, m.indices);
    const SBVH::SBVHTree tree(builder);
    EXPECT_GT(tree.innerCount(), 0);
    // Long slivers cross planes, so some triangle appears in more than one leaf.
    EXPECT_GT(tree.root()->triangles().size(), m.triangleCount());
    // Child boxes are cuts of the parent box at the split.
    const auto* root = dynamic_cast<const SBVH::SBVHNonLeaf*>(tree.root());
    ASSERT_NE(root, nullptr);
    ASSERT_TRUE(root->left && root->right);
    const int axis = root->splitAxis;
    EXPECT_EQ(root->left->box.max[axis], root->right->box.min[axis]);
    EXPECT_EQ(root->left->box.min[axis], root->box.min[axis]);
    EXPECT_EQ(root->right->box.max[axis], root->box.max[axis]);
    // The leaf near a query holds triangles.
    EXPECT_FALSE(tree.root()->trianglesNear(QVector3D(0, 0, 0)).isEmpty());
}

TEST(SBVH, ProjectedPointsLieAtTheNearestPoint)
{
    const Mesh m =
        SearchTestMeshes::grid(20, 20, 1.0f, [](float x, float y) { return 0.2f * std::cos(3 * x + y); });
    const QVector<QVector3D> queries = SearchTestMeshes::queries(400, 1.0f, 17);
    SBVH::SBVHMultithreadRecursiveBuilder builder(m.vertices, m.indices);
    const SBVH::SBVHTree tree(builder);
    const QVector<Welk::WPointOnTriangle> projected = SBVH::projectPoints(queries, tree);
    ASSERT_EQ(projected.size(), queries.size());
    EXPECT_EQ(SBVH::projectPoints(m.vertices, m.indices, queries), projected);
    for (int i = 0; i < queries.size(); ++i) {
        QVector3D closest, barycentric;
        const int t = tree.findClosestTriangle(queries[i], closest);
        ASSERT_EQ(projected[i].triangle, t);
        EXPECT_EQ(tree.findPointOnTriangle(queries[i], barycentric), t);
        EXPECT_NEAR(barycentric.x() + barycentric.y() + barycentric.z(), 1.0f, 1e-5f);
        EXPECT_LT((projected[i].position(m.vertices, m.indices) - closest).length(), 1e-4f);
    }
}

TEST(SBVH, FlatAndEmptyMeshes)
{
    // A plane: the flat axis is never split on, the others are.
    const Mesh plane = SearchTestMeshes::flatGrid(30, 30, 1.0f);
    SBVH::SBVHRecursiveBuilder planeBuilder(plane.vertices, plane.indices);
    const SBVH::SBVHTree planeTree(planeBuilder);
    EXPECT_GT(planeTree.innerCount(), 0);
    QVector3D closest;
    EXPECT_GE(planeTree.findClosestTriangle(QVector3D(0.31f, 0.77f, 0.5f), closest), 0);
    EXPECT_LT((closest - QVector3D(0.31f, 0.77f, 0)).length(), 1e-6f);

    // Everything in one point: flat on every axis, one leaf of any size.
    Mesh point;
    for (int t = 0; t < 40; ++t) {
        point.vertices << QVector3D(1, 2, 3) << QVector3D(1, 2, 3) << QVector3D(1, 2, 3);
        point.indices << 3 * t << 3 * t + 1 << 3 * t + 2;
    }
    SBVH::SBVHMultithreadRecursiveBuilder pointBuilder(point.vertices, point.indices);
    const SBVH::SBVHTree pointTree(pointBuilder);
    EXPECT_EQ(pointTree.leafCount(), 1);
    EXPECT_EQ(pointTree.innerCount(), 0);
    EXPECT_EQ(pointTree.findClosestTriangle(QVector3D(0, 0, 0), closest), 0);

    const Mesh empty;
    SBVH::SBVHMultithreadRecursiveBuilder emptyBuilder(empty.vertices, empty.indices);
    const SBVH::SBVHTree emptyTree(emptyBuilder);
    QVector3D barycentric;
    EXPECT_EQ(emptyTree.findPointOnTriangle(QVector3D(0, 0, 0), barycentric), -1);
    EXPECT_TRUE(std::isnan(barycentric.x()));
    EXPECT_EQ(SBVH::projectPoints({QVector3D(1, 1, 1)}, emptyTree).value(0), Welk::WPointOnTriangle());
}

} // namespace
