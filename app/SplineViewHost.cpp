#include "SplineViewHost.h"

#include "WGLMarkers.h"
#include "WGLPolylines.h"
#include "ZGLViewport.h"
#include "ZModelView.h"

#include "steps/points/PointSelectionModel.h"
#include "steps/splines/SplineSelectionModel.h"

#include <QKeyEvent>
#include <QMessageBox>
#include <QMouseEvent>

namespace WelkPlugin {

using namespace Welk::SelectPointsWithSplines;

namespace {

// Splines in the window's palette: the selected one in the accent colour.
const QColor SplineColor(120, 190, 255);
const QColor SelectedColor(232, 145, 45);
const QColor EditedColor(255, 220, 90);
const QColor HighlightColor(255, 255, 255);

} // namespace

SplineViewHost::SplineViewHost(ZModelView* view, int side, SplineSelectionModel* splines,
                               const PointSelectionModel* picker)
    : WContext(view->viewport()), m_view(view), m_side(side), m_splines(splines), m_picker(picker),
      m_controller(std::make_unique<Controller>(this, this))
{
    // Hover marks follow the pointer without a button held.
    view->viewport()->setMouseTracking(true);
    m_controller->start();
}

SplineViewHost::~SplineViewHost() = default;

void SplineViewHost::setActive(bool active)
{
    m_active = active;
    if (active) {
        m_controller->update();
    } else {
        m_view->polylines()->setPolylines({});
        m_view->splineMarkers()->setMarkers({});
        if (m_view->viewport())
            m_view->viewport()->update();
    }
}

const GeometryStack2::GeomStackTriangulated* SplineViewHost::geometry() const
{
    return m_view->mesh();
}

Welk::WPointOnTriangle SplineViewHost::findPointOnTriangle(const QPointF& screen) const
{
    QVector3D origin, direction;
    m_view->rayAt(screen, origin, direction);
    return m_picker->pick(m_side, origin, direction);
}

bool SplineViewHost::viewRay(const QPointF& screen, QVector3D& origin, QVector3D& direction) const
{
    m_view->rayAt(screen, origin, direction);
    return true;
}

bool SplineViewHost::projectToScreen(const QVector3D& position, QPointF& screen) const
{
    return m_view->projectToScreen(position, screen);
}

void SplineViewHost::drawSplines(const SplineDrawing& drawing)
{
    m_drawing = drawing;
    if (!m_active)
        return;
    QVector<Welk::WGLPolylines::Polyline> lines;
    QVector<Welk::WGLMarkers::Marker> markers;
    for (const DrawnSpline& spline : drawing.splines) {
        const QColor color = spline.edited        ? EditedColor
                             : spline.selected    ? SelectedColor
                             : spline.highlighted ? HighlightColor
                                                  : SplineColor;
        if (spline.curve.size() > 1)
            lines.append({spline.curve, color, false});
        if (drawing.resultView)
            continue;
        for (int i = 0; i < spline.controls.size(); ++i)
            markers.append({spline.controls[i], i == spline.highlightedControl ? HighlightColor : color, -1,
                            spline.selected || spline.edited});
    }
    if (drawing.hasHover && !drawing.resultView)
        markers.append({drawing.hover, HighlightColor, -1, false});
    m_view->polylines()->setPolylines(lines);
    m_view->splineMarkers()->setMarkers(markers);
    if (m_view->viewport())
        m_view->viewport()->update();
}

void SplineViewHost::setHint(const QString& text)
{
    m_hint = text;
    Q_EMIT hintChanged(text);
}

void SplineViewHost::showMessage(const QString& title, const QString& text)
{
    QMessageBox::warning(m_view->window(), title, text);
}

void SplineViewHost::fitToView(const QVector3D&, const QVector3D&)
{
    // The view frames its whole model, as F does in the other steps.
    m_view->fitToView();
}

bool SplineViewHost::onMousePress(QMouseEvent* event)
{
    if (!m_active)
        return false;
    Q_EMIT used();
    return m_controller->mousePress(event);
}

bool SplineViewHost::onMouseMove(QMouseEvent* event)
{
    if (!m_active || !m_controller->mouseMove(event))
        return false;
    // A drag redraws at every move: a dense model draws its light form
    // meanwhile, as while the camera turns, and its full form once it rests.
    if ((event->buttons() & Qt::LeftButton) && m_view->viewport())
        m_view->viewport()->interactBriefly();
    return true;
}

bool SplineViewHost::onMouseRelease(QMouseEvent* event)
{
    return m_active && m_controller->mouseRelease(event);
}

bool SplineViewHost::onKeyPress(QKeyEvent* event)
{
    if (!m_active)
        return false;
    Q_EMIT used();
    return m_controller->keyPress(event);
}

bool SplineViewHost::onKeyRelease(QKeyEvent* event)
{
    return m_active && m_controller->keyRelease(event);
}

} // namespace WelkPlugin
