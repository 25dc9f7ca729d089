// The Embree ray tracer against analytic answers: slabs of a cube, the
// faces of an octahedron, rays through shared edges and vertices, the face
// filter, the mask, a deforming scene and concurrent queries.
#include "search/WRayTracerEmbree.h"

#include "geometry/GeomStackTriangulated.h"
#include "SearchTestMeshes.h"
#include "support/MeshFactory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <thread>

namespace {

using Welk::WPointOnTriangle;
using Welk::WRayTracer;
using Welk::WRayTracerEmbree;

struct Mesh
{
    QVector<QVector3D> vertices;
    QVector<int> triangles;
};

Mesh triangulated(const GeometryStack2::GeomStack& stack)
{
    const GeometryStack2::GeomStackTriangulated t(stack);
    return {t.vertices(), t.triangleVertexIndices()};
}

/// |x| + |y| + |z| = 1, outward faces.
Mesh octahedron()
{
    Mesh m;
    m.vertices = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
    for (int sx : {0, 1})
        for (int sy : {2, 3})
            for (int sz : {4, 5}) {
                // Counter-clockwise seen from outside when the sign count is even.
                const bool flip = ((sx == 1) + (sy == 3) + (sz == 5)) % 2 == 1;
                m.triangles += flip ? QVector<int>{sx, sz, sy} : QVector<int>{sx, sy, sz};
            }
    return m;
}

/// A flat n x n grid of unit squares at height z, two triangles each.
Mesh grid(int n, float z = 0.0f)
{
    Mesh m;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i)
            m.vertices.append(QVector3D(float(i), float(j), z));
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const int a = j * (n + 1) + i, b = a + 1, c = a + n + 2, d = a + n + 1;
            m.triangles += {a, b, c, a, c, d};
        }
    return m;
}

/// The first hit of a ray with the box [-1, 1]^3 from outside, by slabs.
bool slabHit(const QVector3D& o, const QVector3D& d, float& t, int& axis)
{
    float enter = -INFINITY, leave = INFINITY;
    for (int k = 0; k < 3; ++k) {
        const float t0 = (-1.0f - o[k]) / d[k], t1 = (1.0f - o[k]) / d[k];
        const float lo = std::min(t0, t1), hi = std::max(t0, t1);
        if (lo > enter) {
            enter = lo;
            axis = k;
        }
        leave = std::min(leave, hi);
    }
    t = enter;
    return enter <= leave && enter > 0.0f;
}

QVector3D randomUnit(std::mt19937& rng)
{
    std::normal_distribution<float> n;
    return QVector3D(n(rng), n(rng), n(rng)).normalized();
}

TEST(WRayTracerEmbree, CubeHitsMatchSlabs)
{
    const Mesh cube = triangulated(TestSupport::cube());
    WRayTracerEmbree tracer(cube.vertices, cube.triangles);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> inside(-0.9f, 0.9f);
    for (int i = 0; i < 500; ++i) {
        const QVector3D origin = 5.0f * randomUnit(rng);
        const QVector3D direction = QVector3D(inside(rng), inside(rng), inside(rng)) - origin;
        float expected = 0;
        int axis = -1;
        ASSERT_TRUE(slabHit(origin, direction, expected, axis));

        int triangle = -1;
        float t = 0, b1 = 0, b2 = 0;
        QVector3D normal;
        ASSERT_TRUE(tracer.intersect(origin, direction, 0.0f, INFINITY, 0, triangle, t, b1, b2, normal));
        EXPECT_NEAR(t, expected, 1e-4f);
        // The returned normal is the outward one of the face hit.
        const QVector3D n = normal.normalized();
        EXPECT_NEAR(std::abs(n[axis]), 1.0f, 1e-5f);
        EXPECT_LT(QVector3D::dotProduct(n, direction), 0.0f);

        // The point form lands on the same place through the mesh.
        float distance = INFINITY;
        const WPointOnTriangle p = tracer.intersectPoint(origin, direction, 0, 0.0f, INFINITY, &distance);
        ASSERT_EQ(p.triangle, triangle);
        EXPECT_FLOAT_EQ(distance, t);
        const QVector3D onMesh = p.position(cube.vertices, cube.triangles);
        EXPECT_LT((onMesh - (origin + expected * direction)).length(), 1e-4f);
    }
}

