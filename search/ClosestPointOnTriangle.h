#pragma once

#include <QVector3D>

namespace ClosestTriangleSearch {

// Qt's QVector3D::dotProduct and crossProduct are not inline; these run in
// the innermost loop of every search.
inline float dot(const QVector3D& a, const QVector3D& b)
{
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}

inline QVector3D cross(const QVector3D& a, const QVector3D& b)
{
    return QVector3D(a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(),
                     a.x() * b.y() - a.y() * b.x());
}

/// The nearest point of triangle (a, b, c) to `p`, in single precision, and
/// its barycentric weights: `u` for `a`, `v` for `b`, 1 - u - v for `c`.
///
/// The Voronoi regions are tested in a fixed order (vertices a, b, c, then
/// edges ab, bc, ca, then the interior), so a point on a shared vertex or
/// edge always lands in the same case. A triangle with coincident corners
/// divides by zero on the collapsed edge: the result is then not a number
/// and never compares as nearer than anything.
inline QVector3D closestPointOnTriangle(const QVector3D& a, const QVector3D& b, const QVector3D& c,
                                        const QVector3D& p, float& u, float& v)
{
    const QVector3D ab = b - a;
    const QVector3D ac = c - a;
    const QVector3D bc = c - b;
    const QVector3D pa = p - a;
    const QVector3D pb = p - b;
    const QVector3D pc = p - c;

    const float sN = dot(pa, ab);
    const float sD = dot(pb, a - b);
    const float tN = dot(pa, ac);
    const float tD = dot(pc, a - c);
    if (sN <= 0.0f && tN <= 0.0f) {
        u = 1.0f;
        v = 0.0f;
        return a;
    }
    const float uN = dot(pb, bc);
    const float uD = dot(pc, b - c);
    if (sD <= 0.0f && uN <= 0.0f) {
        u = 0.0f;
        v = 1.0f;
        return b;
    }
    if (tD <= 0.0f && uD <= 0.0f) {
        u = 0.0f;
        v = 0.0f;
        return c;
    }

    const QVector3D n = cross(ab, ac);
    const QVector3D ap = a - p;
    const QVector3D bp = b - p;
    const QVector3D cp = c - p;
    const float vc = dot(n, cross(ap, bp));
    if (vc <= 0.0f && sN >= 0.0f && sD >= 0.0f) {
        const float s = sN / (sN + sD);
        u = 1.0f - s;
        v = s;
        return a + ab * s;
    }
    const float va = dot(n, cross(bp, cp));
    if (va <= 0.0f && uN >= 0.0f && uD >= 0.0f) {
        const float s = uN / (uN + uD);
        u = 0.0f;
        v = 1.0f - s;
        return b + bc * s;
    }
    const float vb = dot(n, cross(cp, ap));
    if (vb <= 0.0f && tN >= 0.0f && tD >= 0.0f) {
        const float s = tN / (tN + tD);
        u = 1.0f - s;
        v = 0.0f;
        return a + ac * s;
    }
    const float sum = va + vb + vc;
    u = va / sum;
    v = vb / sum;
    return a * u + b * v + c * (1.0f - u - v);
}

} // namespace ClosestTriangleSearch
