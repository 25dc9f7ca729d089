#include "search/NearestInLeaf.h"
#include "support/SameBits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using KDTreeAcceleratedVersion::nearestInLeaf;
using KDTreeAcceleratedVersion::nearestInLeafScalar;
using KDTreeAcceleratedVersion::paddedLeafRow;

namespace {

/// Three padded rows of `count` points, as a leaf keeps them.
struct Rows
{
    explicit Rows(size_t count) : length(paddedLeafRow(count)), values(3 * length, std::nanf("")) {}
    void set(size_t i, float x, float y, float z)
    {
        values[i] = x;
        values[length + i] = y;
        values[2 * length + i] = z;
    }
    long nearest(float px, float py, float pz, float& distanceSq, bool scalar) const
    {
        const float* x = values.data();
        return (scalar ? nearestInLeafScalar : nearestInLeaf)(x, x + length, x + 2 * length, length, px, py, pz,
                                                              distanceSq);
    }
    size_t length;
    std::vector<float> values;
};

using TestSupport::sameBits;

} // namespace

TEST(NearestInLeaf, AgreesWithTheOrderedScanOnTiesBoundsAndAwkwardValues)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::uniform_int_distribution<int> grid(-2, 2);
    int compared = 0, improved = 0, tied = 0;
    for (size_t count : {size_t(1), size_t(7), size_t(8), size_t(9), size_t(128), size_t(131)}) {
        for (int round = 0; round < 200; ++round) {
            Rows rows(count);
            // Half the leaves on a coarse grid, where equal distances are
            // common and the first point must win; some with a NaN or an
            // infinite coordinate.
            const bool onGrid = round % 2 == 0;
            for (size_t i = 0; i < count; ++i) {
                if (onGrid)
                    rows.set(i, float(grid(random)), float(grid(random)), float(grid(random)));
                else
                    rows.set(i, unit(random) * 1e3f, unit(random) * 1e-3f, unit(random));
            }
            if (round % 7 == 3)
                rows.set(count / 2, std::nanf(""), 0, 0);
            if (round % 11 == 5)
                rows.set(count - 1, std::numeric_limits<float>::infinity(), 0, 0);
            const float px = onGrid ? float(grid(random)) : unit(random), py = onGrid ? 0.0f : unit(random),
                        pz = onGrid ? 0.5f : unit(random);
            // No bound, bounds some point beats, one that grid points
            // reach exactly (which only a nearer point beats), and one none
            // beats.
            for (float bound : {std::numeric_limits<float>::max(), 1.0f, 1.25f, 0.0f}) {
                float vectorSq = bound, scalarSq = bound;
                const long vector = rows.nearest(px, py, pz, vectorSq, false);
                const long scalar = rows.nearest(px, py, pz, scalarSq, true);
                EXPECT_EQ(vector, scalar) << "count " << count << " round " << round << " bound " << bound;
                EXPECT_TRUE(sameBits(vectorSq, scalarSq)) << vectorSq << " against " << scalarSq;
                ++compared;
                improved += scalar >= 0;
                if (scalar >= 0 && onGrid) {
                    // A later point at the same distance did not take over.
                    int equal = 0;
                    for (size_t i = 0; i < count; ++i) {
                        const float dx = rows.values[i] - px, dy = rows.values[rows.length + i] - py,
                                    dz = rows.values[2 * rows.length + i] - pz;
                        equal += dx * dx + dy * dy + dz * dz == scalarSq;
                    }
                    tied += equal > 1;
                }
            }
        }
    }
    // The cases the loop means to reach were reached.
    EXPECT_GT(improved, compared / 3);
    EXPECT_GT(tied, 100);
}

TEST(NearestInLeaf, PaddingAndAnEmptyLeafFindNothing)
{
    Rows empty(0);
    float distanceSq = std::numeric_limits<float>::max();
    EXPECT_EQ(empty.nearest(0, 0, 0, distanceSq, false), -1);
    EXPECT_EQ(distanceSq, std::numeric_limits<float>::max());

    // Three points in a row of eight: the padding lies nowhere.
    Rows three(3);
    three.set(0, 5, 0, 0);
    three.set(1, 1, 0, 0);
    three.set(2, 3, 0, 0);
    EXPECT_EQ(three.nearest(0, 0, 0, distanceSq, false), 1);
    EXPECT_EQ(distanceSq, 1.0f);
}
