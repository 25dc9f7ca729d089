#include "RenderFixture.h"

#include "WFrameThrottle.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

using Welk::WFrameThrottle;

TEST(WFrameThrottle, PassesTheNewestShapeAtMostOncePerInterval)
{
    RenderTest::sharedContext();
    WFrameThrottle throttle(200);
    QSignalSpy ready(&throttle, &WFrameThrottle::ready);
    const auto shape = [](float x) { return QVector<QVector3D>{QVector3D(x, 0, 0)}; };
    throttle.push(shape(1)); // the first goes at once
    throttle.push(shape(2));
    throttle.push(shape(3));
    ASSERT_EQ(ready.count(), 1);
    EXPECT_EQ(ready.at(0).at(0).value<QVector<QVector3D>>(), shape(1));
    // The newest of the waiting ones follows when the interval ends.
    EXPECT_TRUE(ready.wait(1000));
    ASSERT_EQ(ready.count(), 2);
    EXPECT_EQ(ready.at(1).at(0).value<QVector<QVector3D>>(), shape(3));
    // Nothing waits now: no further shape.
    QTest::qWait(300);
    EXPECT_EQ(ready.count(), 2);
    // The end of a fit shows its last shape at once.
    throttle.push(shape(4));
    throttle.push(shape(5));
    throttle.flush();
    ASSERT_EQ(ready.count(), 4);
    EXPECT_EQ(ready.at(3).at(0).value<QVector<QVector3D>>(), shape(5));
    throttle.clear();
    QTest::qWait(300);
    EXPECT_EQ(ready.count(), 4);
}
