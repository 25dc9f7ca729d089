#pragma once

#include "RendererInterface.h"

#include "steps/splines/WSpline.h"

#include <QPointF>
#include <QString>
#include <QVector3D>
#include <QVector>

namespace Welk {
namespace SelectPointsWithSplines {

/// What lies under the cursor among some splines, in screen space.
struct SplineHit
{
    enum Kind
    {
        None,
        Curve,        ///< `index`: the segment, between controls index and index + 1
        ControlPoint, ///< `index`: the control point
    };
    Kind kind = None;
    QString name;
    int index = -1;
    double distance = 0; ///< pixels from the cursor

    bool onSpline() const { return kind != None; }
};

/// A spline to test: name and control positions.
struct HitCandidate
{
    QString name;
    QVector<QVector3D> controls;
};

/// The nearest control point within `tolerance` pixels of `screen`, else
/// the nearest curve within it, else None. Control points win over curves
/// so that a point on a curve stays grabbable.
SplineHit hitTest(const QVector<HitCandidate>& splines, const WSpline::Curve& curve,
                  const RendererInterface& renderer, const QPointF& screen, double tolerance);

} // namespace SelectPointsWithSplines
} // namespace Welk
