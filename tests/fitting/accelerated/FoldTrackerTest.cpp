#include "support/MeshFactory.h"
#include "support/TriangleLists.h"

#include "fitting/accelerated/FoldOvers.h"
#include "fitting/accelerated/FoldTracker.h"

#include <gtest/gtest.h>

#include <random>

using namespace WelkingAcceleratedVersion;
using Vec3 = FoldTracker::Vec3;

namespace {

/// A bumpy 12 x 12 height field, a triangle that repeats a corner and a
/// vertex that no triangle uses.
struct BumpyMesh : TestSupport::TriangleLists
{
    BumpyMesh()
    {
        add(GeometryStack2::GeomStackTriangulated(
            TestSupport::heightField(12, 11.0f, [](float x, float y) { return 0.4f * std::sin(x) * std::cos(0.7f * y); })));
        triangles.insert(triangles.end(), {5, 17, 5});
        points.emplace_back(50.0f, 50.0f, 50.0f);
    }
};

} // namespace

TEST(FoldTracker, UpdatesGiveTheFullTestsBitsAfterEveryMove)
{
    // Small regions move again and again, as in the fold repair: now and
    // then far enough to fold triangles, to bring them within the margin or
    // within rounding of folding, and back. After every update each flag
    // must be what testing the whole shape gives.
    const BumpyMesh mesh;
    const double margin = 0.05, tolerance = 0.02;
    FoldTracker tracker(mesh.triangles, mesh.points.size(), margin, tolerance);
    std::vector<Vec3> shape = mesh.points;
    tracker.reset(shape);
    std::mt19937 random(17);
    std::uniform_real_distribution<float> step(-1.5f, 1.5f);
    int folded = 0, updates = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<long long> moved;
        const long long centre = (long long)(random() % (mesh.points.size() - 1));
        for (int k = 0; k < 1 + round % 4; ++k) {
            const long long v = (centre + 13 * k) % (long long)(mesh.points.size() - 1);
            shape[size_t(v)] += Vec3(step(random), step(random), round % 3 == 0 ? 0.01f * step(random) : step(random));
            moved.push_back(v);
            moved.push_back(v); // repeats are allowed
        }
        if (round % 50 == 49) {
            // Some rounds put the moved vertices back where they were.
            for (long long v : moved)
                shape[size_t(v)] = mesh.points[size_t(v)];
        }
        tracker.update(shape, moved);
        ++updates;
        EXPECT_EQ(tracker.folded(), foldedTriangles(shape, mesh.triangles)) << round;
        EXPECT_EQ(tracker.atRisk(), foldedTriangles(shape, mesh.triangles, 0.0, tolerance)) << round;
        EXPECT_EQ(tracker.nearFolded(), foldedTriangles(shape, mesh.triangles, margin)) << round;
        for (char f : tracker.folded())
            folded += f;
    }
    EXPECT_GT(folded, 0); // the moves did fold triangles
    EXPECT_EQ(updates, 300);

    // An update retests only near the moved vertex; a reset retests all.
    std::vector<long long> one{60};
    shape[60] += Vec3(0.1f, 0.0f, 0.0f);
    tracker.update(shape, one);
    EXPECT_GT(tracker.retested().size(), 0u);
    EXPECT_LT(tracker.retested().size(), mesh.triangles.size() / 3 / 4);
    tracker.reset(shape);
    EXPECT_EQ(tracker.retested().size(), mesh.triangles.size() / 3);
    EXPECT_EQ(tracker.nearFolded(), foldedTriangles(shape, mesh.triangles, margin));
}
