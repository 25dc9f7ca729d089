#include "StepMeshes.h"

#include "steps/fitting/ModelWarnings.h"

#include <gtest/gtest.h>

using namespace WelkPlugin;

namespace {

QVector<ModelWarning::Kind> kinds(const QVector<ModelWarning>& warnings)
{
    QVector<ModelWarning::Kind> result;
    for (const auto& w : warnings)
        result.append(w.kind);
    return result;
}

QVector<QVector3D> box(const QVector3D& lo, const QVector3D& hi)
{
    return {lo, hi};
}

} // namespace

TEST(ModelWarnings, BoxesThatOnlyTouchDoNotMeet)
{
    const auto unit = box({0, 0, 0}, {1, 1, 1});
    EXPECT_TRUE(modelWarnings(unit, 10, box({0.5f, 0.5f, 0.5f}, {2, 2, 2}), 10).isEmpty());
    EXPECT_EQ(kinds(modelWarnings(unit, 10, box({1, 0, 0}, {2, 1, 1}), 10)),
              QVector<ModelWarning::Kind>{ModelWarning::NoIntersection});
    EXPECT_EQ(kinds(modelWarnings(unit, 10, box({0, 0, -5001}, {1, 1, -5000}), 10)),
              QVector<ModelWarning::Kind>{ModelWarning::NoIntersection});
    EXPECT_EQ(modelWarnings(unit, 10, box({0, 0, -2}, {1, 1, -1}), 10)[0].message,
              QStringLiteral("The basemesh and reference have no intersections"));
}

TEST(ModelWarnings, DenserBasemeshAndScaleBeyondTenTimes)
{
    const auto unit = box({0, 0, 0}, {1, 1, 1});
    EXPECT_EQ(kinds(modelWarnings(unit, 11, unit, 10)), QVector<ModelWarning::Kind>{ModelWarning::HigherResolution});
    EXPECT_TRUE(modelWarnings(unit, 10, unit, 10).isEmpty());
    // Overlapping boxes, sizes 9.5 and 10.5 times apart.
    EXPECT_TRUE(modelWarnings(unit, 1, box({0, 0, 0}, {9.5f, 9.5f, 9.5f}), 1).isEmpty());
    const auto larger = modelWarnings(unit, 1, box({0, 0, 0}, {10.5f, 10.5f, 10.5f}), 1);
    EXPECT_EQ(kinds(larger), QVector<ModelWarning::Kind>{ModelWarning::ScaleDiffers});
    EXPECT_TRUE(larger[0].message.contains(QStringLiteral("smaller"))) << larger[0].message.toStdString();
    const auto tenth = modelWarnings(box({0, 0, 0}, {1000, 1000, 1000}), 1, unit, 1);
    EXPECT_EQ(kinds(tenth), QVector<ModelWarning::Kind>{ModelWarning::ScaleDiffers});
    EXPECT_TRUE(tenth[0].message.contains(QStringLiteral("1000 times larger"))) << tenth[0].message.toStdString();

    // From meshes: a fine sphere onto a coarse one of the same size.
    const auto fine = StepMeshes::sphere(12, 1.0f), coarse = StepMeshes::sphere(6, 1.0f);
    EXPECT_EQ(kinds(modelWarnings(fine, coarse)), QVector<ModelWarning::Kind>{ModelWarning::HigherResolution});
    EXPECT_TRUE(modelWarnings(coarse, fine).isEmpty());
}
