// The spline controller driven by event sequences over a flat grid seen
// from above (one model unit is 100 pixels), ending in the right spline
// set, with undo.
#include "SplineTestMeshes.h"

#include "steps/splines/SelectPointsWithSplines/Controller.h"
#include "steps/splines/SplineSelectionModel.h"

#include <gtest/gtest.h>

#include <QKeyEvent>
#include <QMouseEvent>

using namespace Welk::SelectPointsWithSplines;
using Welk::WPointOnTriangle;
using WelkPlugin::SplineSelectionModel;

namespace {

class GridNodeData : public NodeDataInterface
{
public:
    explicit GridNodeData(const GeometryStack2::GeomStackTriangulated& mesh) : mesh(mesh) { model.setMesh(mesh); }
    const GeometryStack2::GeomStackTriangulated* geometry() const override { return &mesh; }
    WPointOnTriangle findPointOnTriangle(const QPointF& screen) const override
    {
        return SplineTestMeshes::locate(mesh, float(screen.x() / 100.0), float(screen.y() / 100.0));
    }
    SplineSelectionModel* splines() override { return &model; }
    bool hasResult() const override { return result; }

    GeometryStack2::GeomStackTriangulated mesh;
    SplineSelectionModel model;
    bool result = false;
};

class RecordingRenderer : public RendererInterface
{
public:
    bool projectToScreen(const QVector3D& p, QPointF& screen) const override
    {
        screen = QPointF(100.0 * p.x(), 100.0 * p.y());
        return true;
    }
    void drawSplines(const SplineDrawing& d) override
    {
        drawing = d;
        ++draws;
    }
    void setHint(const QString& text) override { hint = text; }
    void showMessage(const QString& title, const QString& text) override { messages.append(title + ": " + text); }
    void fitToView(const QVector3D& lo, const QVector3D& hi) override
    {
        fitted = true;
        fitLo = lo;
        fitHi = hi;
    }

    SplineDrawing drawing;
    int draws = 0;
    QString hint;
    QStringList messages;
    bool fitted = false;
    QVector3D fitLo, fitHi;
};

class ControllerTest : public ::testing::Test
{
protected:
    void init(const GeometryStack2::GeomStackTriangulated& mesh)
    {
        data = std::make_unique<GridNodeData>(mesh);
        controller = std::make_unique<Controller>(data.get(), &renderer);
        controller->start();
    }
    void SetUp() override { init(SplineTestMeshes::flatGrid(6, 4)); }

    static MouseEvent mouse(double x, double y, Qt::MouseButton button = Qt::LeftButton,
                            Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        return MouseEvent{QPointF(x, y), button, button, modifiers};
    }
    void click(double x, double y, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
               Qt::MouseButton button = Qt::LeftButton)
    {
        controller->mousePress(mouse(x, y, button, modifiers));
        controller->mouseRelease(mouse(x, y, button, modifiers));
    }
    void drag(QPointF from, QPointF to, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        controller->mousePress(mouse(from.x(), from.y(), Qt::LeftButton, modifiers));
        for (int k = 1; k <= 4; ++k) {
            const QPointF at = from + (to - from) * (k / 4.0);
            controller->mouseMove(MouseEvent{at, Qt::NoButton, Qt::LeftButton, modifiers});
        }
        controller->mouseRelease(mouse(to.x(), to.y(), Qt::LeftButton, modifiers));
    }
    void key(int k, Qt::KeyboardModifiers modifiers = Qt::NoModifier, bool autoRepeat = false)
    {
        controller->keyPress(KeyEvent{k, modifiers, autoRepeat});
        controller->keyRelease(KeyEvent{k, modifiers, autoRepeat});
    }
    /// Positions (in pixels) of a spline's control points.
    QVector<QPointF> pixels(const QString& name)
    {
        QVector<QPointF> result;
        for (const WPointOnTriangle& p : data->model.splines().value(name)) {
            const QVector3D x = SplineTestMeshes::at(data->mesh, p);
            result.append(QPointF(100.0 * x.x(), 100.0 * x.y()));
        }
        return result;
    }
    static void expectNear(const QVector<QPointF>& actual, const QVector<QPointF>& expected)
    {
        ASSERT_EQ(actual.size(), expected.size());
        for (int i = 0; i < actual.size(); ++i) {
            EXPECT_NEAR(actual[i].x(), expected[i].x(), 1e-2) << "point " << i;
            EXPECT_NEAR(actual[i].y(), expected[i].y(), 1e-2) << "point " << i;
        }
    }
    QString onlySpline() const
    {
        EXPECT_EQ(data->model.splines().size(), 1);
        return data->model.order().value(0);
    }
    /// A spline of three points drawn by clicks.
    QString drawThree()
    {
        click(50, 50);
        click(250, 150);
        click(450, 250);
        key(Qt::Key_Return);
        return onlySpline();
    }