TEST(WRayTracerEmbree, OctahedronHitsMatchFacePlanes)
{
    const Mesh oct = octahedron();
    WRayTracerEmbree tracer(oct.vertices, oct.triangles);
    std::mt19937 rng(11);
    int hits = 0;
    for (int i = 0; i < 500; ++i) {
        const QVector3D origin = 3.0f * randomUnit(rng);
        const QVector3D direction = (0.8f * randomUnit(rng) - origin).normalized();
        // Smallest t where the point lies on the face plane of its own octant.
        float expected = INFINITY;
        for (int s = 0; s < 8; ++s) {
            const QVector3D n(s & 1 ? -1 : 1, s & 2 ? -1 : 1, s & 4 ? -1 : 1);
            const float denominator = QVector3D::dotProduct(n, direction);
            if (std::abs(denominator) < 1e-9f)
                continue;
            const float t = (1.0f - QVector3D::dotProduct(n, origin)) / denominator;
            const QVector3D x = origin + t * direction;
            if (t > 0 && x.x() * n.x() >= -1e-5f && x.y() * n.y() >= -1e-5f && x.z() * n.z() >= -1e-5f)
                expected = std::min(expected, t);
        }
        const WPointOnTriangle p = tracer.intersectPoint(origin, direction);
        ASSERT_EQ(p.isValid(), std::isfinite(expected)) << i;
        if (!p.isValid())
            continue;
        ++hits;
        const QVector3D x = p.position(oct.vertices, oct.triangles);
        EXPECT_LT((x - (origin + expected * direction)).length(), 1e-4f);
        EXPECT_NEAR(std::abs(x.x()) + std::abs(x.y()) + std::abs(x.z()), 1.0f, 1e-4f);
    }
    EXPECT_GT(hits, 100);
}

TEST(WRayTracerEmbree, RobustRaysThroughSharedEdgesAndVerticesNeverSlipThrough)
{
    const int n = 16;
    const Mesh plane = grid(n);
    WRayTracerEmbree tracer(plane.vertices, plane.triangles, 0, 1);
    ASSERT_TRUE(tracer.isRobust());
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> tilt(-0.7f, 0.7f);
    int rays = 0;
    for (int j = 1; j < n; ++j)
        for (int i = 1; i < n; ++i) {
            // Through a vertex, the middle of a horizontal, a vertical and a
            // diagonal edge: every one is shared by two or more triangles.
            const QVector3D targets[] = {{float(i), float(j), 0},
                                         {i + 0.5f, float(j), 0},
                                         {float(i), j + 0.5f, 0},
                                         {i + 0.5f, j + 0.5f, 0}};
            for (const QVector3D& target : targets)
                for (bool straight : {true, false}) {
                    const QVector3D direction = straight ? QVector3D(0, 0, -1) : QVector3D(tilt(rng), tilt(rng), -1);
                    const QVector3D origin = target - 3.0f * direction;
                    float distance = INFINITY;
                    const WPointOnTriangle p = tracer.intersectPoint(origin, direction, 0, 0.0f, INFINITY, &distance);
                    ASSERT_TRUE(p.isValid()) << target.x() << " " << target.y() << " straight " << straight;
                    EXPECT_NEAR(distance, 3.0f, 1e-4f);
                    EXPECT_LT((p.position(plane.vertices, plane.triangles) - target).length(), 1e-4f);
                    ++rays;
                }
        }
    EXPECT_EQ(rays, (n - 1) * (n - 1) * 8);
}

TEST(WRayTracerEmbree, FaceFilterPicksFrontOrBackAndLetsTheRayGoOn)
{
    const Mesh cube = triangulated(TestSupport::cube());
    WRayTracerEmbree tracer(cube.vertices, cube.triangles);
    const QVector3D origin(0.2f, 0.1f, 5.0f), down(0, 0, -1);
    float t = 0;
    // From outside: the top face is a front face, the bottom a back face.
    EXPECT_TRUE(tracer.intersectPoint(origin, down, WRayTracer::AllFaces, 0, INFINITY, &(t = INFINITY)).isValid());
    EXPECT_NEAR(t, 4.0f, 1e-5f);
    EXPECT_TRUE(tracer.intersectPoint(origin, down, WRayTracer::FrontFaces, 0, INFINITY, &(t = INFINITY)).isValid());
    EXPECT_NEAR(t, 4.0f, 1e-5f);
    EXPECT_TRUE(tracer.intersectPoint(origin, down, WRayTracer::BackFaces, 0, INFINITY, &(t = INFINITY)).isValid());
    EXPECT_NEAR(t, 6.0f, 1e-5f);
    // From inside every face is seen from behind.
    const QVector3D centre(0.2f, 0.1f, 0.0f);
    EXPECT_FALSE(tracer.intersectPoint(centre, down, WRayTracer::FrontFaces).isValid());
    EXPECT_TRUE(tracer.intersectPoint(centre, down, WRayTracer::BackFaces, 0, INFINITY, &(t = INFINITY)).isValid());
    EXPECT_NEAR(t, 1.0f, 1e-5f);
    // Limits: the near limit skips the top face, the far limit stops short.
    EXPECT_TRUE(tracer.intersectPoint(origin, down, WRayTracer::AllFaces, 4.5f, INFINITY, &(t = INFINITY)).isValid());
    EXPECT_NEAR(t, 6.0f, 1e-5f);
    EXPECT_FALSE(tracer.intersectPoint(origin, down, WRayTracer::AllFaces, 0.0f, 3.9f).isValid());
}

