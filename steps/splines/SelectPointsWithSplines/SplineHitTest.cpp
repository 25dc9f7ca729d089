#include "SplineHitTest.h"

#include <cmath>

namespace Welk {
namespace SelectPointsWithSplines {

namespace {

double segmentDistance(const QPointF& p, const QPointF& a, const QPointF& b)
{
    const QPointF ab = b - a;
    const double length2 = QPointF::dotProduct(ab, ab);
    double t = length2 > 0 ? QPointF::dotProduct(p - a, ab) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    const QPointF d = p - (a + t * ab);
    return std::sqrt(QPointF::dotProduct(d, d));
}

} // namespace

SplineHit hitTest(const QVector<HitCandidate>& splines, const WSpline::Curve& curve,
                  const RendererInterface& renderer, const QPointF& screen, double tolerance)
{
    SplineHit control, line;
    control.distance = line.distance = tolerance;
    for (const HitCandidate& spline : splines) {
        for (int i = 0; i < spline.controls.size(); ++i) {
            QPointF s;
            if (!renderer.projectToScreen(spline.controls[i], s))
                continue;
            const QPointF d = s - screen;
            const double distance = std::sqrt(QPointF::dotProduct(d, d));
            if (distance <= control.distance) {
                control = SplineHit{SplineHit::ControlPoint, spline.name, i, distance};
            }
        }
        QVector<int> segments;
        const QVector<QVector3D> polyline = curve.polyline(spline.controls, 16, &segments);
        QPointF previous;
        bool havePrevious = false;
        for (int k = 0; k < polyline.size(); ++k) {
            QPointF s;
            if (!renderer.projectToScreen(polyline[k], s)) {
                havePrevious = false;
                continue;
            }
            if (havePrevious) {
                const double distance = segmentDistance(screen, previous, s);
                if (distance <= line.distance)
                    line = SplineHit{SplineHit::Curve, spline.name, segments[k - 1], distance};
            }
            previous = s;
            havePrevious = true;
        }
    }
    if (control.kind != SplineHit::None)
        return control;
    return line;
}

} // namespace SelectPointsWithSplines
} // namespace Welk
