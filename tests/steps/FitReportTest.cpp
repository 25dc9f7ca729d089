#include "StepMeshes.h"

#include "steps/fitting/FitReport.h"

#include <gtest/gtest.h>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>
#include <limits>

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

namespace {

using Vec = Eigen::Vector3d;

/// Distance from p to segment ab, in double.
double segmentDistance(const Vec& p, const Vec& a, const Vec& b)
{
    const Vec ab = b - a;
    const double t = std::clamp((p - a).dot(ab) / std::max(ab.squaredNorm(), 1e-300), 0.0, 1.0);
    return (p - (a + t * ab)).norm();
}

/// Distance from p to the nearest point of any triangle, by brute force: the
/// foot of the perpendicular where it falls inside, else the nearest edge.
double bruteForceDistance(const QVector3D& q, const QVector<QVector3D>& v, const QVector<int>& t)
{
    const Vec p(q.x(), q.y(), q.z());
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i + 2 < t.size(); i += 3) {
        const Vec a(v[t[i]].x(), v[t[i]].y(), v[t[i]].z());
        const Vec b(v[t[i + 1]].x(), v[t[i + 1]].y(), v[t[i + 1]].z());
        const Vec c(v[t[i + 2]].x(), v[t[i + 2]].y(), v[t[i + 2]].z());
        const Vec n = (b - a).cross(c - a);
        if (n.squaredNorm() > 0) {
            const Vec foot = p - n * (p - a).dot(n) / n.squaredNorm();
            const bool inside = (b - a).cross(foot - a).dot(n) >= 0 && (c - b).cross(foot - b).dot(n) >= 0 &&
                                (a - c).cross(foot - c).dot(n) >= 0;
            if (inside)
                best = std::min(best, (p - foot).norm());
        }
        best = std::min({best, segmentDistance(p, a, b), segmentDistance(p, b, c), segmentDistance(p, c, a)});
    }
    return best;
}

} // namespace

TEST(FitReport, DistancesBothWaysAreTheExactNearestSurfacePoints)
{
    // A coarse sphere "fitted" onto a finer, squashed and shifted one: the
    // nearest surface points are inside triangles, on edges and at corners,
    // and coarse triangles lie far from the fine mesh's vertices, where a
    // vertex-based search would miss them.
    const GeometryStack2::GeomStackTriangulated base = StepMeshes::sphere(6, 1.0f);
    GeometryStack2::GeomStackTriangulated target = StepMeshes::sphere(18, 1.1f, QVector3D(0.05f, -0.1f, 0.2f));
    QVector<QVector3D> squashed = target.vertices();
    for (QVector3D& v : squashed)
        v.setZ(0.2f + (v.z() - 0.2f) * 0.6f);
    target.setVertices(squashed);
    QVector<QVector3D> result = base.vertices();
    for (int i = 0; i < result.size(); ++i)
        result[i] *= 1.0f + 0.05f * float(i % 5);

    const FitReport report = measureFit(base, base.vertices(), result, target, {}, {});
    double sum = 0, squares = 0, max = 0;
    ASSERT_EQ(report.vertexDistances.size(), result.size());
    for (int i = 0; i < result.size(); ++i) {
        const double d = bruteForceDistance(result[i], target.vertices(), target.triangleVertexIndices());
        EXPECT_NEAR(report.vertexDistances[i], d, 1e-5 + 1e-5 * d) << "result vertex " << i;
        sum += d;
        squares += d * d;
        max = std::max(max, d);
    }
    EXPECT_NEAR(report.resultToTarget.mean, sum / result.size(), 1e-6);
    EXPECT_NEAR(report.resultToTarget.max, max, 1e-5);

    sum = squares = max = 0;
    for (const QVector3D& p : target.vertices()) {
        const double d = bruteForceDistance(p, result, base.triangleVertexIndices());
        sum += d;
        squares += d * d;
        max = std::max(max, d);
    }
    const int n = target.vertexCount();
    EXPECT_EQ(report.targetToResult.count, n);
    EXPECT_NEAR(report.targetToResult.mean, sum / n, 1e-6);
    EXPECT_NEAR(report.targetToResult.rms, std::sqrt(squares / n), 1e-6);
    EXPECT_NEAR(report.targetToResult.max, max, 1e-5);
}

TEST(FitReport, ALargeTriangleFarFromEveryVertexIsStillTheNearest)
{
    // One large triangle, and a cluster of small ones hovering over its
    // middle: the point just above the large triangle has all its nearest
    // vertices in the cluster, yet the large triangle is nearest.
    QVector<QVector3D> vertices = {{0, 0, 0}, {10, 0, 0}, {0, 10, 0}};
    QVector<int> triangles = {0, 1, 2};
    for (int i = 0; i < 12; ++i) {
        const QVector3D centre(3.0f + 0.1f * float(i % 4), 3.0f + 0.1f * float(i / 4), 1.0f);
        const int first = vertices.size();
        vertices << centre << centre + QVector3D(0.05f, 0, 0) << centre + QVector3D(0, 0.05f, 0);
        triangles << first << first + 1 << first + 2;
    }
    const QVector<QVector3D> points = {{3.1f, 3.1f, 0.1f}, {12, 0, 0}, {3.1f, 3.1f, 1.2f}};
    const QVector<float> d = distancesToSurface(points, vertices, triangles);
    ASSERT_EQ(d.size(), points.size());
    for (int i = 0; i < points.size(); ++i)
        EXPECT_NEAR(d[i], bruteForceDistance(points[i], vertices, triangles), 1e-5) << "point " << i;
    EXPECT_NEAR(d[0], 0.1f, 1e-5);
    EXPECT_NEAR(d[1], 2.0f, 1e-5);
}
