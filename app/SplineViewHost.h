#pragma once

#include "WContext.h"

#include "steps/splines/SelectPointsWithSplines/Controller.h"

#include <memory>

namespace WelkPlugin {

class PointSelectionModel;
class SplineSelectionModel;
class ZModelView;

/// The spline step in one model's view: hands the view's mouse and key
/// events to the spline controller, and gives the controller the model,
/// picking through the view's camera, and drawing into the view's
/// polylines and spline markers. The right button and the wheel stay with
/// navigation unless the controller uses them.
class SplineViewHost : public Welk::WContext,
                       public Welk::SelectPointsWithSplines::NodeDataInterface,
                       public Welk::SelectPointsWithSplines::RendererInterface
{
    Q_OBJECT
public:
    /// `picker` casts the rays (it holds the models' tracers), `side` names
    /// the model in it.
    SplineViewHost(ZModelView* view, int side, SplineSelectionModel* splines, const PointSelectionModel* picker);
    ~SplineViewHost() override;

    /// Events reach the controller only while the step is shown; an
    /// inactive host draws nothing.
    void setActive(bool active);
    bool isActive() const { return m_active; }
    Welk::SelectPointsWithSplines::Controller& controller() { return *m_controller; }
    QString hint() const { return m_hint; }

    // NodeDataInterface
    const GeometryStack2::GeomStackTriangulated* geometry() const override;
    Welk::WPointOnTriangle findPointOnTriangle(const QPointF& screen) const override;
    bool viewRay(const QPointF& screen, QVector3D& origin, QVector3D& direction) const override;
    SplineSelectionModel* splines() override { return m_splines; }
    bool hasResult() const override { return false; }

    // RendererInterface
    bool projectToScreen(const QVector3D& position, QPointF& screen) const override;
    void drawSplines(const Welk::SelectPointsWithSplines::SplineDrawing& drawing) override;
    void setHint(const QString& text) override;
    void showMessage(const QString& title, const QString& text) override;
    void fitToView(const QVector3D& lo, const QVector3D& hi) override;

signals:
    /// The hint line of the controller's state changed.
    void hintChanged(const QString& text);
    /// The user worked in this view (pressed a button or a key in it).
    void used();

protected:
    bool onMousePress(QMouseEvent* event) override;
    bool onMouseMove(QMouseEvent* event) override;
    bool onMouseRelease(QMouseEvent* event) override;
    bool onKeyPress(QKeyEvent* event) override;
    bool onKeyRelease(QKeyEvent* event) override;

private:
    ZModelView* m_view;
    int m_side;
    SplineSelectionModel* m_splines;
    const PointSelectionModel* m_picker;
    std::unique_ptr<Welk::SelectPointsWithSplines::Controller> m_controller;
    Welk::SelectPointsWithSplines::SplineDrawing m_drawing;
    QString m_hint;
    bool m_active = false;
};

} // namespace WelkPlugin
