#pragma once

#include "ClosestPointLookup.h"
#include "SplinesState.h"
#include "WSpline.h"

#include "geometry/GeomStackTriangulated.h"

#include <QStringList>

namespace WelkPlugin {

class SplineSelectionModel;

/// Splines of the two models turned into point pairs for the fit: each
/// paired spline is sampled to the same number of points, evenly by arc
/// length along its curve, and sample k of one pairs with sample k of the
/// other. The pairs go after the correspondence points
/// (`ModelsData::setSplinePoints` on both sides, read back by `allPoints`).
/// A spline must run the same way on both models: its first control point
/// pairs with the partner's first.
namespace SplinePointPairs {

struct Side
{
    const GeometryStack2::GeomStackTriangulated* mesh = nullptr;
    ClosestPointLookup lookup; ///< puts curve samples back on `mesh`
};

struct Result
{
    QVector<Welk::WPointOnTriangle> base;
    QVector<Welk::WPointOnTriangle> target;
    QStringList paired;         ///< names (base side) of the splines used
    QStringList unpairedBase;   ///< base splines without a partner
    QStringList unpairedTarget; ///< target splines without a partner
    QStringList empty;          ///< paired names left out for lack of points
};

/// Pairs splines that have the same name on both models. `count` is the
/// number of samples a spline (2 to 1000).
Result byName(const SplineMap& base, const SplineMap& target, const Side& baseSide, const Side& targetSide,
              int count, const WSpline::Curve& curve);

/// Pairs the i-th spline of one list with the i-th of the other (files
/// without names); the longer list's rest is reported unpaired, named
/// by `names`.
Result byIndex(const QVector<QVector<Welk::WPointOnTriangle>>& base,
               const QVector<QVector<Welk::WPointOnTriangle>>& target, const QStringList& baseNames,
               const QStringList& targetNames, const Side& baseSide, const Side& targetSide, int count,
               const WSpline::Curve& curve);

/// The window's pairs: same-named splines of the two models' spline sets,
/// sampled to the base set's points per spline along its curve. Hand
/// `base` and `target` to `ModelsData::setSplinePoints` for sides 0 and 1.
Result fromModels(const SplineSelectionModel& base, const SplineSelectionModel& target);

} // namespace SplinePointPairs
} // namespace WelkPlugin
