#include "GuiEvents.h"
#include "GuiFixture.h"

#include "DemoModels.h"
#include "PointPickContext.h"
#include "WCamera3D.h"
#include "ZGLViewport.h"
#include "ZMainWindow.h"
#include "ZModelView.h"
#include "ZPluginPointSelection.h"
#include "ZPluginWelking.h"

#include "steps/fitting/ui/PluginWelkingWidget.h"
#include "steps/points/PointSelectionModel.h"

#include <QApplication>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QTimer>

using WelkPlugin::PointSelectionModel;
using WelkPlugin::ZMainWindow;
using WelkPlugin::ZModelView;

using GuiEvents::click;

namespace {

void leftMouse(QWidget* w, QEvent::Type type, QPoint at, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    GuiEvents::mouse(w, type, at, Qt::LeftButton, modifiers);
}

/// Where a model point shows on screen, by the camera alone.
QPoint pixelOf(ZModelView* view, const QVector3D& p)
{
    QVector<QPoint> pixels;
    Welk::WCamera::project(view->camera(), {p}, view->viewport()->size(), pixels);
    return pixels[0];
}

struct Seen
{
    int afterClicks[2] = {-1, -1};
    int placedOffBy = 1000;
    bool slid = false;
    bool oneUndoForTheDrag = false;
    int afterDelete = -1;
    int afterUndo = -1;
    int afterRedo = -1;
    QString unequalMessage;
    bool computeOffWhenUnequal = false;
    bool computeOnWhenEqual = false;
    int pointsReachingTheModels = -1;
};

} // namespace

using PointStep = GuiFixture;

TEST_F(PointStep, ClicksPlaceSlideAndDeletePointsThatTheFitReceives)
{
    writeExchange(saveObj(ZWelkBatch::makeDemoBasemesh(8), QStringLiteral("base.obj")),
                  saveObj(ZWelkBatch::makeDemoScan(3), QStringLiteral("scan.obj")));
    ProgramDriver driver(folder());
    Seen seen;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginPointSelection*>();
        PointSelectionModel* model = page->model();
        ZModelView* left = window->modelView(0);
        ZModelView* right = window->modelView(1);
        QWidget* leftView = left->viewport();
        QWidget* rightView = right->viewport();
        const QPoint leftCentre(leftView->width() / 2, leftView->height() / 2);
        const QPoint rightCentre(rightView->width() / 2, rightView->height() / 2);

        click(leftView, leftCentre);
        click(leftView, leftCentre + QPoint(0, -60));
        seen.afterClicks[0] = model->points(0).size();
        click(rightView, rightCentre);
        seen.afterClicks[1] = model->points(1).size();
        if (model->points(0).size() == 2)
            seen.placedOffBy = (pixelOf(left, model->position(0, 0)) - leftCentre).manhattanLength();

        // On the fit step, unequal counts stop the fit with the prescribed text.
        window->setCurrentPage(2);
        auto* welking = window->findChild<WelkPlugin::ZPluginWelking*>();
        welking->enter();
        seen.unequalMessage = welking->welkingWidget()->message();
        seen.computeOffWhenUnequal = !welking->welkingWidget()->fastButton()->isEnabled();
        window->setCurrentPage(0);
        page->setActive(true);

        click(rightView, rightCentre + QPoint(0, -60));
        // Slide the first point by dragging its marker.
        const QVector3D before = model->position(0, 0);
        const int undoable = model->commands()->canUndo();
        leftMouse(leftView, QEvent::MouseButtonPress, leftCentre);
        for (int i = 1; i <= 5; ++i)
            leftMouse(leftView, QEvent::MouseMove, leftCentre + QPoint(8 * i, 4 * i));
        leftMouse(leftView, QEvent::MouseButtonRelease, leftCentre + QPoint(40, 20));
        seen.slid = (model->position(0, 0) - before).length() > 1e-4f && model->points(0).size() == 2;
        page->undo();
        seen.oneUndoForTheDrag = undoable && (model->position(0, 0) - before).length() < 1e-6f;
        page->redo();

        // Ctrl + click on a marker deletes that point; undo and redo.
        click(leftView, pixelOf(left, model->position(0, 1)), Qt::ControlModifier);
        seen.afterDelete = model->points(0).size();
        page->undo();
        seen.afterUndo = model->points(0).size();
        page->redo();
        seen.afterRedo = model->points(0).size();
        page->undo();

        window->setCurrentPage(2);
        welking->enter();
        seen.computeOnWhenEqual = welking->welkingWidget()->fastButton()->isEnabled() &&
                                  welking->welkingWidget()->message().isEmpty();
        seen.pointsReachingTheModels = model->points(0).size();
        // Cancel asks first, since points would be lost; answer from a timer.
        GuiEvents::answerNextBox(QMessageBox::Close);
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(seen.afterClicks[0], 2);
    EXPECT_EQ(seen.afterClicks[1], 1);
    EXPECT_LE(seen.placedOffBy, 3) << "the point lands under the cursor";
    EXPECT_EQ(seen.unequalMessage,
              QStringLiteral("Point Correspondence step should contain equal number of points."));
    EXPECT_TRUE(seen.computeOffWhenUnequal);
    EXPECT_TRUE(seen.slid);
    EXPECT_TRUE(seen.oneUndoForTheDrag);
    EXPECT_EQ(seen.afterDelete, 1);
    EXPECT_EQ(seen.afterUndo, 2);
    EXPECT_EQ(seen.afterRedo, 1);
    EXPECT_TRUE(seen.computeOnWhenEqual);
    EXPECT_EQ(seen.pointsReachingTheModels, 2);
}

