#pragma once

#include "steps/points/SurfaceDistance.h"

#include "fitting/accelerated/FitCourse.h"
#include "geometry/WPointOnTriangle.h"

#include <QJsonObject>
#include <QVector3D>
#include <QVector>

namespace GeometryStack2 {
class GeomStackTriangulated;
}

namespace WelkPlugin {

/// How well a fitted basemesh lies on its target, in target units.
struct FitReport
{
    SurfaceDistance::Summary resultToTarget; ///< from every result vertex to the target surface
    SurfaceDistance::Summary targetToResult; ///< from every target vertex to the result surface
    /// Triangles whose normal turned by more than 90 degrees between the
    /// aligned basemesh and the result: folds the fit made.
    int flippedTriangles = 0;
    /// Fold-overs (`WelkingAcceleratedVersion::foldedTriangles`) of the
    /// aligned basemesh and of the result; the fit added the difference.
    int foldsBefore = 0;
    int foldsAfter = 0;
    int addedFolds() const { return foldsAfter - foldsBefore; }
    int landmarkCount = 0;
    double landmarkMean = 0; ///< distance of a fitted landmark from its target position
    double landmarkMax = 0;
    /// Per result vertex, its distance to the target surface (target units):
    /// what a heat map of the fit shows.
    QVector<float> vertexDistances;

    /// The report's JSON object: "resultToTarget" and "targetToResult" each
    /// with "mean", "rms", "p95", "max", "points"; "flippedTriangles";
    /// "foldOvers" with "before", "after", "added"; and "landmarks" with
    /// "count", "mean", "max" when there are landmarks.
    QJsonObject toJson() const;
};

/// The course's JSON object: "startDistance", "endDistance" (RMS distance
/// to the nearest target vertex), "rounds", "rejectedRounds", "flownOffVertices",
/// "foldsBeforeRepair", "foldsAfterRepair" and "diverged".
QJsonObject fitCourseJson(const WelkingAcceleratedVersion::FitCourse& course);
/// Empty for a fit that went well; otherwise what went wrong, for the user.
QString divergenceMessage(const WelkingAcceleratedVersion::FitCourse& course);

/// Triangles of `triangles` whose orientation flips from `before` to `after`.
int flippedTriangles(const QVector<int>& triangles, const QVector<QVector3D>& before, const QVector<QVector3D>& after);

/// Exact distances from each point to the nearest point of the triangle
/// mesh, in parallel (Embree's point query over one scene of the mesh).
QVector<float> distancesToSurface(const QVector<QVector3D>& points, const QVector<QVector3D>& vertices,
                                  const QVector<int>& triangles);

/// Measures `result` (the basemesh's vertices after the fit, in the
/// target's frame) against `target`: exact point-to-surface distances both
/// ways. `aligned` is the basemesh before the fit in the same frame. The
/// point lists pair landmarks as in the fit.
FitReport measureFit(const GeometryStack2::GeomStackTriangulated& base, const QVector<QVector3D>& aligned,
                     const QVector<QVector3D>& result, const GeometryStack2::GeomStackTriangulated& target,
                     const QVector<Welk::WPointOnTriangle>& basePoints,
                     const QVector<Welk::WPointOnTriangle>& targetPoints);

} // namespace WelkPlugin
