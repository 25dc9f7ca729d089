// Splines of the two models as point pairs for the fit.
#include "SplineTestMeshes.h"

#include "steps/splines/SplinePointPairs.h"
#include "steps/splines/SplineSelectionModel.h"

#include <gtest/gtest.h>

using namespace WelkPlugin;
using Welk::WPointOnTriangle;

namespace {

TEST(SplinePointPairs, SameNamesPairSampleBySample)
{
    // The target is the base grid stretched twice in x: a pair's samples
    // must correspond through the stretch, sample k with sample k.
    const auto baseMesh = SplineTestMeshes::flatGrid(6, 4);
    const auto targetMesh = SplineTestMeshes::grid(12, 4, {}, [](float, float) { return 0.0f; });
    SplineSelectionModel base, target;
    base.setMesh(baseMesh);
    target.setMesh(targetMesh);
    base.setPointsPerSpline(7);
    base.addSpline({SplineTestMeshes::locate(baseMesh, 0.5f, 1.0f), SplineTestMeshes::locate(baseMesh, 2.0f, 2.0f),
                    SplineTestMeshes::locate(baseMesh, 5.5f, 3.0f)},
                   QStringLiteral("a"));
    base.addSpline({SplineTestMeshes::locate(baseMesh, 1, 1), SplineTestMeshes::locate(baseMesh, 2, 1)},
                   QStringLiteral("only on the base"));
    target.addSpline({SplineTestMeshes::locate(targetMesh, 1.0f, 1.0f), SplineTestMeshes::locate(targetMesh, 4.0f, 2.0f),
                      SplineTestMeshes::locate(targetMesh, 11.0f, 3.0f)},
                     QStringLiteral("a"));
    target.addSpline({}, QStringLiteral("only on the target"));

    const SplinePointPairs::Result pairs = SplinePointPairs::fromModels(base, target);
    EXPECT_EQ(pairs.paired, QStringList{QStringLiteral("a")});
    EXPECT_EQ(pairs.unpairedBase, QStringList{QStringLiteral("only on the base")});
    EXPECT_EQ(pairs.unpairedTarget, QStringList{QStringLiteral("only on the target")});
    ASSERT_EQ(pairs.base.size(), 7);
    ASSERT_EQ(pairs.target.size(), 7);
    for (int k = 0; k < 7; ++k) {
        const QVector3D a = SplineTestMeshes::at(baseMesh, pairs.base[k]);
        const QVector3D b = SplineTestMeshes::at(targetMesh, pairs.target[k]);
        // Even spacing along a curve that the stretch maps onto the other
        // keeps the ends exact and the middle close (arc length is not
        // preserved by a stretch, so only roughly).
        EXPECT_NEAR(b.y(), a.y(), k == 0 || k == 6 ? 1e-4 : 0.35) << k;
    }
    EXPECT_NEAR(SplineTestMeshes::at(targetMesh, pairs.target.last()).x(), 11.0f, 1e-4f);

    // Unnamed lists pair by place, and the longer list's rest is reported.
    const WSpline::CatmullRomSpline curve;
    const SplinePointPairs::Side baseSide{&baseMesh, base.closestPointLookup()};
    const SplinePointPairs::Side targetSide{&targetMesh, target.closestPointLookup()};
    const SplinePointPairs::Result byIndex = SplinePointPairs::byIndex(
        {base.splines()[QStringLiteral("a")], base.splines()[QStringLiteral("only on the base")]},
        {target.splines()[QStringLiteral("a")]}, {QStringLiteral("x"), QStringLiteral("y")}, {QStringLiteral("z")},
        baseSide, targetSide, 5, curve);
    EXPECT_EQ(byIndex.paired, QStringList{QStringLiteral("x")});
    EXPECT_EQ(byIndex.unpairedBase, QStringList{QStringLiteral("y")});
    EXPECT_EQ(byIndex.base.size(), 5);
}

} // namespace
