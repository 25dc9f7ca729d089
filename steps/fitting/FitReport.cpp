#include "FitReport.h"

#include "fitting/accelerated/FoldOvers.h"
#include "geometry/GeomStackTriangulated.h"
#include "search/WRayTracerEmbree.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <limits>

namespace WelkPlugin {

namespace {

QJsonObject summaryJson(const SurfaceDistance::Summary& s)
{
    return QJsonObject{{QStringLiteral("mean"), s.mean}, {QStringLiteral("rms"), s.rms},
                       {QStringLiteral("p95"), s.p95}, {QStringLiteral("max"), s.max},
                       {QStringLiteral("points"), s.count}};
}

} // namespace

QJsonObject FitReport::toJson() const
{
    QJsonObject json{{QStringLiteral("resultToTarget"), summaryJson(resultToTarget)},
                     {QStringLiteral("targetToResult"), summaryJson(targetToResult)},
                     {QStringLiteral("flippedTriangles"), flippedTriangles},
                     {QStringLiteral("foldOvers"), QJsonObject{{QStringLiteral("before"), foldsBefore},
                                                               {QStringLiteral("after"), foldsAfter},
                                                               {QStringLiteral("added"), addedFolds()}}}};
    if (landmarkCount > 0)
        json[QStringLiteral("landmarks")] = QJsonObject{{QStringLiteral("count"), landmarkCount},
                                                        {QStringLiteral("mean"), landmarkMean},
                                                        {QStringLiteral("max"), landmarkMax}};
    return json;
}

QJsonObject fitCourseJson(const WelkingAcceleratedVersion::FitCourse& course)
{
    return QJsonObject{{QStringLiteral("startDistance"), course.startDistance},
                       {QStringLiteral("endDistance"), course.endDistance},
                       {QStringLiteral("rounds"), course.rounds},
                       {QStringLiteral("rejectedRounds"), course.rejectedRounds},
                       {QStringLiteral("flownOffVertices"), course.flownOffVertices},
                       {QStringLiteral("foldsBeforeRepair"), course.foldsBeforeRepair},
                       {QStringLiteral("foldsAfterRepair"), course.foldsAfterRepair},
                       {QStringLiteral("diverged"), course.diverged()}};
}

QString divergenceMessage(const WelkingAcceleratedVersion::FitCourse& course)
{
    if (course.flownOffVertices > 0)
        return QStringLiteral("The fit diverged: %1 vertices flew far off both models (RMS distance to the target "
                              "%2 at the start, %3 at the end). Fit more stiffly (a higher Smoothness_final) or "
                              "place point pairs.")
            .arg(course.flownOffVertices)
            .arg(course.startDistance, 0, 'g', 4)
            .arg(course.endDistance, 0, 'g', 4);
    if (course.endDistance > course.startDistance)
        return QStringLiteral("The fit ended farther from the target than it began (RMS distance to the target %1 at "
                              "the start, %2 at the end). Check that the models overlap, or place point pairs.")
            .arg(course.startDistance, 0, 'g', 4)
            .arg(course.endDistance, 0, 'g', 4);
    return QString();
}

int flippedTriangles(const QVector<int>& t, const QVector<QVector3D>& before, const QVector<QVector3D>& after)
{
    int flipped = 0;
    for (int i = 0; i + 2 < t.size(); i += 3) {
        const QVector3D n0 = QVector3D::crossProduct(before[t[i + 1]] - before[t[i]], before[t[i + 2]] - before[t[i]]);
        const QVector3D n1 = QVector3D::crossProduct(after[t[i + 1]] - after[t[i]], after[t[i + 2]] - after[t[i]]);
        if (QVector3D::dotProduct(n0, n1) < 0)
            ++flipped;
    }
    return flipped;
}

QVector<float> distancesToSurface(const QVector<QVector3D>& points, const QVector<QVector3D>& vertices,
                                  const QVector<int>& triangles)
{
    QVector<float> distances(points.size(), std::numeric_limits<float>::infinity());
    if (triangles.size() < 3 || points.isEmpty())
        return distances;
    // Built for point queries only: no robust traversal, which only rays need.
    const Welk::WRayTracerEmbree scene(vertices, triangles, 0, 0);
    float* out = distances.data();
    tbb::parallel_for(tbb::blocked_range<int>(0, points.size(), 1024), [&](const tbb::blocked_range<int>& r) {
        for (int i = r.begin(); i < r.end(); ++i)
            scene.closestPoint(points[i], std::numeric_limits<float>::infinity(), &out[i]);
    });
    return distances;
}

FitReport measureFit(const GeometryStack2::GeomStackTriangulated& base, const QVector<QVector3D>& aligned,
                     const QVector<QVector3D>& result, const GeometryStack2::GeomStackTriangulated& target,
                     const QVector<Welk::WPointOnTriangle>& basePoints,
                     const QVector<Welk::WPointOnTriangle>& targetPoints)
{
    FitReport report;
    report.vertexDistances = distancesToSurface(result, target.vertices(), target.triangleVertexIndices());
    report.resultToTarget = SurfaceDistance::summarize(report.vertexDistances);
    report.targetToResult =
        SurfaceDistance::summarize(distancesToSurface(target.vertices(), result, base.triangleVertexIndices()));
    report.flippedTriangles = flippedTriangles(base.triangleVertexIndices(), aligned, result);
    report.foldsBefore = WelkingAcceleratedVersion::foldedTriangleCount(aligned, base.triangleVertexIndices());
    report.foldsAfter = WelkingAcceleratedVersion::foldedTriangleCount(result, base.triangleVertexIndices());
    const int pairs = std::min(basePoints.size(), targetPoints.size());
    double sum = 0;
    for (int i = 0; i < pairs; ++i) {
        const QVector3D reached = basePoints[i].position(result, base.triangleVertexIndices());
        const QVector3D wanted = targetPoints[i].position(target.vertices(), target.triangleVertexIndices());
        const double d = double((reached - wanted).length());
        sum += d;
        report.landmarkMax = std::max(report.landmarkMax, d);
    }
    report.landmarkCount = pairs;
    report.landmarkMean = pairs > 0 ? sum / pairs : 0.0;
    return report;
}

} // namespace WelkPlugin
