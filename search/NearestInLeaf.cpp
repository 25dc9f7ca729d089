#include "NearestInLeaf.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define ZWELK_NEAREST_IN_LEAF_AVX2 1
#endif

namespace KDTreeAcceleratedVersion {

long nearestInLeafScalar(const float* xs, const float* ys, const float* zs, std::size_t rowLength, float px,
                         float py, float pz, float& distanceSq)
{
    long found = -1;
    for (std::size_t i = 0; i < rowLength; ++i) {
        const float dx = xs[i] - px, dy = ys[i] - py, dz = zs[i] - pz;
        const float d = dx * dx + dy * dy + dz * dz;
        if (d < distanceSq) {
            distanceSq = d;
            found = long(i);
        }
    }
    return found;
}

#ifdef ZWELK_NEAREST_IN_LEAF_AVX2

namespace {

// The "avx2" target has no fused multiply-add, so the compiler cannot merge
// a product into a sum and change the distance's rounding.
__attribute__((target("avx2"))) inline __m256 squaredDistances(const float* xs, const float* ys, const float* zs,
                                                               std::size_t i, __m256 px, __m256 py, __m256 pz)
{
    const __m256 dx = _mm256_sub_ps(_mm256_loadu_ps(xs + i), px);
    const __m256 dy = _mm256_sub_ps(_mm256_loadu_ps(ys + i), py);
    const __m256 dz = _mm256_sub_ps(_mm256_loadu_ps(zs + i), pz);
    return _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(dx, dx), _mm256_mul_ps(dy, dy)), _mm256_mul_ps(dz, dz));
}

// The least distance first (a NaN never wins: `min` returns its second
// operand when either is NaN), then the first point at that distance.
__attribute__((target("avx2"))) long nearestInLeafAvx2(const float* xs, const float* ys, const float* zs,
                                                        std::size_t rowLength, float px, float py, float pz,
                                                        float& distanceSq)
{
    const __m256 x = _mm256_set1_ps(px), y = _mm256_set1_ps(py), z = _mm256_set1_ps(pz);
    __m256 least = _mm256_set1_ps(__builtin_inff());
    for (std::size_t i = 0; i < rowLength; i += 8)
        least = _mm256_min_ps(squaredDistances(xs, ys, zs, i, x, y, z), least);
    __m128 half = _mm_min_ps(_mm256_castps256_ps128(least), _mm256_extractf128_ps(least, 1));
    half = _mm_min_ps(half, _mm_movehl_ps(half, half));
    half = _mm_min_ss(half, _mm_shuffle_ps(half, half, 1));
    const float m = _mm_cvtss_f32(half);
    if (!(m < distanceSq))
        return -1;
    const __m256 target = _mm256_set1_ps(m);
    for (std::size_t i = 0; i < rowLength; i += 8) {
        const int equal =
            _mm256_movemask_ps(_mm256_cmp_ps(squaredDistances(xs, ys, zs, i, x, y, z), target, _CMP_EQ_OQ));
        if (equal != 0) {
            distanceSq = m;
            return long(i) + __builtin_ctz(unsigned(equal));
        }
    }
    return -1; // not reached: m is one of the distances
}

bool hasAvx2()
{
    static const bool available = __builtin_cpu_supports("avx2");
    return available;
}

} // namespace

#endif

long nearestInLeaf(const float* xs, const float* ys, const float* zs, std::size_t rowLength, float px, float py,
                   float pz, float& distanceSq)
{
#ifdef ZWELK_NEAREST_IN_LEAF_AVX2
    if (hasAvx2())
        return nearestInLeafAvx2(xs, ys, zs, rowLength, px, py, pz, distanceSq);
#endif
    return nearestInLeafScalar(xs, ys, zs, rowLength, px, py, pz, distanceSq);
}

} // namespace KDTreeAcceleratedVersion