TEST(WRayTracerEmbree, MaskedTrianglesAreInvisibleAndMaskSizeIsChecked)
{
    Mesh two = grid(1, 0.0f);
    const Mesh upper = grid(1, 1.0f);
    for (int index : upper.triangles)
        two.triangles.append(index + two.vertices.size());
    two.vertices += upper.vertices;
    WRayTracerEmbree tracer(two.vertices, two.triangles);
    const QVector3D origin(0.3f, 0.6f, 3.0f), down(0, 0, -1);
    float t = INFINITY;
    WPointOnTriangle p = tracer.intersectPoint(origin, down, 0, 0, INFINITY, &t);
    EXPECT_GE(p.triangle, 2);
    EXPECT_NEAR(t, 2.0f, 1e-5f);

    EXPECT_FALSE(tracer.setTriangleMask({1, 1, 0}));
    ASSERT_TRUE(tracer.setTriangleMask({1, 1, 0, 0}));
    p = tracer.intersectPoint(origin, down, 0, 0, INFINITY, &(t = INFINITY));
    EXPECT_LT(p.triangle, 2);
    EXPECT_GE(p.triangle, 0);
    EXPECT_NEAR(t, 3.0f, 1e-5f);
    ASSERT_TRUE(tracer.setTriangleMask({0, 0, 0, 0}));
    EXPECT_FALSE(tracer.intersectPoint(origin, down).isValid());
    ASSERT_TRUE(tracer.setTriangleMask({}));
    EXPECT_TRUE(tracer.intersectPoint(origin, down).isValid());
}

TEST(WRayTracerEmbree, EmptyAndTwoDimensionalMeshes)
{
    WRayTracerEmbree empty(QVector<QVector3D>{}, QVector<int>{});
    EXPECT_FALSE(empty.intersectPoint({0, 0, 1}, {0, 0, -1}).isValid());
    EXPECT_TRUE(empty.intersectPoints({}, {}).isEmpty());
    std::unique_ptr<WRayTracer> emptyClone(empty.clone());
    EXPECT_FALSE(emptyClone->intersectPoint({0, 0, 1}, {0, 0, -1}).isValid());

    // A UV layout: two islands in z = 0; the hit's weights give the UV back.
    const QVector<QVector2D> uv = {{0, 0}, {0.4f, 0}, {0, 0.4f}, {0.5f, 0.5f}, {1, 0.5f}, {0.5f, 1}};
    const QVector<int> indices = {0, 1, 2, 3, 4, 5};
    WRayTracerEmbree layout(uv, indices);
    const QVector<QVector3D> origins = {{0.1f, 0.1f, 1}, {0.6f, 0.6f, -1}, {0.45f, 0.45f, 1}};
    const QVector<QVector3D> directions = {{0, 0, -1}, {0, 0, 1}, {0, 0, -1}};
    const QVector<WPointOnTriangle> hits = layout.intersectPoints(origins, directions);
    ASSERT_EQ(hits.size(), 3);
    EXPECT_EQ(hits[0].triangle, 0);
    EXPECT_EQ(hits[1].triangle, 1);
    EXPECT_FALSE(hits[2].isValid());
    const QVector2D back = hits[1].u * uv[3] + hits[1].v * uv[4] + (1 - hits[1].u - hits[1].v) * uv[5];
    EXPECT_NEAR(back.x(), 0.6f, 1e-5f);
    EXPECT_NEAR(back.y(), 0.6f, 1e-5f);
}

TEST(WRayTracerEmbree, DynamicSceneFollowsMovedVerticesAndClonesStayIndependent)
{
    const Mesh plane = grid(4);
    for (int dynamic : {1, 0}) {
        WRayTracerEmbree tracer(plane.vertices, plane.triangles, dynamic);
        std::unique_ptr<WRayTracer> copy(tracer.clone());
        const QVector3D origin(1.3f, 2.6f, 10.0f), down(0, 0, -1);
        float t = INFINITY;
        ASSERT_TRUE(tracer.intersectPoint(origin, down, 0, 0, INFINITY, &t).isValid());
        EXPECT_NEAR(t, 10.0f, 1e-5f);

        // Lift the plane into a ramp z = x; the hit follows.
        QVector<QVector3D> moved = plane.vertices;
        for (QVector3D& v : moved)
            v.setZ(v.x());
        ASSERT_TRUE(tracer.updateVertices(moved));
        const WPointOnTriangle p = tracer.intersectPoint(origin, down, 0, 0, INFINITY, &(t = INFINITY));
        ASSERT_TRUE(p.isValid());
        EXPECT_NEAR(t, 10.0f - 1.3f, 1e-4f);
        EXPECT_LT((p.position(moved, plane.triangles) - QVector3D(1.3f, 2.6f, 1.3f)).length(), 1e-4f);
        // The clone keeps the shape it was made from.
        ASSERT_TRUE(copy->intersectPoint(origin, down, 0, 0, INFINITY, &(t = INFINITY)).isValid());
        EXPECT_NEAR(t, 10.0f, 1e-5f);
        EXPECT_FALSE(tracer.updateVertices(moved.mid(1)));
    }
}

