#include "WCamera2D.h"
#include "WCamera3D.h"

#include <gtest/gtest.h>

#include <QtMath>

#include <random>

using Welk::WCamera;
using Welk::WCamera2D;
using Welk::WCamera3D;

TEST(WCamera3DFit, EveryCornerOfTheBoxProjectsInsideTheView)
{
    const QVector3D lo(-3, 10, 2), hi(5, 11.5f, 40);
    QVector<QVector3D> corners;
    for (int i = 0; i < 8; ++i)
        corners << QVector3D(i & 1 ? hi.x() : lo.x(), i & 2 ? hi.y() : lo.y(), i & 4 ? hi.z() : lo.z());
    std::mt19937 random(7);
    std::uniform_real_distribution<float> angle(-180, 180);
    for (const QSize size : {QSize(800, 600), QSize(300, 900), QSize(1000, 1)}) {
        for (bool perspective : {true, false}) {
            for (int trial = 0; trial < 5; ++trial) {
                WCamera3D camera;
                camera.setPerspective(perspective);
                camera.setOrientation(
                    QQuaternion::fromEulerAngles(angle(random), angle(random), angle(random)));
                camera.fitToView(lo, hi, size);
                EXPECT_EQ(camera.rotationCenter(), (lo + hi) / 2);
                QVector<QPoint> pixels;
                WCamera::project(camera, corners, size, pixels);
                for (const QPoint& p : pixels) {
                    EXPECT_GE(p.x(), 0) << size.width() << "x" << size.height();
                    EXPECT_LE(p.x(), size.width());
                    EXPECT_GE(p.y(), 0);
                    EXPECT_LE(p.y(), size.height());
                }
            }
        }
    }
}

TEST(WCamera3DFit, DistanceFollowsTheNarrowerFieldOfView)
{
    WCamera3D camera;
    camera.setFieldOfView(30);
    camera.fitToView({0, 0, 0}, {3, 4, 0}, QSize(400, 400)); // diagonal 5
    EXPECT_NEAR(camera.translation().z(), 2.5f / std::sin(qDegreesToRadians(15.0f)), 1e-4);
    // A view twice as tall as wide: the horizontal angle is the smaller.
    camera.fitToView({0, 0, 0}, {3, 4, 0}, QSize(200, 400));
    const float horizontal = 2 * std::atan(std::tan(qDegreesToRadians(15.0f)) * 0.5f);
    EXPECT_NEAR(camera.translation().z(), 2.5f / std::sin(horizontal / 2), 1e-4);
    EXPECT_FLOAT_EQ(WCamera::aspectOf(QSize(640, 0)), 640.0f);
}

TEST(WCamera3DSnap, ResultIsTheNearestAxisAlignedOrientation)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<float> small(-30, 30);
    for (int trial = 0; trial < 50; ++trial) {
        // An axis view disturbed by less than 45 degrees snaps back to it.
        const QQuaternion axisView =
            QQuaternion::fromEulerAngles(90.0f * (trial % 4), 90.0f * ((trial / 4) % 4), 0);
        const QQuaternion disturbed =
            QQuaternion::fromEulerAngles(small(random) * 0.5f, small(random) * 0.5f, small(random) * 0.5f) *
            axisView;
        const QQuaternion snapped = WCamera3D::snapped(disturbed);
        const QMatrix3x3 r = snapped.toRotationMatrix();
        const QMatrix3x3 expected = axisView.toRotationMatrix();
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                EXPECT_NEAR(r(i, j), expected(i, j), 1e-5) << trial;
    }
}

TEST(WCamera2D, ZoomAtKeepsThePointUnderTheCursor)
{
    WCamera2D camera;
    camera.setViewSize(QSize(400, 300));
    camera.fitToView(QRectF(0, 0, 1024, 512));
    EXPECT_EQ(camera.center(), QPointF(512, 256));
    EXPECT_NEAR(camera.zoom(), 0.95f * 400.0f / 1024.0f, 1e-6);
    const QPointF cursor(50, 260);
    const QPointF before = camera.toImage(cursor);
    camera.zoomAt(cursor, 3.0f);
    const QPointF after = camera.toImage(cursor);
    EXPECT_NEAR(before.x(), after.x(), 1e-3);
    EXPECT_NEAR(before.y(), after.y(), 1e-3);
    // The matrices map the image point back to the cursor pixel.
    QVector<QPoint> pixels;
    WCamera::project(camera, {QVector3D(float(before.x()), float(before.y()), 0)}, camera.viewSize(), pixels);
    EXPECT_NEAR(pixels[0].x(), cursor.x(), 1.0);
    EXPECT_NEAR(pixels[0].y(), cursor.y(), 1.0);
}
