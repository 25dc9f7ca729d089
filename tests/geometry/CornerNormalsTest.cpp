#include "geometry/CornerNormals.h"
#include "support/SameBits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

/// Qt's own corner normal, the value every form must give bit for bit.
QVector3D qtCornerNormal(const std::vector<QVector3D>& positions, int previous, int centre, int next)
{
    const QVector3D a = (positions[size_t(next)] - positions[size_t(centre)]) * 1000.0f;
    const QVector3D b = (positions[size_t(previous)] - positions[size_t(centre)]) * 1000.0f;
    return QVector3D::crossProduct(a, b).normalized();
}

using TestSupport::sameBits;

/// Every vector step this processor can run, so that each form is checked,
/// not only the widest.
std::vector<int> stepsHere()
{
    std::vector<int> steps;
    for (int step : {1, 4, 8})
        if (step <= GeometryStack2::widestNormalStep())
            steps.push_back(step);
    return steps;
}

} // namespace

TEST(CornerNormals, GiveQtsBitsOnOrdinaryAndAwkwardCorners)
{
    // Positions from sub-micrometre to 1e19 (where the scaled cross product
    // overflows), exact steps whose corner normal has unit length already,
    // denormals, and corners that repeat a vertex (a zero cross product).
    std::vector<QVector3D> positions = {
        {0, 0, 0}, {0.0009765625f, 0, 0}, {0, 0.001024f, 0}, {1e-9f, 0, 0}, {0, 1e-9f, 0},
        {std::numeric_limits<float>::denorm_min(), 0, 0}, {1e19f, 0, 0}, {0, 1e19f, 0}, {3, 4, 12}};
    std::mt19937 random(5);
    std::uniform_real_distribution<float> exponent(-6.0f, 4.0f), unit(-1.0f, 1.0f);
    while (positions.size() < 4000) {
        const float scale = std::pow(10.0f, exponent(random));
        positions.emplace_back(unit(random) * scale, unit(random) * scale, unit(random) * scale);
    }
    std::vector<int> previous, centre, next;
    const auto add = [&](int p, int c, int n) {
        previous.push_back(p);
        centre.push_back(c);
        next.push_back(n);
    };
    add(2, 0, 1); // exact unit normal
    add(4, 0, 3);
    add(5, 0, 5); // repeated vertex
    add(7, 0, 6); // overflow
    add(0, 0, 8);
    const int count = int(positions.size());
    for (int i = 0; i < 20001; ++i) {
        // Mostly nearby vertices, as in a mesh, with some repeats.
        const int c = int(random() % unsigned(count));
        add((c + 1 + int(random() % 5)) % count, c, i % 13 == 0 ? c : (c + 2 + int(random() % 5)) % count);
    }
    const int corners = int(centre.size());
    std::vector<QVector3D> scalar(static_cast<size_t>(corners));
    GeometryStack2::cornerNormalsScalar(positions.data(), previous.data(), centre.data(), next.data(), corners,
                                        scalar.data());
    for (int step : stepsHere()) {
        SCOPED_TRACE(step);
        std::vector<QVector3D> dispatched(scalar.size());
        GeometryStack2::cornerNormals(positions.data(), previous.data(), centre.data(), next.data(), corners,
                                      dispatched.data(), step);
        int differFromQt = 0, formsDiffer = 0;
        for (int i = 0; i < corners; ++i) {
            const QVector3D expected =
                qtCornerNormal(positions, previous[size_t(i)], centre[size_t(i)], next[size_t(i)]);
            differFromQt += !sameBits(dispatched[size_t(i)], expected);
            formsDiffer += !sameBits(dispatched[size_t(i)], scalar[size_t(i)]);
        }
        EXPECT_EQ(differFromQt, 0);
        EXPECT_EQ(formsDiffer, 0);
        // The awkward cases came out as they should, not merely alike.
        EXPECT_EQ(dispatched[0], QVector3D(0, 0, 1));
        EXPECT_EQ(dispatched[2], QVector3D());
        EXPECT_TRUE(std::isnan(dispatched[3].z()));
    }
}

TEST(CornerNormals, EveryCountAroundTheVectorWidthIsComplete)
{
    // Counts that end part way through a vector step and a chunk: every
    // corner written, none past the end.
    const std::vector<QVector3D> positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (int step : stepsHere())
        for (int count : {0, 1, 3, 4, 5, 7, 8, 9, 63, 64, 65, 130}) {
            SCOPED_TRACE(::testing::Message() << "step " << step << ", count " << count);
            const std::vector<int> previous(size_t(count), 2), centre(size_t(count), 0), next(size_t(count), 1);
            std::vector<QVector3D> normals(size_t(count) + 1, QVector3D(7, 7, 7));
            GeometryStack2::cornerNormals(positions.data(), previous.data(), centre.data(), next.data(), count,
                                          normals.data(), step);
            for (int i = 0; i < count; ++i)
                EXPECT_EQ(normals[size_t(i)], QVector3D(0, 0, 1)) << i;
            EXPECT_EQ(normals[size_t(count)], QVector3D(7, 7, 7));
        }
}

TEST(CornerNormals, NormalizeAllGivesQtsBitsInPlace)
{
    // Zero, lengths within Qt's fuzzy bound of 0 and of 1 (kept as they
    // are), denormals, huge values and a NaN, then vectors over 24 decades.
    std::vector<QVector3D> vectors = {
        {0, 0, 0}, {1, 0, 0}, {5e-7f, 5e-7f, 5e-7f}, {1e-7f, 0, 0}, {1.0000001f, 0, 0}, {0.9999999f, 0, 0},
        {std::numeric_limits<float>::denorm_min(), 0, 0}, {1e30f, -1e30f, 1e30f}, {3, 4, 12},
        {std::numeric_limits<float>::quiet_NaN(), 1, 0}};
    std::mt19937 random(3);
    std::uniform_real_distribution<float> exponent(-12.0f, 12.0f), unit(-1.0f, 1.0f);
    while (vectors.size() < 10003) {
        const float scale = std::pow(10.0f, exponent(random));
        vectors.emplace_back(unit(random) * scale, unit(random) * scale, unit(random) * scale);
    }
    std::vector<QVector3D> scalar = vectors;
    GeometryStack2::normalizeAllScalar(scalar.data(), int(scalar.size()));
    for (int step : stepsHere()) {
        SCOPED_TRACE(step);
        std::vector<QVector3D> ours = vectors;
        GeometryStack2::normalizeAll(ours.data(), int(ours.size()), step);
        int differFromQt = 0, formsDiffer = 0;
        for (size_t i = 0; i < vectors.size(); ++i) {
            QVector3D expected = vectors[i];
            expected.normalize();
            differFromQt += !sameBits(ours[i], expected);
            formsDiffer += !sameBits(ours[i], scalar[i]);
        }
        EXPECT_EQ(differFromQt, 0);
        EXPECT_EQ(formsDiffer, 0);
        EXPECT_TRUE(sameBits(ours[2], vectors[2])); // within the bound of zero: kept
        EXPECT_EQ(ours[8], QVector3D(3.0f / 13, 4.0f / 13, 12.0f / 13));
    }
}