TEST_F(PointStep, APointFileForAnotherMeshChangesNothingAndSaysWhy)
{
    writeExchange(saveObj(ZWelkBatch::makeDemoBasemesh(4), QStringLiteral("base.obj")),
                  saveObj(ZWelkBatch::makeDemoScan(2), QStringLiteral("scan.obj")));
    const QString bad = m_dir.filePath(QStringLiteral("other.txt"));
    TestSupport::writeFile(bad, QByteArray("[[999999, 0.2, 0.3]]"));
    const QString good = m_dir.filePath(QStringLiteral("saved.txt"));
    ProgramDriver driver(folder());
    QString error;
    int kept = -1;
    QString saveError = QStringLiteral("not run");
    int reloaded = -1;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginPointSelection*>();
        QWidget* leftView = window->modelView(0)->viewport();
        click(leftView, QPoint(leftView->width() / 2, leftView->height() / 2));
        saveError = page->savePoints(0, good);
        error = page->loadPoints(0, bad);
        kept = page->model()->points(0).size();
        page->model()->clearPoints(0);
        page->loadPoints(0, good);
        reloaded = page->model()->points(0).size();
        // Cancel asks first, since points would be lost; answer from a timer.
        GuiEvents::answerNextBox(QMessageBox::Close);
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(saveError.isEmpty()) << saveError.toStdString();
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(kept, 1);
    EXPECT_EQ(reloaded, 1);
}

TEST_F(PointStep, MaskedPolygonsAreShadedAndTakeNoPoint)
{
    // Two quads side by side; the left one is masked through its corner vertices.
    using GeometryStack2::GoZFile;
    using TestSupport::GoZBytes;
    GoZBytes goz;
    goz.chunk(GoZFile::TagVertices, 6,
              GoZBytes::floats({-2, -1, 0, 0, -1, 0, 2, -1, 0, -2, 1, 0, 0, 1, 0, 2, 1, 0}))
        .chunk(GoZFile::TagQuads, 2, GoZBytes::ints({0, 1, 4, 3, 1, 2, 5, 4}))
        .chunk(GoZFile::TagPolygonGroups, 2, GoZBytes::shorts({1, 1}))
        .chunk(GoZFile::TagVertexMask, 6, GoZBytes::shorts({0x1000, 0xFFFF, 0xFFFF, 0x1000, 0xFFFF, 0xFFFF}))
        .text(GoZFile::TagName, "Plane")
        .end();
    const QString base = m_dir.filePath(QStringLiteral("Plane.GoZ"));
    TestSupport::writeFile(base, goz.bytes());
    writeExchange(base, saveObj(TestSupport::cube({-3, -3, -1}, {3, 3, 1}), QStringLiteral("scan.obj")));
    ProgramDriver driver(folder());
    int afterMaskedClick = -1;
    int afterFreeClick = -1;
    double maskedLight = 0, freeLight = 0;
    const int code = driver.run({}, [&] {
        ZMainWindow* window = ProgramDriver::mainWindow();
        if (!window)
            return false;
        auto* page = window->findChild<WelkPlugin::ZPluginPointSelection*>();
        ZModelView* left = window->modelView(0);
        QWidget* view = left->viewport();
        const QPoint maskedAt = pixelOf(left, QVector3D(-1.2f, 0, 0));
        const QPoint freeAt = pixelOf(left, QVector3D(1.2f, 0, 0));
        const QImage image = left->grabImage();
        maskedLight = QColor(image.pixel(maskedAt)).lightnessF();
        freeLight = QColor(image.pixel(freeAt)).lightnessF();
        click(view, maskedAt);
        afterMaskedClick = page->model()->points(0).size();
        click(view, freeAt);
        afterFreeClick = page->model()->points(0).size();
        GuiEvents::answerNextBox(QMessageBox::Close);
        window->cancelButton()->click();
        return true;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(afterMaskedClick, 0) << "a masked polygon takes no point";
    EXPECT_EQ(afterFreeClick, 1);
    EXPECT_LT(maskedLight, freeLight - 0.1) << "masked polygons are drawn darker";
}
