#include "WSpline.h"

#include <algorithm>
#include <cmath>

namespace WSpline {

QVector<QVector3D> Curve::polyline(const QVector<QVector3D>& controls, int perSegment, QVector<int>* segments) const
{
    QVector<QVector3D> line;
    if (segments)
        segments->clear();
    if (controls.size() == 1) {
        line.append(controls[0]);
        if (segments)
            segments->append(0);
    }
    if (controls.size() < 2)
        return line;
    perSegment = std::max(1, perSegment);
    for (int s = 0; s + 1 < controls.size(); ++s)
        for (int k = 0; k < perSegment; ++k) {
            line.append(k == 0 ? controls[s] : evaluate(controls, s, float(k) / float(perSegment)));
            if (segments)
                segments->append(s);
        }
    line.append(controls.last());
    if (segments)
        segments->append(controls.size() - 2);
    return line;
}

float Curve::length(const QVector<QVector3D>& controls, int perSegment) const
{
    const QVector<QVector3D> line = polyline(controls, perSegment);
    float total = 0;
    for (int i = 1; i < line.size(); ++i)
        total += (line[i] - line[i - 1]).length();
    return total;
}

QVector<QVector3D> Curve::sample(const QVector<QVector3D>& controls, int count, int perSegment) const
{
    QVector<QVector3D> samples;
    if (controls.isEmpty() || count <= 0)
        return samples;
    if (controls.size() == 1 || count == 1) {
        samples.fill(controls[0], count);
        return samples;
    }
    const QVector<QVector3D> line = polyline(controls, perSegment);
    QVector<double> along(line.size(), 0.0);
    for (int i = 1; i < line.size(); ++i)
        along[i] = along[i - 1] + double((line[i] - line[i - 1]).length());
    const double total = along.last();
    samples.reserve(count);
    samples.append(controls.first());
    int j = 1;
    for (int k = 1; k + 1 < count; ++k) {
        const double at = total * double(k) / double(count - 1);
        while (j + 1 < line.size() && along[j] < at)
            ++j;
        const double span = along[j] - along[j - 1];
        const float f = span > 0 ? float((at - along[j - 1]) / span) : 0.0f;
        samples.append(line[j - 1] + f * (line[j] - line[j - 1]));
    }
    samples.append(controls.last());
    return samples;
}

QVector3D CatmullRomSpline::evaluate(const QVector<QVector3D>& controls, int segment, float t) const
{
    const int n = controls.size();
    const QVector3D& p1 = controls[segment];
    const QVector3D& p2 = controls[segment + 1];
    const QVector3D p0 = segment > 0 ? controls[segment - 1] : 2.0f * p1 - p2;
    const QVector3D p3 = segment + 2 < n ? controls[segment + 2] : 2.0f * p2 - p1;

    // Barry and Goldman's pyramidal form with knots spaced by the square
    // root of the chord lengths (centripetal parametrisation).
    const auto knot = [](const QVector3D& a, const QVector3D& b) {
        const float d = std::sqrt((b - a).length());
        return d > 1e-12f ? d : 1.0f;
    };
    if ((p2 - p1).lengthSquared() == 0.0f)
        return p1;
    const float t0 = 0, t1 = t0 + knot(p0, p1), t2 = t1 + knot(p1, p2), t3 = t2 + knot(p2, p3);
    const float u = t1 + t * (t2 - t1);
    const QVector3D a1 = (t1 - u) / (t1 - t0) * p0 + (u - t0) / (t1 - t0) * p1;
    const QVector3D a2 = (t2 - u) / (t2 - t1) * p1 + (u - t1) / (t2 - t1) * p2;
    const QVector3D a3 = (t3 - u) / (t3 - t2) * p2 + (u - t2) / (t3 - t2) * p3;
    const QVector3D b1 = (t2 - u) / (t2 - t0) * a1 + (u - t0) / (t2 - t0) * a2;
    const QVector3D b2 = (t3 - u) / (t3 - t1) * a2 + (u - t1) / (t3 - t1) * a3;
    return (t2 - u) / (t2 - t1) * b1 + (u - t1) / (t2 - t1) * b2;
}

QVector3D PiecewiseLinearSpline::evaluate(const QVector<QVector3D>& controls, int segment, float t) const
{
    return controls[segment] + t * (controls[segment + 1] - controls[segment]);
}

std::unique_ptr<Curve> makeCurve(CurveType type)
{
    if (type == CurveType::PiecewiseLinear)
        return std::make_unique<PiecewiseLinearSpline>();
    return std::make_unique<CatmullRomSpline>();
}

QVector<QVector3D> controlPositions(const QVector<Welk::WPointOnTriangle>& points,
                                    const GeometryStack2::GeomStackTriangulated& mesh)
{
    QVector<QVector3D> positions;
    positions.reserve(points.size());
    for (const Welk::WPointOnTriangle& p : points)
        if (p.isValid() && p.triangle < mesh.triangleCount())
            positions.append(p.position(mesh.vertices(), mesh.triangleVertexIndices()));
    return positions;
}

QVector<Welk::WPointOnTriangle> sampleOnSurface(const Curve& curve, const QVector<Welk::WPointOnTriangle>& points,
                                                const GeometryStack2::GeomStackTriangulated& mesh, int count,
                                                const WelkPlugin::ClosestPointLookup& lookup)
{
    QVector<Welk::WPointOnTriangle> valid;
    for (const Welk::WPointOnTriangle& p : points)
        if (p.isValid() && p.triangle < mesh.triangleCount())
            valid.append(p);
    QVector<Welk::WPointOnTriangle> result;
    if (valid.isEmpty() || count <= 0)
        return result;
    // The curve through the control positions cuts through or above the
    // surface where it bends; spacing the samples along the curve put back
    // on the surface keeps them even on the model too.
    const QVector<QVector3D> controls = controlPositions(valid, mesh);
    QVector<QVector3D> onSurface;
    if (valid.size() > 1) {
        const QVector<QVector3D> dense = curve.polyline(controls, 16);
        onSurface.reserve(dense.size());
        for (int k = 0; k < dense.size(); ++k) {
            const Welk::WPointOnTriangle p = k == 0 ? valid.first() : k + 1 == dense.size() ? valid.last() : lookup(dense[k]);
            if (p.isValid())
                onSurface.append(p.position(mesh.vertices(), mesh.triangleVertexIndices()));
        }
    }
    const PiecewiseLinearSpline along;
    const QVector<QVector3D> samples = along.sample(onSurface.size() > 1 ? onSurface : controls, count, 1);
    result.reserve(samples.size());
    for (int k = 0; k < samples.size(); ++k) {
        if (k == 0 || valid.size() == 1)
            result.append(valid.first());
        else if (k + 1 == samples.size())
            result.append(valid.last());
        else
            result.append(lookup(samples[k]));
    }
    return result;
}

} // namespace WSpline
