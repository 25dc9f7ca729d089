#pragma once

#include <QVector3D>

namespace GeometryStack2 {

/// The unit normal at each of `count` corners: corner i is the polygon
/// corner `centre[i]` between `previous[i]` and `next[i]`, and its normal is
/// Qt's `QVector3D::crossProduct(a, b).normalized()` of the edges
/// a = (next - centre) * 1000 and b = (previous - centre) * 1000, bit for
/// bit (the factor keeps tiny edges' cross products in float range).
///
/// Loading a dense mesh spends most of its normals' time in the double
/// square root and divisions of that normalisation. On a processor with AVX
/// four corners share each of them, with AVX-512 eight; every operation is
/// the same correctly rounded one as in the scalar form, in the same order,
/// and no fused multiply-add can round differently, so the result does not
/// depend on the processor. `step` caps the corners per vector step (1, 4 or 8; 0 for the
/// widest this processor has), so that each form can be checked anywhere it
/// runs.
void cornerNormals(const QVector3D* positions, const int* previous, const int* centre, const int* next, int count,
                   QVector3D* normals, int step = 0);

/// The widest vector step the forms here use on this processor: 8, 4 or 1.
int widestNormalStep();

/// The same, one corner at a time whatever the processor: the reference
/// the vector form is checked against.
void cornerNormalsScalar(const QVector3D* positions, const int* previous, const int* centre, const int* next,
                         int count, QVector3D* normals);

/// Qt's `QVector3D::normalize()` of each of `count` vectors, in place, bit
/// for bit, `step` at a time as above.
void normalizeAll(QVector3D* vectors, int count, int step = 0);
void normalizeAllScalar(QVector3D* vectors, int count);

} // namespace GeometryStack2