    std::unique_ptr<GridNodeData> data;
    RecordingRenderer renderer;
    std::unique_ptr<Controller> controller;
};

TEST_F(ControllerTest, ClicksThenEnterDrawASplineAsOneCommand)
{
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(renderer.hint, idleHint());
    click(50, 50);
    EXPECT_EQ(controller->stateName(), QStringLiteral("DrawSpline"));
    EXPECT_EQ(renderer.hint, drawSplineHint());
    click(250, 150);
    click(450, 250);
    // The spline under construction is drawn, not yet stored.
    EXPECT_TRUE(data->model.splines().isEmpty());
    ASSERT_EQ(renderer.drawing.splines.size(), 1);
    EXPECT_TRUE(renderer.drawing.splines[0].edited);
    EXPECT_EQ(renderer.drawing.splines[0].controls.size(), 3);
    key(Qt::Key_Return);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(renderer.hint, idleHint());
    const QString name = onlySpline();
    expectNear(pixels(name), {{50, 50}, {250, 150}, {450, 250}});
    EXPECT_EQ(data->model.selected(), name);
    EXPECT_EQ(data->model.commands()->count(), 1);
    ASSERT_EQ(renderer.drawing.splines.size(), 1);
    EXPECT_TRUE(renderer.drawing.splines[0].selected);
    EXPECT_FALSE(renderer.drawing.splines[0].edited);
    EXPECT_GT(renderer.drawing.splines[0].curve.size(), 3);

    ASSERT_TRUE(data->model.undo());
    EXPECT_TRUE(data->model.splines().isEmpty());
    ASSERT_TRUE(data->model.redo());
    EXPECT_EQ(onlySpline(), name);
}

TEST_F(ControllerTest, EveryWayToFinishAndEscapeDrops)
{
    // Keypad Enter.
    click(50, 50);
    click(250, 50);
    key(Qt::Key_Enter, Qt::KeypadModifier);
    EXPECT_EQ(data->model.splines().size(), 1);
    // A right click without a drag.
    click(50, 350);
    click(250, 350);
    click(250, 350, Qt::NoModifier, Qt::RightButton);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(data->model.splines().size(), 2);
    // A right drag turns the camera and does not finish.
    click(50, 250);
    click(150, 250);
    controller->mousePress(mouse(150, 250, Qt::RightButton));
    controller->mouseMove(MouseEvent{QPointF(180, 260), Qt::NoButton, Qt::RightButton, Qt::NoModifier});
    controller->mouseRelease(mouse(180, 260, Qt::RightButton));
    EXPECT_EQ(controller->stateName(), QStringLiteral("DrawSpline"));
    // A left click outside the model finishes.
    click(900, 900);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(data->model.splines().size(), 3);
    // Escape drops the drawing: no spline, no command.
    const int commands = data->model.commands()->count();
    click(350, 150);
    click(550, 150);
    key(Qt::Key_Escape);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(data->model.splines().size(), 3);
    EXPECT_EQ(data->model.commands()->count(), commands);
    // A single point is no spline.
    click(350, 150);
    key(Qt::Key_Return);
    EXPECT_EQ(data->model.splines().size(), 3);
}

TEST_F(ControllerTest, AltClickOnASplineStartsDrawingButAltDragDoesNothing)
{
    // Holes that break every mirror of the grid.
    init(SplineTestMeshes::flatGrid(6, 5, {{5, 3}, {1, 4}}));
    const QString first = drawThree();
    const int commands = data->model.commands()->count();
    // Drag with Alt: the moved flag is set, the release does nothing.
    drag(QPointF(150, 100), QPointF(170, 110), Qt::AltModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(data->model.commands()->count(), commands);
    EXPECT_TRUE(renderer.messages.isEmpty());

    // Alt click on the curve: the model has no symmetry, which is said, and
    // the drawing starts from the point on the spline anyway.
    click(150, 100, Qt::AltModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("DrawSpline"));
    EXPECT_EQ(renderer.messages, QStringList{QStringLiteral("Error: Geometry has no topological symmetry")});
    click(150, 350);
    key(Qt::Key_Return);
    ASSERT_EQ(data->model.splines().size(), 2);
    const QString second = data->model.order().value(1);
    const QVector<QPointF> points = pixels(second);
    ASSERT_EQ(points.size(), 2);
    expectNear({points[1]}, {{150, 350}});
    EXPECT_NEAR(points[0].x(), 150, 3); // on the first spline's curve
    Q_UNUSED(first);
}

TEST_F(ControllerTest, AltClickOnASymmetricModelAddsTheMirrorToo)
{
    init(SplineTestMeshes::mirrorGrid());
    click(50, 50);
    click(250, 50);
    key(Qt::Key_Return);
    click(150, 50, Qt::AltModifier);
    EXPECT_TRUE(renderer.messages.isEmpty());
    click(150, 450);
    key(Qt::Key_Return);
    ASSERT_EQ(data->model.splines().size(), 3);
    const QString mirrored = data->model.order().value(2);
    const QVector<QPointF> a = pixels(data->model.order().value(1));
    const QVector<QPointF> b = pixels(mirrored);
    ASSERT_EQ(b.size(), a.size());
    for (int i = 0; i < a.size(); ++i)
        EXPECT_NEAR(b[i].x(), 800 - a[i].x(), 1e-2);
}

TEST_F(ControllerTest, UnlistedModifiersAndKeysLeaveIdleAlone)
{
    for (Qt::KeyboardModifiers modifiers :
         {Qt::KeyboardModifiers(Qt::ControlModifier | Qt::ShiftModifier), Qt::KeyboardModifiers(Qt::MetaModifier),
          Qt::KeyboardModifiers(Qt::AltModifier | Qt::ControlModifier), Qt::KeyboardModifiers(Qt::ControlModifier)}) {
        click(250, 250, modifiers);
        EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    }
    EXPECT_TRUE(data->model.splines().isEmpty());
    EXPECT_EQ(data->model.commands()->count(), 0);
    // Other buttons neither.
    click(250, 250, Qt::NoModifier, Qt::MiddleButton);
    click(250, 250, Qt::NoModifier, Qt::RightButton);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
}

TEST_F(ControllerTest, KeyDTogglesTheResultViewAndIgnoresAutoRepeat)
{
    key(Qt::Key_D, Qt::NoModifier, true);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    key(Qt::Key_D, Qt::ShiftModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    key(Qt::Key_D);
    EXPECT_EQ(controller->stateName(), QStringLiteral("IdleResult"));
    EXPECT_EQ(renderer.hint, idleResultHint());
    EXPECT_TRUE(renderer.drawing.resultView);
    // No editing in the result view.
    click(250, 250);
    EXPECT_EQ(controller->stateName(), QStringLiteral("IdleResult"));
    EXPECT_TRUE(data->model.splines().isEmpty());
    key(Qt::Key_D);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_FALSE(renderer.drawing.resultView);

    // Key F frames the model.
    key(Qt::Key_F);
    EXPECT_TRUE(renderer.fitted);
    EXPECT_EQ(renderer.fitHi, QVector3D(6, 4, 0));

    // A result that appears switches to its view, unless the user asked to edit.
    data->result = true;
    controller->update();
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    init(SplineTestMeshes::flatGrid(6, 4));
    data->result = true;
    controller->update();
    EXPECT_EQ(controller->stateName(), QStringLiteral("IdleResult"));
}

TEST_F(ControllerTest, CtrlClickDeletesAControlPoint)
{
    const QString name = drawThree();
    const QVector<QPointF> before = pixels(name);
    click(252, 148, Qt::ControlModifier);
    expectNear(pixels(name), {{50, 50}, {450, 250}});
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    ASSERT_TRUE(data->model.undo());
    expectNear(pixels(name), before);

    // While drawing, Ctrl + click takes the point out of the drawn spline.
    click(50, 350);
    click(250, 350);
    click(450, 350);
    click(250, 350, Qt::ControlModifier);
    key(Qt::Key_Return);
    ASSERT_EQ(data->model.splines().size(), 2);
    expectNear(pixels(data->model.order().value(1)), {{50, 350}, {450, 350}});
}

TEST_F(ControllerTest, DraggingAControlPointIsOneCommand)
{
    const QString name = drawThree();
    const int commands = data->model.commands()->count();
    controller->mousePress(mouse(250, 150));
    EXPECT_EQ(controller->stateName(), QStringLiteral("MovePoint"));
    for (int k = 1; k <= 5; ++k)
        controller->mouseMove(MouseEvent{QPointF(250 + 20 * k, 150 + 30 * k), Qt::NoButton, Qt::LeftButton, {}});
    // The drag is shown live but stored only at the release.
    expectNear({renderer.drawing.splines[0].controls[1].toPointF() * 100}, {{350, 300}});
    controller->mouseRelease(mouse(350, 300));
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    expectNear(pixels(name), {{50, 50}, {350, 300}, {450, 250}});
    EXPECT_EQ(data->model.commands()->count(), commands + 1);
    ASSERT_TRUE(data->model.undo());
    expectNear(pixels(name), {{50, 50}, {250, 150}, {450, 250}});
}

TEST_F(ControllerTest, PressOnACurveInsertsAPointAndDragsIt)
{
    const QString name = drawThree();
    // Midway between the first two controls, on the curve.
    const QPointF onCurve = renderer.drawing.splines[0].curve[8].toPointF() * 100;
    drag(onCurve, QPointF(150, 250));
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    expectNear(pixels(name), {{50, 50}, {150, 250}, {250, 150}, {450, 250}});
}

TEST_F(ControllerTest, ShiftClickAppendsTheShortestPath)
{
    click(50, 100);
    click(550, 100, Qt::ShiftModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("DrawSpline"));
    key(Qt::Key_Return);
    const QVector<QPointF> points = pixels(onlySpline());
    ASSERT_GE(points.size(), 4);
    EXPECT_NEAR(points.first().x(), 50, 1e-2);
    EXPECT_NEAR(points.last().x(), 550, 1e-2);
    // Along the row y = 1 of the grid: every point on it, left to right.
    for (int i = 0; i < points.size(); ++i) {
        EXPECT_NEAR(points[i].y(), 100, 1e-2);
        if (i > 0) {
            EXPECT_GT(points[i].x(), points[i - 1].x());
        }
    }
}

TEST_F(ControllerTest, ShiftSelectsThenContinuesTheSelectedSpline)
{
    const QString a = drawThree();
    click(50, 350);
    click(450, 350);
    key(Qt::Key_Return);
    ASSERT_EQ(data->model.splines().size(), 2);
    const QString b = data->model.selected();
    EXPECT_NE(a, b);
    // Shift + click on the first selects it (one command), staying in Idle.
    controller->keyPress(KeyEvent{Qt::Key_Shift, Qt::ShiftModifier, false});
    click(250, 150, Qt::ShiftModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("Idle"));
    EXPECT_EQ(data->model.selected(), a);
    // Again on the now selected spline: continue drawing it.
    click(150, 100, Qt::ShiftModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("UpdateDrawnSpline"));
    controller->keyRelease(KeyEvent{Qt::Key_Shift, Qt::NoModifier, false});
    click(550, 50);
    key(Qt::Key_Return);
    expectNear(pixels(a), {{50, 50}, {250, 150}, {450, 250}, {550, 50}});
    ASSERT_TRUE(data->model.undo());
    expectNear(pixels(a), {{50, 50}, {250, 150}, {450, 250}});
    ASSERT_TRUE(data->model.undo());
    EXPECT_EQ(data->model.selected(), b);

    // Escape in an update leaves the spline as it was.
    click(250, 150, Qt::ShiftModifier);
    click(250, 150, Qt::ShiftModifier);
    EXPECT_EQ(controller->stateName(), QStringLiteral("UpdateDrawnSpline"));
    click(550, 350);
    key(Qt::Key_Escape);
    expectNear(pixels(a), {{50, 50}, {250, 150}, {450, 250}});
}

TEST_F(ControllerTest, QtEventsDriveItToo)
{
    const QMouseEvent press(QEvent::MouseButtonPress, QPointF(50, 50), Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    const QMouseEvent release(QEvent::MouseButtonRelease, QPointF(50, 50), Qt::LeftButton, Qt::NoButton,
                              Qt::NoModifier);
    EXPECT_TRUE(controller->mousePress(&press));
    controller->mouseRelease(&release);
    const QMouseEvent press2(QEvent::MouseButtonPress, QPointF(350, 50), Qt::LeftButton, Qt::LeftButton,
                             Qt::NoModifier);
    const QMouseEvent release2(QEvent::MouseButtonRelease, QPointF(350, 50), Qt::LeftButton, Qt::NoButton,
                               Qt::NoModifier);
    controller->mousePress(&press2);
    controller->mouseRelease(&release2);
    const QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    EXPECT_TRUE(controller->keyPress(&enter));
    expectNear(pixels(onlySpline()), {{50, 50}, {350, 50}});
    // A press the controller does not use goes on to the camera.
    const QMouseEvent rightPress(QEvent::MouseButtonPress, QPointF(50, 50), Qt::RightButton, Qt::RightButton,
                                 Qt::NoModifier);
    EXPECT_FALSE(controller->mousePress(&rightPress));
}

} // namespace

namespace {

/// A mesh seen from above through rays straight down: the pick takes the
/// highest triangle under the cursor, as a camera would, and the view gives
/// its rays, so dragged points may slide.
class RayNodeData : public GridNodeData
{
public:
    using GridNodeData::GridNodeData;
    WPointOnTriangle findPointOnTriangle(const QPointF& screen) const override
    {
        const QVector3D c(float(screen.x() / 100.0), float(screen.y() / 100.0), 0.0f);
        const QVector<int>& t = mesh.triangleVertexIndices();
        const QVector<QVector3D>& v = mesh.vertices();
        WPointOnTriangle best;
        float top = -INFINITY;
        for (int k = 0; k < mesh.triangleCount(); ++k) {
            QVector3D p[3];
            for (int i = 0; i < 3; ++i)
                p[i] = QVector3D(v[t[3 * k + i]].x(), v[t[3 * k + i]].y(), 0.0f);
            const QVector3D w = Welk::barycentricCoordinates(c, p[0], p[1], p[2]);
            if (!std::isfinite(w[0]) || w[0] < -1e-5f || w[1] < -1e-5f || w[2] < -1e-5f)
                continue;
            const WPointOnTriangle hit{k, w[0], w[1]};
            const float z = SplineTestMeshes::at(mesh, hit).z();
            if (z > top) {
                top = z;
                best = hit;
            }
        }
        return best;
    }
    bool viewRay(const QPointF& screen, QVector3D& origin, QVector3D& direction) const override
    {
        origin = QVector3D(float(screen.x() / 100.0), float(screen.y() / 100.0), 10.0f);
        direction = QVector3D(0.0f, 0.0f, -1.0f);
        return true;
    }
};

/// `base` (a flat grid) with more triangles added as given.
GeometryStack2::GeomStackTriangulated withTriangles(const GeometryStack2::GeomStackTriangulated& base,
                                                   const QVector<QVector3D>& extraVertices,
                                                   const QVector<QVector<int>>& extraTriangles,
                                                   int flipped = -1)
{
    QVector<QVector3D> vertices = base.vertices();
    QVector<QVector<int>> triangles;
    const QVector<int>& t = base.triangleVertexIndices();
    for (int k = 0; k < base.triangleCount(); ++k)
        triangles.append(k == flipped ? QVector<int>{t[3 * k], t[3 * k + 2], t[3 * k + 1]}
                                      : QVector<int>{t[3 * k], t[3 * k + 1], t[3 * k + 2]});
    for (const QVector<int>& triangle : extraTriangles) {
        QVector<int> shifted;
        for (int i : triangle)
            shifted.append(i + vertices.size());
        triangles.append(shifted);
    }
    vertices += extraVertices;
    return GeometryStack2::GeomStackTriangulated(TestSupport::polygonSoup(vertices, triangles));
}

class DragTest : public ControllerTest
{
protected:
    void init(const GeometryStack2::GeomStackTriangulated& mesh)
    {
        controller.reset();
        data = std::make_unique<RayNodeData>(mesh);
        controller = std::make_unique<Controller>(data.get(), &renderer);
        controller->start();
    }
    void move(double x, double y)
    {
        controller->mouseMove(MouseEvent{QPointF(x, y), Qt::NoButton, Qt::LeftButton, Qt::NoModifier});
    }
    QVector3D control(const QString& name, int index)
    {
        return SplineTestMeshes::at(data->mesh, data->model.splines().value(name).value(index));
    }
};

TEST_F(DragTest, DraggedPointStaysOnItsSheetUnderAPartInFront)
{
    // A plate hovers one unit above the grid over x 1.2..1.8, y 0.2..0.8.
    init(withTriangles(SplineTestMeshes::flatGrid(6, 4),
                       {{1.2f, 0.2f, 1.0f}, {1.8f, 0.2f, 1.0f}, {1.8f, 0.8f, 1.0f}, {1.2f, 0.8f, 1.0f}},
                       {{0, 1, 2}, {0, 2, 3}}));
    click(50, 50);
    click(50, 350);
    key(Qt::Key_Return);
    const QString name = onlySpline();

    // Dragged under the plate, the point slides along the grid.
    controller->mousePress(mouse(50, 50));
    for (int x = 60; x <= 150; x += 10)
        move(x, 50);
    controller->mouseRelease(mouse(150, 50));
    const QVector3D p = control(name, 0);
    EXPECT_NEAR(p.x(), 1.5f, 1e-3f);
    EXPECT_NEAR(p.y(), 0.5f, 1e-3f);
    EXPECT_NEAR(p.z(), 0.0f, 1e-4f);
}

TEST_F(DragTest, DraggedPastTheBorderThePointStopsOnIt)
{
    init(SplineTestMeshes::flatGrid(6, 4));
    click(50, 50);
    click(50, 350);
    key(Qt::Key_Return);
    const QString name = onlySpline();

    // The last move leaves the model: the point follows to the border
    // instead of waiting where the cursor last was over the model.
    controller->mousePress(mouse(50, 50));
    move(300, 50);
    move(550, 50);
    move(800, 50);
    controller->mouseRelease(mouse(800, 50));
    const QVector3D p = control(name, 0);
    EXPECT_NEAR(p.x(), 6.0f, 1e-3f);
    EXPECT_NEAR(p.y(), 0.5f, 1e-3f);
    EXPECT_EQ(data->model.commands()->count(), 2);
    ASSERT_TRUE(data->model.undo());
    EXPECT_NEAR(control(name, 0).x(), 0.5f, 1e-3f);
}

TEST_F(DragTest, ASingularTriangleOnTheWayIsReportedAndThePointKept)
{
    // One triangle turned against its neighbours, under the first point.
    const GeometryStack2::GeomStackTriangulated grid = SplineTestMeshes::flatGrid(6, 4);
    const int flipped = SplineTestMeshes::locate(grid, 2.3f, 0.3f).triangle;
    ASSERT_GE(flipped, 0);
    init(withTriangles(grid, {}, {}, flipped));
    click(230, 30);
    click(230, 330);
    key(Qt::Key_Return);
    const QString name = onlySpline();
    const QVector3D before = control(name, 0);

    controller->mousePress(mouse(230, 30));
    move(800, 30);
    EXPECT_EQ(renderer.hint, QStringLiteral("Singular triangle or inconsistently oriented normals"));
    controller->mouseRelease(mouse(800, 30));
    EXPECT_EQ(renderer.hint, idleHint());
    EXPECT_NEAR((control(name, 0) - before).length(), 0.0f, 1e-5f);
}

} // namespace
