// Curves through control points and samples put back on the surface.
#include "SplineTestMeshes.h"
#include "steps/StepMeshes.h"

#include "steps/splines/WSpline.h"

#include <gtest/gtest.h>

using namespace WSpline;

namespace {

float distanceToSegment(const QVector3D& p, const QVector3D& a, const QVector3D& b)
{
    const QVector3D ab = b - a;
    const float t = std::clamp(QVector3D::dotProduct(p - a, ab) / ab.lengthSquared(), 0.0f, 1.0f);
    return (p - (a + t * ab)).length();
}

TEST(WSplineCurves, PassThroughEveryControlAndStaySmooth)
{
    const QVector<QVector3D> controls{{0, 0, 0}, {1, 2, 0}, {1.1f, 2.1f, 0}, {4, -1, 1}, {6, 0, 0}};
    for (CurveType type : {CurveType::CatmullRom, CurveType::PiecewiseLinear}) {
        const auto curve = makeCurve(type);
        for (int s = 0; s + 1 < controls.size(); ++s) {
            EXPECT_LT((curve->evaluate(controls, s, 0.0f) - controls[s]).length(), 1e-5f);
            EXPECT_LT((curve->evaluate(controls, s, 1.0f) - controls[s + 1]).length(), 1e-5f);
        }
        QVector<int> segments;
        const QVector<QVector3D> line = curve->polyline(controls, 8, &segments);
        ASSERT_EQ(line.size(), segments.size());
        EXPECT_EQ(line.size(), 4 * 8 + 1);
        EXPECT_EQ(segments.first(), 0);
        EXPECT_EQ(segments.last(), 3);
        // No overshoot loops: the centripetal curve stays near the control
        // polygon even where two controls nearly coincide.
        for (const QVector3D& p : line) {
            float nearest = 1e9f;
            for (int s = 0; s + 1 < controls.size(); ++s)
                nearest = std::min(nearest, distanceToSegment(p, controls[s], controls[s + 1]));
            EXPECT_LT(nearest, 0.8f);
        }
    }
}

TEST(WSplineCurves, CollinearControlsGiveAStraightEvenlySampledLine)
{
    const QVector<QVector3D> controls{{0, 0, 0}, {1, 0, 0}, {5, 0, 0}, {6, 0, 0}};
    for (CurveType type : {CurveType::CatmullRom, CurveType::PiecewiseLinear}) {
        const auto curve = makeCurve(type);
        EXPECT_NEAR(curve->length(controls), 6.0f, 1e-3f);
        const QVector<QVector3D> samples = curve->sample(controls, 13);
        ASSERT_EQ(samples.size(), 13);
        for (int k = 0; k < samples.size(); ++k) {
            EXPECT_NEAR(samples[k].x(), 0.5f * k, 2e-3f);
            EXPECT_NEAR(samples[k].y(), 0.0f, 1e-5f);
        }
    }
    const auto curve = makeCurve(CurveType::CatmullRom);
    EXPECT_TRUE(curve->sample({}, 5).isEmpty());
    EXPECT_EQ(curve->sample({{1, 2, 3}}, 3), (QVector<QVector3D>(3, QVector3D(1, 2, 3))));
}

TEST(WSplineCurves, SamplesOnASphereLieOnItAndKeepTheEnds)
{
    const GeometryStack2::GeomStackTriangulated sphere = StepMeshes::sphere(24, 2.0f);
    const WelkPlugin::ClosestPointLookup lookup = WelkPlugin::makeClosestPointLookup(sphere);
    // Controls along a meridian-ish arc; the curve between them cuts below
    // the surface, so samples must be projected back.
    QVector<Welk::WPointOnTriangle> controls;
    for (const QVector3D& p : {QVector3D(2, 0, 0.1f), QVector3D(0, 2, 0.3f), QVector3D(-2, 0.1f, 0.2f)})
        controls.append(lookup(p));
    const auto curve = makeCurve(CurveType::CatmullRom);
    const QVector<Welk::WPointOnTriangle> samples = sampleOnSurface(*curve, controls, sphere, 40, lookup);
    ASSERT_EQ(samples.size(), 40);
    EXPECT_EQ(samples.first(), controls.first());
    EXPECT_EQ(samples.last(), controls.last());
    for (const Welk::WPointOnTriangle& s : samples) {
        ASSERT_TRUE(s.isValid());
        const QVector3D p = SplineTestMeshes::at(sphere, s);
        // On the faceted sphere: between the inscribed facets and radius 2.
        EXPECT_GT(p.length(), 1.97f);
        EXPECT_LT(p.length(), 2.0f + 1e-4f);
    }
    // Even spacing along the way (chords within a factor of each other).
    float shortest = 1e9f, longest = 0;
    for (int k = 1; k < samples.size(); ++k) {
        const float d = (SplineTestMeshes::at(sphere, samples[k]) - SplineTestMeshes::at(sphere, samples[k - 1])).length();
        shortest = std::min(shortest, d);
        longest = std::max(longest, d);
    }
    EXPECT_LT(longest / shortest, 1.5f);
}

} // namespace
