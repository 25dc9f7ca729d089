#include "geometry/InlineVector3D.h"
#include "support/SameBits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

namespace Inline = GeometryStack2::InlineVector3D;

using TestSupport::sameBits;

/// Vectors around the branches of Qt's normalisation: zero, lengths within
/// its fuzzy bound of 0 and of 1, denormals, huge and ordinary values.
std::vector<QVector3D> awkwardVectors()
{
    std::vector<QVector3D> vectors = {
        {0, 0, 0}, {1, 0, 0}, {0, -1, 0}, {1e-7f, 0, 0}, {1e-6f, 0, 0}, {5e-7f, 5e-7f, 5e-7f},
        {1.0000001f, 0, 0}, {0.9999999f, 0, 0}, {0.57735026f, 0.57735026f, 0.57735026f},
        {std::numeric_limits<float>::denorm_min(), 0, 0}, {1e30f, -1e30f, 1e30f}, {1e-20f, 3e-20f, 0},
        {3, 4, 12}, {-2.5f, 1e-3f, 7}};
    std::mt19937 random(11);
    std::uniform_real_distribution<float> exponent(-12.0f, 12.0f), unit(-1.0f, 1.0f);
    for (int i = 0; i < 20000; ++i) {
        const float scale = std::pow(10.0f, exponent(random));
        vectors.emplace_back(unit(random) * scale, unit(random) * scale, unit(random) * scale);
    }
    // Within a few units in the last place of unit length.
    for (int i = 0; i < 2000; ++i) {
        QVector3D v(unit(random), unit(random), unit(random));
        v.normalize();
        vectors.push_back(v * (1.0f + float(i % 7 - 3) * 1e-7f));
    }
    return vectors;
}

} // namespace

TEST(InlineVector3D, GivesQtsBitsForCrossProductsAndNormalisation)
{
    const std::vector<QVector3D> vectors = awkwardVectors();
    int crossDiffer = 0, normalizedDiffer = 0, normalizeDiffer = 0;
    for (size_t i = 0; i < vectors.size(); ++i) {
        const QVector3D& a = vectors[i];
        const QVector3D& b = vectors[(i * 7919 + 1) % vectors.size()];
        crossDiffer += !sameBits(Inline::crossProduct(a, b), QVector3D::crossProduct(a, b));
        normalizedDiffer += !sameBits(Inline::normalized(a), a.normalized());
        QVector3D ours = a, theirs = a;
        Inline::normalize(ours);
        theirs.normalize();
        normalizeDiffer += !sameBits(ours, theirs);
    }
    EXPECT_EQ(crossDiffer, 0);
    EXPECT_EQ(normalizedDiffer, 0);
    EXPECT_EQ(normalizeDiffer, 0);
}