TEST(WRayTracerEmbree, ConcurrentQueriesKeepTheirOwnFaceFilter)
{
    const Mesh cube = triangulated(TestSupport::cube());
    WRayTracerEmbree tracer(cube.vertices, cube.triangles);
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> inside(-0.8f, 0.8f);
    QVector<QVector3D> origins, directions;
    for (int i = 0; i < 2000; ++i) {
        origins.append(QVector3D(inside(rng), inside(rng), 6.0f));
        directions.append(QVector3D(0, 0, -1));
    }
    // One thread looks for front faces (t near 5), the other for back faces
    // (t near 7), over the same rays at the same time.
    QVector<float> front(origins.size()), back(origins.size());
    auto run = [&](int filter, QVector<float>& out) {
        for (int i = 0; i < origins.size(); ++i) {
            float t = INFINITY;
            tracer.intersectPoint(origins[i], directions[i], filter, 0, INFINITY, &t);
            out[i] = t;
        }
    };
    std::thread a(run, int(WRayTracer::FrontFaces), std::ref(front));
    std::thread b(run, int(WRayTracer::BackFaces), std::ref(back));
    a.join();
    b.join();
    for (int i = 0; i < origins.size(); ++i) {
        ASSERT_NEAR(front[i], 5.0f, 1e-4f);
        ASSERT_NEAR(back[i], 7.0f, 1e-4f);
    }
}

} // namespace

// The point query against a double-precision scan of every triangle, on a
// noisy sphere and on a soup of overlapping slivers; then the mask and the
// distance limit.
TEST(WRayTracerEmbree, ClosestPointsMatchBruteForce)
{
    namespace T = SearchTestMeshes;
    for (const T::Mesh& m : {T::sphere(12, 16, 1.0f, 0.05f, 7u), T::soup(150, 11u)}) {
        const WRayTracerEmbree tracer(m.vertices, m.indices);
        for (const QVector3D& q : T::queries(300, 1.5f, 3u)) {
            float distance = -1.0f;
            const WPointOnTriangle p = tracer.closestPoint(q, std::numeric_limits<float>::infinity(), &distance);
            ASSERT_TRUE(p.isValid());
            const double expected = T::meshDistance(m, q);
            EXPECT_NEAR(distance, expected, 1e-4 * (1.0 + expected));
            // The point itself, not only the distance, is that near.
            EXPECT_NEAR((p.position(m.vertices, m.indices) - q).length(), expected, 1e-4 * (1.0 + expected));
        }
    }
}

TEST(WRayTracerEmbree, ClosestPointSkipsMaskedTrianglesAndKeepsToTheLimit)
{
    const Mesh upper = grid(4, 1.0f);
    Mesh both = grid(4, 0.0f);
    for (const QVector3D& v : upper.vertices)
        both.vertices.append(v);
    for (int i : upper.triangles)
        both.triangles.append(i + upper.vertices.size());
    WRayTracerEmbree tracer(both.vertices, both.triangles);
    const QVector3D q(1.3f, 2.6f, 0.8f);

    float distance = 0.0f;
    WPointOnTriangle p = tracer.closestPoint(q, INFINITY, &distance);
    ASSERT_TRUE(p.isValid());
    EXPECT_GE(p.triangle, 32); // the upper sheet
    EXPECT_NEAR(distance, 0.2f, 1e-5f);

    QVector<quint8> mask(tracer.triangleCount(), 1);
    for (int t = 32; t < mask.size(); ++t)
        mask[t] = 0;
    ASSERT_TRUE(tracer.setTriangleMask(mask));
    p = tracer.closestPoint(q, INFINITY, &distance);
    ASSERT_TRUE(p.isValid());
    EXPECT_LT(p.triangle, 32);
    EXPECT_NEAR(distance, 0.8f, 1e-5f);

    EXPECT_FALSE(tracer.closestPoint(q, 0.5f).isValid());
    EXPECT_FALSE(WRayTracerEmbree(QVector<QVector3D>(), QVector<int>()).closestPoint(q).isValid());
}
