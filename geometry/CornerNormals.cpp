#include "CornerNormals.h"

#include "InlineVector3D.h"

#include <algorithm>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define ZWELK_CORNER_NORMALS_AVX 1
#endif

namespace GeometryStack2 {

namespace {

inline QVector3D cornerNormal(const QVector3D* positions, int previous, int centre, int next)
{
    const QVector3D& c = positions[centre];
    const QVector3D a = (positions[next] - c) * 1000.0f;
    const QVector3D b = (positions[previous] - c) * 1000.0f;
    return InlineVector3D::normalized(InlineVector3D::crossProduct(a, b));
}

#ifdef ZWELK_CORNER_NORMALS_AVX

// Chunks of vectors kept as three coordinate rows, so that four of them
// fill a 256-bit register of doubles.
constexpr int Chunk = 64;
using Rows = float[3][Chunk];

// Qt's normalisation of `size` vectors of `in` into `out`, four at a time:
// the length, the square root and the divisions in double, as the scalar
// form does them. A length within 1e-12 of one keeps the vector as it is;
// one within 1e-12 of zero gives zero (`normalized`) or keeps the vector
// (`normalize`, `zeroNull` false); a NaN is neither. The "avx" target has no
// fused multiply-add, so the compiler cannot merge a product into a sum and
// change its rounding.
__attribute__((target("avx"))) void normaliseRows(const Rows& in, Rows& out, int size, bool zeroNull)
{
    const __m256d one = _mm256_set1_pd(1.0);
    const __m256d fuzz = _mm256_set1_pd(0.000000000001);
    const __m256d sign = _mm256_set1_pd(-0.0);
    for (int k = 0; k < size; k += 4) {
        __m256d wide[3];
        for (int axis = 0; axis < 3; ++axis)
            wide[axis] = _mm256_cvtps_pd(_mm_load_ps(in[axis] + k));
        const __m256d length =
            _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(wide[0], wide[0]), _mm256_mul_pd(wide[1], wide[1])),
                          _mm256_mul_pd(wide[2], wide[2]));
        const __m256d unit = _mm256_cmp_pd(_mm256_andnot_pd(sign, _mm256_sub_pd(length, one)), fuzz, _CMP_LE_OQ);
        const __m256d null = _mm256_cmp_pd(_mm256_andnot_pd(sign, length), fuzz, _CMP_LE_OQ);
        const __m256d root = _mm256_sqrt_pd(length);
        const __m256d keep = zeroNull ? unit : _mm256_or_pd(unit, null);
        for (int axis = 0; axis < 3; ++axis) {
            __m256d value = _mm256_div_pd(wide[axis], root);
            if (zeroNull)
                value = _mm256_andnot_pd(null, value);
            value = _mm256_blendv_pd(value, wide[axis], keep);
            _mm_store_ps(out[axis] + k, _mm256_cvtpd_ps(value));
        }
    }
}

// The same, eight at a time: Zen 5 and recent Intel cores divide and take
// square roots of eight doubles per instruction. Each lane's operations are
// the same correctly rounded ones, so the bits do not change. This target
// has fused multiply-adds, and the compiler may fuse the length's squares
// into its sums; the square of a float is exact in double, so a fused sum
// rounds as the plain one does. (GCC 12's own AVX-512 headers start some
// results from an undefined register and then warn about it: PR 105593.)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
__attribute__((target("avx512f"))) void normaliseRows512(const Rows& in, Rows& out, int size, bool zeroNull)
{
    const __m512d one = _mm512_set1_pd(1.0);
    const __m512d fuzz = _mm512_set1_pd(0.000000000001);
    for (int k = 0; k < size; k += 8) {
        __m512d wide[3];
        for (int axis = 0; axis < 3; ++axis)
            wide[axis] = _mm512_cvtps_pd(_mm256_load_ps(in[axis] + k));
        const __m512d length =
            _mm512_add_pd(_mm512_add_pd(_mm512_mul_pd(wide[0], wide[0]), _mm512_mul_pd(wide[1], wide[1])),
                          _mm512_mul_pd(wide[2], wide[2]));
        const __mmask8 unit = _mm512_cmp_pd_mask(_mm512_abs_pd(_mm512_sub_pd(length, one)), fuzz, _CMP_LE_OQ);
        const __mmask8 null = _mm512_cmp_pd_mask(_mm512_abs_pd(length), fuzz, _CMP_LE_OQ);
        const __m512d root = _mm512_sqrt_pd(length);
        const __mmask8 keep = zeroNull ? unit : __mmask8(unit | null);
        for (int axis = 0; axis < 3; ++axis) {
            __m512d value = _mm512_div_pd(wide[axis], root);
            if (zeroNull)
                value = _mm512_maskz_mov_pd(__mmask8(~null), value);
            value = _mm512_mask_blend_pd(keep, value, wide[axis]);
            _mm256_store_ps(out[axis] + k, _mm512_cvtpd_ps(value));
        }
    }
}
#pragma GCC diagnostic pop

