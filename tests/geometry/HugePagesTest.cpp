#include "geometry/HugePages.h"

#include <QVector3D>

#include <gtest/gtest.h>

#include <numeric>

using GeometryStack2::resizeForOverwrite;

TEST(ResizeForOverwrite, GivesAFreshListOfTheSizeAndLeavesOtherCopiesAlone)
{
    // A list shared with another copy must not be written through: the
    // other copy keeps its elements.
    QVector<int> list{1, 2, 3};
    const QVector<int> copy = list;
    resizeForOverwrite(list, 5);
    ASSERT_EQ(list.size(), 5);
    std::iota(list.begin(), list.end(), 10);
    EXPECT_EQ(copy, (QVector<int>{1, 2, 3}));
    EXPECT_EQ(list, (QVector<int>{10, 11, 12, 13, 14}));
    // The list behaves as any other afterwards: it grows, copies and shrinks.
    list.append(15);
    QVector<int> second = list;
    second[0] = -1;
    EXPECT_EQ(list.first(), 10);
    EXPECT_EQ(list.last(), 15);
    resizeForOverwrite(list, 0);
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(second.size(), 6);

    // Several huge pages' worth of plain vectors, written to the last.
    constexpr int Count = 1 << 20;
    QVector<QVector3D> points;
    resizeForOverwrite(points, Count);
    ASSERT_EQ(points.size(), Count);
    ASSERT_GE(points.capacity(), Count);
    for (int i = 0; i < Count; ++i)
        points[i] = QVector3D(float(i), 0.0f, -float(i));
    EXPECT_EQ(points.last(), QVector3D(float(Count - 1), 0.0f, -float(Count - 1)));
}
