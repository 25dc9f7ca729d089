#include "StepMeshes.h"

#include "steps/fitting/FitReport.h"

#include <gtest/gtest.h>

using namespace WelkPlugin;

namespace {

/// Triangles of a sphere around the origin whose normal points inwards.
int inwardTriangles(const QVector<QVector3D>& v, const QVector<int>& t)
{
    int count = 0;
    for (int i = 0; i < t.size(); i += 3) {
        const QVector3D n = QVector3D::crossProduct(v[t[i + 1]] - v[t[i]], v[t[i + 2]] - v[t[i]]);
        count += QVector3D::dotProduct(n, v[t[i]] + v[t[i + 1]] + v[t[i + 2]]) < 0;
    }
    return count;
}

} // namespace

TEST(FitReport, CountsTheFoldOversTheFitAdded)
{
    const GeometryStack2::GeomStackTriangulated base = StepMeshes::sphere(12, 1.0f);
    const QVector<int>& triangles = base.triangleVertexIndices();
    // The "fit" drags two vertices along their ring past their neighbours:
    // the triangles they cross turn inwards while the rest faces out.
    QVector<QVector3D> result = base.vertices();
    result[40] = 0.3f * base.vertices()[42] + 0.7f * base.vertices()[43];
    result[100] = 0.3f * base.vertices()[102] + 0.7f * base.vertices()[103];
    const int turned = inwardTriangles(result, triangles);
    ASSERT_GT(turned, 0);
    ASSERT_EQ(inwardTriangles(base.vertices(), triangles), 0);

    const FitReport report = measureFit(base, base.vertices(), result, base, {}, {});
    EXPECT_EQ(report.foldsBefore, 0);
    EXPECT_EQ(report.foldsAfter, turned);
    EXPECT_EQ(report.addedFolds(), turned);
    const QJsonObject folds = report.toJson()[QStringLiteral("foldOvers")].toObject();
    EXPECT_EQ(folds[QStringLiteral("added")].toInt(), turned);
    EXPECT_EQ(folds[QStringLiteral("after")].toInt(), turned);

    // Folds the basemesh came with are not the fit's: measured from the
    // folded shape to itself, nothing is added.
    const FitReport unchanged = measureFit(base, result, result, base, {}, {});
    EXPECT_EQ(unchanged.foldsBefore, turned);
    EXPECT_EQ(unchanged.addedFolds(), 0);
}

TEST(FitReport, ADivergedCourseIsToldAndASoundOneIsNot)
{
    WelkingAcceleratedVersion::FitCourse course;
    course.startDistance = 2.0;
    course.endDistance = 0.1;
    EXPECT_FALSE(course.diverged());
    EXPECT_TRUE(divergenceMessage(course).isEmpty());
    EXPECT_FALSE(fitCourseJson(course)[QStringLiteral("diverged")].toBool());

    course.endDistance = 3.0;
    EXPECT_TRUE(divergenceMessage(course).contains(QStringLiteral("farther")));
    course.flownOffVertices = 17;
    EXPECT_TRUE(divergenceMessage(course).contains(QStringLiteral("17 vertices")));
    EXPECT_TRUE(fitCourseJson(course)[QStringLiteral("diverged")].toBool());
    EXPECT_EQ(fitCourseJson(course)[QStringLiteral("flownOffVertices")].toInt(), 17);
}