bool hasAvx()
{
    static const bool available = __builtin_cpu_supports("avx");
    return available;
}

bool hasAvx512()
{
    static const bool available = hasAvx() && __builtin_cpu_supports("avx512f");
    return available;
}

void normaliseRowsAt(int step, const Rows& in, Rows& out, int size, bool zeroNull)
{
    if (step >= 8)
        normaliseRows512(in, out, size, zeroNull);
    else
        normaliseRows(in, out, size, zeroNull);
}

/// Zeroes the rows' tail up to the next multiple of eight, which the vector
/// steps read but nobody uses.
void padRows(Rows& rows, int size)
{
    for (int k = size; k < ((size + 7) & ~7); ++k)
        rows[0][k] = rows[1][k] = rows[2][k] = 0.0f;
}

// The corners a chunk at a time in two passes: the edges and the cross
// products in float, one corner at a time (their loads are scattered, and
// packing them into vectors cost more than the arithmetic saved), then their
// normalisation four or eight at a time.
__attribute__((target("avx"))) void cornerNormalsAvx(int step, const QVector3D* positions, const int* previous,
                                                      const int* centre, const int* next, int count,
                                                      QVector3D* normals)
{
    alignas(32) Rows cross;
    alignas(32) Rows unit;
    for (int start = 0; start < count; start += Chunk) {
        const int size = std::min(Chunk, count - start);
        for (int k = 0; k < size; ++k) {
            const QVector3D& c = positions[centre[start + k]];
            const QVector3D a = (positions[next[start + k]] - c) * 1000.0f;
            const QVector3D b = (positions[previous[start + k]] - c) * 1000.0f;
            const QVector3D v = InlineVector3D::crossProduct(a, b);
            for (int axis = 0; axis < 3; ++axis)
                cross[axis][k] = v[axis];
        }
        padRows(cross, size);
        normaliseRowsAt(step, cross, unit, size, true);
        for (int k = 0; k < size; ++k)
            normals[start + k] = QVector3D(unit[0][k], unit[1][k], unit[2][k]);
    }
}

__attribute__((target("avx"))) void normalizeAvx(int step, QVector3D* vectors, int count)
{
    alignas(32) Rows rows;
    for (int start = 0; start < count; start += Chunk) {
        const int size = std::min(Chunk, count - start);
        for (int k = 0; k < size; ++k)
            for (int axis = 0; axis < 3; ++axis)
                rows[axis][k] = vectors[start + k][axis];
        padRows(rows, size);
        normaliseRowsAt(step, rows, rows, size, false);
        for (int k = 0; k < size; ++k)
            vectors[start + k] = QVector3D(rows[0][k], rows[1][k], rows[2][k]);
    }
}

#endif

} // namespace

void cornerNormalsScalar(const QVector3D* positions, const int* previous, const int* centre, const int* next,
                         int count, QVector3D* normals)
{
    for (int i = 0; i < count; ++i)
        normals[i] = cornerNormal(positions, previous[i], centre[i], next[i]);
}

void normalizeAllScalar(QVector3D* vectors, int count)
{
    for (int i = 0; i < count; ++i)
        InlineVector3D::normalize(vectors[i]);
}

int widestNormalStep()
{
#ifdef ZWELK_CORNER_NORMALS_AVX
    return hasAvx512() ? 8 : hasAvx() ? 4 : 1;
#else
    return 1;
#endif
}

void normalizeAll(QVector3D* vectors, int count, int step)
{
    step = step > 0 ? std::min(step, widestNormalStep()) : widestNormalStep();
#ifdef ZWELK_CORNER_NORMALS_AVX
    if (step >= 4) {
        normalizeAvx(step, vectors, count);
        return;
    }
#endif
    normalizeAllScalar(vectors, count);
}

void cornerNormals(const QVector3D* positions, const int* previous, const int* centre, const int* next, int count,
                   QVector3D* normals, int step)
{
    step = step > 0 ? std::min(step, widestNormalStep()) : widestNormalStep();
#ifdef ZWELK_CORNER_NORMALS_AVX
    if (step >= 4) {
        cornerNormalsAvx(step, positions, previous, centre, next, count, normals);
        return;
    }
#endif
    cornerNormalsScalar(positions, previous, centre, next, count, normals);
}

} // namespace GeometryStack2
