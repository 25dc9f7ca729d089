#pragma once

#include "ClosestPointLookup.h"

#include "geometry/GeomStackTriangulated.h"
#include "geometry/WPointOnTriangle.h"

#include <QVector3D>
#include <QVector>

#include <memory>

/// Curves through the control points of a spline. A spline is stored as
/// surface points (`WPointOnTriangle`); a curve is evaluated in space
/// through their positions, and samples that must lie on the model are put
/// back on it by a closest-point lookup.
namespace WSpline {

/// A curve through an ordered list of control positions: segment i runs
/// from control i to control i + 1 and passes through both.
class Curve
{
public:
    virtual ~Curve() = default;

    /// The point of segment `segment` (0 to controls - 2) at `t` in [0, 1].
    virtual QVector3D evaluate(const QVector<QVector3D>& controls, int segment, float t) const = 0;

    /// A dense polyline through the curve, `perSegment` steps a segment,
    /// ending exactly on the last control. `segments`, when given, receives
    /// the segment of each polyline point (the last point: the last
    /// segment). A single control gives itself; none gives nothing.
    QVector<QVector3D> polyline(const QVector<QVector3D>& controls, int perSegment = 16,
                                QVector<int>* segments = nullptr) const;

    /// `count` positions evenly spaced by arc length along the curve, the
    /// first and last on the end controls. A single control is repeated.
    QVector<QVector3D> sample(const QVector<QVector3D>& controls, int count, int perSegment = 16) const;

    /// Length of the curve, measured along `polyline`.
    float length(const QVector<QVector3D>& controls, int perSegment = 16) const;
};

/// Centripetal Catmull-Rom: smooth through every control, with no cusps or
/// self-loops where controls are unevenly spaced. The ends are continued by
/// mirroring the neighbouring control.
class CatmullRomSpline : public Curve
{
public:
    QVector3D evaluate(const QVector<QVector3D>& controls, int segment, float t) const override;
};

/// Straight segments between controls.
class PiecewiseLinearSpline : public Curve
{
public:
    QVector3D evaluate(const QVector<QVector3D>& controls, int segment, float t) const override;
};

enum class CurveType
{
    CatmullRom,
    PiecewiseLinear,
};

std::unique_ptr<Curve> makeCurve(CurveType type);

/// Positions of surface points on `mesh`; points off the mesh are skipped.
QVector<QVector3D> controlPositions(const QVector<Welk::WPointOnTriangle>& points,
                                    const GeometryStack2::GeomStackTriangulated& mesh);

/// `count` surface points evenly spaced along the curve through `points`,
/// measured along the curve as put back on the surface by `lookup` (a
/// dense polyline of the curve is projected first, then divided). The
/// first and the last are the end controls themselves, so resampling keeps
/// a spline's ends exactly.
QVector<Welk::WPointOnTriangle> sampleOnSurface(const Curve& curve, const QVector<Welk::WPointOnTriangle>& points,
                                                const GeometryStack2::GeomStackTriangulated& mesh, int count,
                                                const WelkPlugin::ClosestPointLookup& lookup);

} // namespace WSpline
