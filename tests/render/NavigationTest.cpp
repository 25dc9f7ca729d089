#include "RenderFixture.h"

#include "ContextSyncController.h"
#include "WCamera2D.h"
#include "WCamera3D.h"
#include "WContextNavigation2.h"
#include "WContextNavigation2DZBrush.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QWheelEvent>
#include <QWidget>

#include <memory>

using Welk::WCamera2D;
using Welk::WCamera3D;
using Welk::WContextNavigation2;
using Welk::WContextNavigation2DZBrush;

namespace {

void send(QWidget* w, QEvent::Type type, QPoint at, Qt::MouseButton button, Qt::KeyboardModifiers modifiers)
{
    const Qt::MouseButtons buttons =
        type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
    QMouseEvent event(type, at, w->mapToGlobal(at), type == QEvent::MouseMove ? Qt::NoButton : button,
                      buttons, modifiers);
    QApplication::sendEvent(w, &event);
}

void drag(QWidget* w, QPoint from, QPoint to, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
          Qt::MouseButton button = Qt::RightButton)
{
    send(w, QEvent::MouseButtonPress, from, button, modifiers);
    for (int i = 1; i <= 10; ++i)
        send(w, QEvent::MouseMove, from + (to - from) * i / 10, button, modifiers);
    send(w, QEvent::MouseButtonRelease, to, button, modifiers);
}

void wheel(QWidget* w, QPoint at, int delta)
{
    QWheelEvent event(at, w->mapToGlobal(at), QPoint(), QPoint(0, delta), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(w, &event);
}

void key(QWidget* w, int k)
{
    QKeyEvent event(QEvent::KeyPress, k, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

struct View
{
    View()
    {
        widget.resize(400, 300);
        camera->fitToView({-1, -1, -1}, {1, 1, 1}, widget.size());
        context = new WContextNavigation2(&widget, camera);
    }
    // The application comes first: a widget needs it.
    bool ready = (RenderTest::sharedContext(), true);
    QWidget widget;
    std::shared_ptr<WCamera3D> camera = std::make_shared<WCamera3D>();
    WContextNavigation2* context;
};

} // namespace

TEST(Navigation3D, ButtonsAndModifiersSelectTheMode)
{
    View v;
    EXPECT_EQ(v.context->modeFor(Qt::RightButton, Qt::NoModifier), WContextNavigation2::ModeRotate);
    EXPECT_EQ(v.context->modeFor(Qt::RightButton, Qt::AltModifier), WContextNavigation2::ModePan);
    EXPECT_EQ(v.context->modeFor(Qt::RightButton, Qt::ControlModifier), WContextNavigation2::ModeZoom);
    EXPECT_EQ(v.context->modeFor(Qt::RightButton, Qt::ShiftModifier), WContextNavigation2::ModeRotateSnap);
    EXPECT_EQ(v.context->modeFor(Qt::RightButton, Qt::KeypadModifier), WContextNavigation2::ModeRotate);
    EXPECT_EQ(v.context->modeFor(Qt::RightButton, Qt::MetaModifier), WContextNavigation2::ModeNone);
    EXPECT_EQ(v.context->modeFor(Qt::LeftButton, Qt::NoModifier), WContextNavigation2::ModeNone);
}

TEST(Navigation3D, EachDragMovesOnlyWhatItShould)
{
    View v;
    const QVector3D t0 = v.camera->translation();
    const QQuaternion q0 = v.camera->orientation();
    QSignalSpy moved(v.context, &WContextNavigation2::cameraMoved);
    QSignalSpy finished(v.context, &WContextNavigation2::cameraFinishedMovement);

    drag(&v.widget, {200, 150}, {260, 150});
    EXPECT_GT(std::abs(QQuaternion::dotProduct(v.camera->orientation(), q0) - 1.0f), 1e-4f) << "rotation";
    EXPECT_EQ(v.camera->translation(), t0);
    EXPECT_EQ(moved.count(), 10);
    EXPECT_EQ(finished.count(), 1);
    EXPECT_EQ(v.context->mode(), WContextNavigation2::ModeNone);

    const QQuaternion q1 = v.camera->orientation();
    drag(&v.widget, {200, 150}, {260, 120}, Qt::AltModifier);
    EXPECT_EQ(v.camera->orientation(), q1);
    EXPECT_GT(v.camera->translation().x(), t0.x()) << "the model follows the mouse to the right";
    EXPECT_GT(v.camera->translation().y(), t0.y()) << "and up";
    EXPECT_EQ(v.camera->translation().z(), t0.z());

    const float z = v.camera->translation().z();
    drag(&v.widget, {200, 150}, {200, 210}, Qt::ControlModifier);
    EXPECT_GT(v.camera->translation().z(), z) << "dragging down moves away";
    EXPECT_EQ(v.camera->orientation(), q1);
    // However far the drag goes up, the distance stays positive.
    drag(&v.widget, {200, 290}, {200, 0}, Qt::ControlModifier);
    drag(&v.widget, {200, 290}, {200, 0}, Qt::ControlModifier);
    EXPECT_GT(v.camera->translation().z(), 0.0f);

    const float z2 = v.camera->translation().z();
    wheel(&v.widget, {200, 150}, 240);
    EXPECT_LT(v.camera->translation().z(), z2);

    // A modifier outside the table starts nothing.
    const QQuaternion q2 = v.camera->orientation();
    drag(&v.widget, {200, 150}, {300, 150}, Qt::MetaModifier);
    EXPECT_EQ(v.camera->orientation(), q2);
}

TEST(Navigation3D, KeysFitAndSnap)
{
    View v;
    QSignalSpy fit(v.context, &WContextNavigation2::fitToViewPressed);
    key(&v.widget, Qt::Key_F);
    EXPECT_EQ(fit.count(), 1);
    v.camera->setOrientation(QQuaternion::fromEulerAngles(10, 80, -5));
    key(&v.widget, Qt::Key_S);
    EXPECT_NEAR(
        std::abs(QQuaternion::dotProduct(v.camera->orientation(), QQuaternion::fromEulerAngles(0, 90, 0))),
        1.0f, 1e-5);
    // Snap-rotate drag ends on an axis view.
    drag(&v.widget, {200, 150}, {237, 161}, Qt::ShiftModifier);
    const QMatrix3x3 r = v.camera->orientation().toRotationMatrix();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_TRUE(std::abs(r(i, j)) < 1e-5f || std::abs(std::abs(r(i, j)) - 1.0f) < 1e-5f);
}

TEST(ViewSync, MovesRepeatInTheOtherViewOnlyWhileEnabled)
{
    View left;
    View right;
    right.camera->setTranslation({0, 0, 50});
    WelkPlugin::ContextSyncController sync(left.context, right.context);
    drag(&left.widget, {200, 150}, {250, 170});
    EXPECT_EQ(sync.side(), 0);
    EXPECT_EQ(right.camera->orientation(), left.camera->orientation());
    EXPECT_EQ(right.camera->translation(), left.camera->translation());
    EXPECT_EQ(right.camera->rotationCenter(), left.camera->rotationCenter());

    sync.setEnabled(false);
    const QQuaternion kept = left.camera->orientation();
    drag(&right.widget, {200, 150}, {120, 100});
    EXPECT_EQ(sync.side(), 1) << "the side still follows the view that moved";
    EXPECT_EQ(left.camera->orientation(), kept);
    EXPECT_NE(right.camera->orientation(), kept);
}

TEST(Navigation2D, PanZoomAndFitOfAnImageView)
{
    RenderTest::sharedContext();
    QWidget widget;
    widget.resize(400, 300);
    auto camera = std::make_shared<WCamera2D>();
    camera->setViewSize(widget.size());
    auto* context = new WContextNavigation2DZBrush(&widget, camera);
    context->setContentRect(QRectF(0, 0, 2048, 1024));
    key(&widget, Qt::Key_F);
    EXPECT_EQ(camera->center(), QPointF(1024, 512));
    const float fitted = camera->zoom();

    drag(&widget, {100, 100}, {150, 100});
    EXPECT_NEAR(camera->center().x(), 1024 - 50 / fitted, 1e-3) << "the image follows the mouse";
    const QPointF under = camera->toImage(QPointF(300, 200));
    wheel(&widget, {300, 200}, 120);
    EXPECT_GT(camera->zoom(), fitted);
    EXPECT_NEAR(camera->toImage(QPointF(300, 200)).x(), under.x(), 1e-2);
    const float zoomed = camera->zoom();
    drag(&widget, {200, 150}, {200, 250}, Qt::ControlModifier);
    EXPECT_LT(camera->zoom(), zoomed) << "Ctrl + drag down zooms out";
}
