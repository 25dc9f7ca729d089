#pragma once

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace EmbeddedGraphDeformer {

/// Four floats in one register, for the products' 3-vectors (the fourth
/// lane holds a block's weight, read through `wwww`, or rides along and is
/// never read back). Each lane does exactly the
/// scalar operations in the scalar order, without fused multiply-adds, so
/// a loop written with it gives the bits of the same loop on plain floats.
/// Loads and stores want 16-byte aligned addresses.
struct Float4
{
#if defined(__x86_64__) && defined(__GNUC__)
    __m128 v;

    static Float4 load(const float* p) { return {_mm_load_ps(p)}; }
    static Float4 zero() { return {_mm_setzero_ps()}; }
    static Float4 splat(float s) { return {_mm_set1_ps(s)}; }
    void store(float* p) const { _mm_store_ps(p, v); }
    /// (y, z, x) and (z, x, y) in the first three lanes.
    Float4 yzx() const { return {_mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 0, 2, 1))}; }
    Float4 zxy() const { return {_mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 1, 0, 2))}; }
    /// The fourth lane in all four.
    Float4 wwww() const { return {_mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 3, 3, 3))}; }
    friend Float4 operator+(Float4 a, Float4 b) { return {_mm_add_ps(a.v, b.v)}; }
    friend Float4 operator-(Float4 a, Float4 b) { return {_mm_sub_ps(a.v, b.v)}; }
    friend Float4 operator*(Float4 a, Float4 b) { return {_mm_mul_ps(a.v, b.v)}; }
#else
    float v[4];

    static Float4 load(const float* p) { return {{p[0], p[1], p[2], p[3]}}; }
    static Float4 zero() { return {{0.0f, 0.0f, 0.0f, 0.0f}}; }
    static Float4 splat(float s) { return {{s, s, s, s}}; }
    void store(float* p) const
    {
        for (int i = 0; i < 4; ++i)
            p[i] = v[i];
    }
    Float4 yzx() const { return {{v[1], v[2], v[0], v[3]}}; }
    Float4 zxy() const { return {{v[2], v[0], v[1], v[3]}}; }
    Float4 wwww() const { return {{v[3], v[3], v[3], v[3]}}; }
    friend Float4 operator+(Float4 a, Float4 b)
    {
        return {{a.v[0] + b.v[0], a.v[1] + b.v[1], a.v[2] + b.v[2], a.v[3] + b.v[3]}};
    }
    friend Float4 operator-(Float4 a, Float4 b)
    {
        return {{a.v[0] - b.v[0], a.v[1] - b.v[1], a.v[2] - b.v[2], a.v[3] - b.v[3]}};
    }
    friend Float4 operator*(Float4 a, Float4 b)
    {
        return {{a.v[0] * b.v[0], a.v[1] * b.v[1], a.v[2] * b.v[2], a.v[3] * b.v[3]}};
    }
#endif

    /// a x b in the first three lanes, each as (a_i b_j) - (a_j b_i).
    friend Float4 cross(Float4 a, Float4 b) { return a.yzx() * b.zxy() - a.zxy() * b.yzx(); }
};

} // namespace EmbeddedGraphDeformer
