#pragma once

#include "geometry/WPointOnTriangle.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QVector3D>
#include <QVector>

namespace Welk {

/// Weights (w0, w1, w2) of the projection of `x` onto the plane of the
/// triangle p0 p1 p2, with w0 + w1 + w2 = 1; outside the triangle some are
/// negative. A degenerate triangle gives non-finite weights.
QVector3D barycentricCoordinates(const QVector3D& x, const QVector3D& p0, const QVector3D& p1, const QVector3D& p2);

/// `x` projected onto triangle `triangle` of a mesh (vertices and three
/// corner indices a triangle), as a point of that triangle.
WPointOnTriangle pointOnTriangle(int triangle, const QVector3D& x, const QVector<QVector3D>& vertices,
                                 const QVector<int>& triangleVertexIndices);

/// The single-point form: {"triangleInd": t, "u": u, "v": v}.
QJsonObject pointToJsonObject(const WPointOnTriangle& point);
/// Reads the single-point form; false, leaving `point` alone, unless the
/// value is an object with all three keys holding numbers.
bool pointFromJsonObject(const QJsonValue& value, WPointOnTriangle& point);

/// The strict, silent list reader of stored data: an array of [t, u, v]
/// arrays of numbers, or false with `points` left alone.
bool pointsFromJson(const QJsonValue& value, QVector<WPointOnTriangle>& points);

} // namespace Welk
