#include "fitting/accelerated/Float4.h"
#include "support/SameBits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using EmbeddedGraphDeformer::Float4;
using TestSupport::sameBits;

// The products rely on every lane giving the bits of the scalar expression
// it replaced, in the same order of operations, so that a fit's result
// does not depend on which form ran. Values over many magnitudes, so that
// any reordering or fusing would round differently somewhere.
TEST(Float4, TurnedSumsGiveTheBitsOfTheScalarExpressions)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> mantissa(-1.0f, 1.0f);
    std::uniform_int_distribution<int> exponent(-20, 20);
    const auto value = [&] { return std::ldexp(mantissa(random), exponent(random)); };
    int mismatches = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        alignas(16) float q[4], y[4], t[4], d[4], out[4];
        for (int i = 0; i < 4; ++i) {
            q[i] = value();
            y[i] = value();
            t[i] = value();
            d[i] = value();
        }
        const float w = q[3];
        // d + (q x y + w t), the reduce pass's step
        (Float4::load(d) + (cross(Float4::load(q), Float4::load(y)) + Float4::load(q).wwww() * Float4::load(t)))
            .store(out);
        const float turned[3] = {d[0] + (q[1] * y[2] - q[2] * y[1] + w * t[0]),
                                 d[1] + (q[2] * y[0] - q[0] * y[2] + w * t[1]),
                                 d[2] + (q[0] * y[1] - q[1] * y[0] + w * t[2])};
        for (int r = 0; r < 3; ++r)
            mismatches += !sameBits(out[r], turned[r]);
        // a + g x q and t - g, the gather's steps
        (Float4::load(d) + cross(Float4::load(y), Float4::load(q))).store(out);
        const float crossed[3] = {d[0] + (y[1] * q[2] - y[2] * q[1]), d[1] + (y[2] * q[0] - y[0] * q[2]),
                                  d[2] + (y[0] * q[1] - y[1] * q[0])};
        for (int r = 0; r < 3; ++r)
            mismatches += !sameBits(out[r], crossed[r]);
        (Float4::load(t) - Float4::load(y)).store(out);
        for (int r = 0; r < 3; ++r)
            mismatches += !sameBits(out[r], t[r] - y[r]);
        (Float4::splat(w) * Float4::load(t)).store(out);
        for (int r = 0; r < 4; ++r)
            mismatches += !sameBits(out[r], w * t[r]);
    }
    EXPECT_EQ(mismatches, 0);
}
