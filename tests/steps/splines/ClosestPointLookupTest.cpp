// The nearest-point lookups the spline step chooses between: Embree's point
// query against the closest-triangle tree, and a lookup as a finder with a
// search limit.
#include "SplineTestMeshes.h"

#include "search/ClosestTriangleFinder.h"
#include "steps/splines/ClosestPointLookup.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace WelkPlugin;

TEST(ClosestPointLookup, EmbreeAndTreeAgreeOnAWavyGrid)
{
    const GeometryStack2::GeomStackTriangulated mesh = SplineTestMeshes::grid(
        12, 9, {}, [](float x, float y) { return 0.7f * std::sin(1.3f * x) * std::cos(0.9f * y); });
    const ClosestPointLookup tree = makeClosestPointLookup(mesh);
    const ClosestPointLookup embree = makeEmbreeClosestPointLookup(mesh);
    std::mt19937 random(4);
    std::uniform_real_distribution<float> x(-2.0f, 14.0f), y(-2.0f, 11.0f), z(-3.0f, 3.0f);
    for (int i = 0; i < 300; ++i) {
        const QVector3D p(x(random), y(random), z(random));
        const Welk::WPointOnTriangle a = tree(p), b = embree(p);
        ASSERT_TRUE(a.isValid());
        ASSERT_TRUE(b.isValid());
        EXPECT_NEAR((SplineTestMeshes::at(mesh, a) - p).length(), (SplineTestMeshes::at(mesh, b) - p).length(), 1e-5f)
            << i;
    }
    EXPECT_FALSE(makeEmbreeClosestPointLookup(GeometryStack2::GeomStackTriangulated())(QVector3D()).isValid());
}

TEST(ClosestPointLookup, AsAFinderItKeepsToTheLimit)
{
    const GeometryStack2::GeomStackTriangulated mesh = SplineTestMeshes::flatGrid(4, 4);
    const auto finder = lookupFinder(makeEmbreeClosestPointLookup(mesh), mesh);
    float distance = 0.5f;
    EXPECT_FALSE(finder->find(QVector3D(2.0f, 2.0f, 0.75f), &distance).isValid());
    EXPECT_EQ(distance, 0.5f);
    distance = 1.0f;
    const Welk::WPointOnTriangle hit = finder->find(QVector3D(2.5f, 1.5f, 0.75f), &distance);
    ASSERT_TRUE(hit.isValid());
    EXPECT_NEAR(distance, 0.75f, 1e-6f);
    EXPECT_NEAR((SplineTestMeshes::at(mesh, hit) - QVector3D(2.5f, 1.5f, 0.0f)).length(), 0.0f, 1e-5f);
}
