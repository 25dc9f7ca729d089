#include "support/MeshFactory.h"
#include "support/TriangleLists.h"

#include "fitting/accelerated/FoldOvers.h"
#include "fitting/accelerated/FoldRepair.h"

#include "geometry/GeomStackTriangulated.h"

#include <gtest/gtest.h>

#include <memory>

using namespace WelkingAcceleratedVersion;
using Vec3 = FoldRepair::Vec3;

namespace {

/// A flat grid (9 x 9 vertices over [0, 8]^2, facing +z), optionally with
/// a separate closed cube beside it, as points and triangle indices.
struct Mesh : TestSupport::TriangleLists
{
    size_t gridVertices = 0;

    explicit Mesh(bool withCube)
    {
        add(GeometryStack2::GeomStackTriangulated(TestSupport::heightField(9, 8.0f, [](float, float) { return 0.0f; })));
        gridVertices = points.size();
        if (withCube)
            add(GeometryStack2::GeomStackTriangulated(TestSupport::cube({12, 3, -1}, {14, 5, 1})));
    }
};

/// Runs the repair on `current` with the rest shape itself as the target.
FoldRepair::Counts repair(const Mesh& rest, std::vector<Vec3>& current, const std::vector<char>& pinned,
                          double tolerance)
{
    const std::unique_ptr<KDTreeAcceleratedVersion::Node<float, long long>> tree(
        KDTreeAcceleratedVersion::build<float, long long>(rest.points, 16));
    const std::vector<Vec3> normals(rest.points.size(), Vec3::UnitZ());
    const std::vector<char> excluded(rest.points.size(), 0);
    return FoldRepair(rest.points, rest.triangles, tolerance)
        .run(current, pinned, excluded, {*tree, rest.points, normals, 0.65f});
}

} // namespace

TEST(FoldRepair, UnfoldsAPulledVertexAndMovesNeitherPinnedNorFarVertices)
{
    const Mesh rest(false);
    std::vector<Vec3> current = rest.points;
    // An inner vertex pulled past its right-hand neighbour folds the cells
    // it crosses; a pinned vertex beside it was placed off the grid by the
    // user's point pair.
    const size_t pulled = 4 * 9 + 4, pinnedVertex = 4 * 9 + 2, far = 8 * 9 + 8;
    current[pulled] += Vec3(1.6f, 0.3f, 0.0f);
    current[pinnedVertex] += Vec3(0.0f, 0.2f, 0.1f);
    std::vector<char> pinned(current.size(), 0);
    pinned[pinnedVertex] = 1;
    const std::vector<Vec3> fitted = current;

    const FoldRepair::Counts counts = repair(rest, current, pinned, 1e-6);
    EXPECT_GT(counts.before, 0);
    EXPECT_EQ(counts.after, 0);
    EXPECT_EQ(foldedTriangleCount(current, rest.triangles), 0);
    EXPECT_NE(current[pulled], fitted[pulled]);
    EXPECT_EQ(current[pinnedVertex], fitted[pinnedVertex]);
    EXPECT_EQ(current[far], fitted[far]);
}

TEST(FoldRepair, ReopensASeparatePieceCrushedAsAWhole)
{
    // The cube beside the grid is squeezed to a hundred-thousandth of its
    // size: still facing outwards, but every triangle is a sliver that
    // rounding could turn over. Relaxing keeps a point a point, and the
    // cube's own similarity has no scale to carry its shape with; it must
    // come back to a good part of its size.
    const Mesh rest(true);
    std::vector<Vec3> current = rest.points;
    const Vec3 centre(13, 4, 0);
    for (size_t v = rest.gridVertices; v < current.size(); ++v)
        current[v] = centre + 1e-5f * (current[v] - centre);
    const double tolerance = 1e-3;
    const auto atRisk = [&](const std::vector<Vec3>& shape) {
        int count = 0;
        for (char folded : foldedTriangles(shape, rest.triangles, 0.0, tolerance))
            count += folded;
        return count;
    };
    ASSERT_GT(atRisk(current), 0);
    ASSERT_EQ(atRisk(rest.points), 0);

    repair(rest, current, std::vector<char>(current.size(), 0), tolerance);
    EXPECT_EQ(atRisk(current), 0);
    float width = 0;
    for (size_t v = rest.gridVertices; v < current.size(); ++v)
        width = std::max(width, (current[v] - current[rest.gridVertices]).norm());
    EXPECT_GT(width, 0.25f * 2.0f * std::sqrt(3.0f));
    // The grid had nothing to repair.
    for (size_t v = 0; v < rest.gridVertices; ++v)
        ASSERT_EQ(current[v], rest.points[v]) << v;
}
