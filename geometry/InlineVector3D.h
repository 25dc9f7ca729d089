#pragma once

#include <QVector3D>

#include <cmath>

namespace GeometryStack2 {

/// QVector3D's cross product and normalisation, written out inline.
///
/// Qt keeps these members out of line, so a loop over millions of corners
/// pays two calls per corner and cannot be vectorised. These functions do
/// the same operations in the same order and precision as Qt 5's members
/// (floats for the cross product; the length in double, compared with the
/// same fuzzy bounds), so their results are the same bits: stored normals
/// and everything derived from them do not change.
namespace InlineVector3D {

inline bool fuzzyIsNull(double d)
{
    return std::fabs(d) <= 0.000000000001;
}

inline QVector3D crossProduct(const QVector3D& a, const QVector3D& b)
{
    return QVector3D(a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(), a.x() * b.y() - a.y() * b.x());
}

inline double lengthSquared(const QVector3D& v)
{
    return double(v.x()) * double(v.x()) + double(v.y()) * double(v.y()) + double(v.z()) * double(v.z());
}

/// `v.normalized()`.
inline QVector3D normalized(const QVector3D& v)
{
    const double len = lengthSquared(v);
    if (fuzzyIsNull(len - 1.0f))
        return v;
    if (fuzzyIsNull(len))
        return QVector3D();
    const double sqrtLen = std::sqrt(len);
    return QVector3D(float(double(v.x()) / sqrtLen), float(double(v.y()) / sqrtLen), float(double(v.z()) / sqrtLen));
}

/// `v.normalize()`.
inline void normalize(QVector3D& v)
{
    const double len = lengthSquared(v);
    if (fuzzyIsNull(len - 1.0f) || fuzzyIsNull(len))
        return;
    const double sqrtLen = std::sqrt(len);
    v = QVector3D(float(double(v.x()) / sqrtLen), float(double(v.y()) / sqrtLen), float(double(v.z()) / sqrtLen));
}

} // namespace InlineVector3D
} // namespace GeometryStack2
