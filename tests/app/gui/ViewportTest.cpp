#include "GuiEvents.h"
#include "GuiFixture.h"

#include "ContextSyncController.h"
#include "WCamera3D.h"
#include "WGLDataGeomStackTriangulated.h"
#include "ZGLViewport.h"
#include "ZMainWindow.h"
#include "ZModelView.h"

#include "exchange/InstallationSettings.h"
#include "geometry/GeomStackTriangulated.h"

#include <QApplication>
#include <QCheckBox>
#include <QFileInfo>
#include <QMouseEvent>
#include <QPushButton>
#include <QToolButton>
#include <QWheelEvent>

#include <thread>

using WelkPlugin::ZMainWindow;
using WelkPlugin::ZModelView;

namespace {

void mouse(QWidget* w, QEvent::Type type, QPoint at, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    GuiEvents::mouse(w, type, at, Qt::RightButton, modifiers);
}

void rightDrag(QWidget* w, QPoint from, QPoint to, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    mouse(w, QEvent::MouseButtonPress, from, modifiers);
    for (int i = 1; i <= 8; ++i)
        mouse(w, QEvent::MouseMove, from + (to - from) * i / 8, modifiers);
    mouse(w, QEvent::MouseButtonRelease, to, modifiers);
}

QToolButton* buttonLabelled(QWidget* parent, const QString& label)
{
    for (QToolButton* b : parent->findChildren<QToolButton*>())
        if (b->text() == label)
            return b;
    return nullptr;
}

bool differ(const QImage& a, const QImage& b)
{
    if (a.size() != b.size())
        return true;
    int changed = 0;
    for (int y = 0; y < a.height(); y += 2)
        for (int x = 0; x < a.width(); x += 2)
            if (a.pixel(x, y) != b.pixel(x, y))
                ++changed;
    return changed > 50;
}

/// Everything the test saw, checked after the program ended.
struct Seen
{
    bool drawn = false;
    bool dragChanged = false;
    bool wheelChanged = false;
    bool fitChanged = false;
    bool wireChanged = false;
    bool syncedOrientation = false;
    bool syncedImageChanged = false;
    bool unsyncedStill = false;
    bool updateChanged = false;
    int indexBuilds = -1;
};

} // namespace

using Viewports = GuiFixture;

TEST_F(Viewports, MouseKeysTogglesAndLiveVerticesChangeWhatIsDrawn)
{
    writeExchange(saveObj(TestSupport::cube({-1, -1, -1}, {1, 1, 1}), QStringLiteral("base.obj")),
                  saveObj(TestSupport::cube({-2, -1, -1}, {2, 1, 1}), QStringLiteral("scan.obj")));
    ProgramDriver driver(folder());
    Seen seen;
    int phase = 0;
    QImage before;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        ZModelView* left = window->modelView(0);
        ZModelView* right = window->modelView(1);
        QWidget* leftView = left->viewport();
        if (phase == 0) {
            window->syncViewsBox()->setChecked(false);
            QImage first = left->grabImage();
            seen.drawn = !first.isNull() && first.pixel(first.width() / 2, first.height() / 2) !=
                                                first.pixel(2, first.height() / 2);
            rightDrag(leftView, {100, 100}, {180, 140});
            QImage dragged = left->grabImage();
            seen.dragChanged = differ(first, dragged);

            QWheelEvent wheel(QPointF(120, 120), QPointF(leftView->mapToGlobal(QPoint(120, 120))), QPoint(),
                              QPoint(0, -360), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
            QApplication::sendEvent(leftView, &wheel);
            QImage wheeled = left->grabImage();
            seen.wheelChanged = differ(dragged, wheeled);

            QKeyEvent f(QEvent::KeyPress, Qt::Key_F, Qt::NoModifier);
            QApplication::sendEvent(leftView, &f);
            QImage fitted = left->grabImage();
            seen.fitChanged = differ(wheeled, fitted);

            buttonLabelled(left, QStringLiteral("Wire"))->click();
            seen.wireChanged = differ(fitted, left->grabImage());

            // Synchronised: the right camera follows the left one.
            window->syncViewsBox()->setChecked(true);
            const QImage rightBefore = right->grabImage();
            rightDrag(leftView, {150, 150}, {90, 200});
            seen.syncedOrientation = right->camera().orientation() == left->camera().orientation() &&
                                     right->camera().translation() == left->camera().translation();
            seen.syncedImageChanged = differ(rightBefore, right->grabImage());
            window->syncViewsBox()->setChecked(false);
            const QImage rightKept = right->grabImage();
            rightDrag(leftView, {150, 150}, {200, 110});
            seen.unsyncedStill = !differ(rightKept, right->grabImage());

            // A worker thread hands new positions over by a queued call.
            before = left->grabImage();
            QVector<QVector3D> shrunk = left->mesh()->vertices();
            for (QVector3D& v : shrunk)
                v *= 0.5f;
            std::thread worker([left, shrunk] {
                QMetaObject::invokeMethod(left, "setVertices", Qt::QueuedConnection,
                                          Q_ARG(QVector<QVector3D>, shrunk));
            });
            worker.join();
            ++phase;
            return false;
        }
        seen.updateChanged = differ(before, left->grabImage());
        seen.indexBuilds = left->glData()->indexStreamBuilds();
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(seen.drawn) << "the model must be drawn over the background";
    EXPECT_TRUE(seen.dragChanged) << "right drag rotates";
    EXPECT_TRUE(seen.wheelChanged) << "the wheel zooms";
    EXPECT_TRUE(seen.fitChanged) << "F frames the model again";
    EXPECT_TRUE(seen.wireChanged) << "the Wire toggle draws edges";
    EXPECT_TRUE(seen.syncedOrientation);
    EXPECT_TRUE(seen.syncedImageChanged);
    EXPECT_TRUE(seen.unsyncedStill);
    EXPECT_TRUE(seen.updateChanged) << "queued vertices are drawn";
    EXPECT_EQ(seen.indexBuilds, 1);

    // The toggles and the sync box are remembered; leave no trace for other tests.
    auto settings =
        WelkPlugin::InstallationSettings::open(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalPath());
    EXPECT_FALSE(settings->value(QStringLiteral("syncViewIsChecked"), true).toBool());
    EXPECT_TRUE(settings->value(QStringLiteral("viewportVisualSettings/wireframeBase")).toBool());
    settings->remove(QStringLiteral("viewportVisualSettings"));
    settings->remove(QStringLiteral("syncViewIsChecked"));
}

TEST(WindowGeometry, ASavedGeometryLargerThanTheScreenIsClampedOntoIt)
{
    const QRect screen(0, 0, 1600, 1000);
    EXPECT_EQ(ZMainWindow::clampedToArea(QRect(0, 0, 1600, 1000), screen), QRect(0, 0, 1600, 1000));
    const QRect big = ZMainWindow::clampedToArea(QRect(-1, -1, 1602, 1002), QRect(0, 0, 1600, 1000));
    EXPECT_TRUE(QRect(0, 0, 1600, 1000).contains(big));
    EXPECT_EQ(big.size(), QSize(1600, 1000));
    // Saved on a 2560x1440 screen, shown on 1280x800 at an offset.
    const QRect small = ZMainWindow::clampedToArea(QRect(700, 300, 1600, 1000), QRect(1920, 0, 1280, 800));
    EXPECT_TRUE(QRect(1920, 0, 1280, 800).contains(small));
    // A window that fits but sits partly off-screen is moved, not shrunk.
    EXPECT_EQ(ZMainWindow::clampedToArea(QRect(1000, 500, 800, 600), screen), QRect(800, 400, 800, 600));
}
