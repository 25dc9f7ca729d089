#include "ControllerStates.h"

#include "search/FastContinuousProjectionOnTriangleFinder.h"

namespace Welk {
namespace SelectPointsWithSplines {

namespace {

bool isEnter(const KeyEvent& event)
{
    // The keypad's Enter arrives with the keypad modifier.
    return (event.key == Qt::Key_Return && event.modifiers == Qt::NoModifier) ||
           (event.key == Qt::Key_Enter &&
            (event.modifiers == Qt::NoModifier || event.modifiers == Qt::KeypadModifier));
}

bool plainKey(const KeyEvent& event, int key)
{
    return event.key == key && event.modifiers == Qt::NoModifier && !event.autoRepeat;
}

} // namespace

// Shared record ---------------------------------------------------------------

WPointOnTriangle Controller::Shared::surfaceAt(const QPointF& screen)
{
    lastPosition = screen;
    const GeometryStack2::GeomStackTriangulated* mesh = geometry();
    WPointOnTriangle hit = mesh ? nodeData->findPointOnTriangle(screen) : WPointOnTriangle();
    if (!mesh || hit.triangle >= mesh->triangleCount())
        hit = WPointOnTriangle();
    lastHit = hit;
    lastHitPosition = hit.isValid() ? positionOf(hit) : QVector3D();
    return hit;
}

WPointOnTriangle Controller::Shared::dragTo(const QPointF& screen, const WPointOnTriangle& previous)
{
    const WPointOnTriangle hit = surfaceAt(screen);
    QVector3D origin, direction;
    const GeometryStack2::GeomStackTriangulated* mesh = geometry();
    if (!mesh || !previous.isValid() || previous.triangle >= mesh->triangleCount() ||
        !nodeData->viewRay(screen, origin, direction) || direction.lengthSquared() == 0.0f)
        return hit;

    // The cursor's place at the dragged point's depth: where its ray meets
    // the plane through the point that faces the camera.
    const QVector3D from = positionOf(previous);
    const float along = QVector3D::dotProduct(from - origin, direction) / direction.lengthSquared();
    const QVector3D target = origin + along * direction;
    // A hit about as far from that place as the cursor moved is the same
    // part of the surface; a farther one lies behind or in front of it.
    if (hit.isValid()) {
        const float step = (target - from).length();
        if ((lastHitPosition - target).length() <= 2.0f * step + 1e-6f * (1.0f + from.length()))
            return hit;
    }

    QString error;
    const WPointOnTriangle slid = model()->dragFinder().project(target, previous, &error);
    if (!slid.isValid()) {
        if (!error.isEmpty())
            renderer->setHint(error);
        return hit;
    }
    lastHit = slid;
    lastHitPosition = positionOf(slid);
    return slid;
}

QVector3D Controller::Shared::positionOf(const WPointOnTriangle& point) const
{
    const GeometryStack2::GeomStackTriangulated* mesh = geometry();
    if (!mesh || !point.isValid() || point.triangle >= mesh->triangleCount())
        return QVector3D();
    return point.position(mesh->vertices(), mesh->triangleVertexIndices());
}

QVector<QVector3D> Controller::Shared::positionsOf(const QVector<WPointOnTriangle>& points) const
{
    QVector<QVector3D> positions;
    positions.reserve(points.size());
    for (const WPointOnTriangle& p : points)
        positions.append(positionOf(p));
    return positions;
}

SplineHit Controller::Shared::hitSplines(const QPointF& screen) const
{
    QVector<HitCandidate> candidates;
    const WelkPlugin::SplinesState& state = model()->state();
    for (const QString& name : state.order)
        candidates.append({name, positionsOf(state.splines.value(name))});
    return hitTest(candidates, curve(), *renderer, screen, pickTolerance);
}

SplineHit Controller::Shared::hitPoints(const QVector<WPointOnTriangle>& points, const QPointF& screen) const
{
    return hitTest({{QString(), positionsOf(points)}}, curve(), *renderer, screen, pickTolerance);
}

QVector<WPointOnTriangle> Controller::Shared::shortestPath(const WPointOnTriangle& from, const WPointOnTriangle& to)
{
    const GeometryStack2::GeomStackTriangulated* mesh = geometry();
    if (!mesh)
        return {};
    if (!m_pathFinder || m_pathFinderMesh != mesh || m_pathFinderVertices != mesh->vertexCount() ||
        m_pathFinderBuiltKind != pathFinderKind) {
        switch (pathFinderKind) {
        case PathFinderKind::Naive:
            m_pathFinder = std::make_unique<WSpline::NaiveDijkstraPathFinder>(*mesh);
            break;
        case PathFinderKind::TurnPenalizing:
            m_pathFinder = std::make_unique<WSpline::TurnPenalizingDijkstraPathFinder>(*mesh);
            break;
        case PathFinderKind::Topological:
            m_pathFinder = std::make_unique<WSpline::TopologicalDijkstraPathFinder>(*mesh);
            break;
        }
        m_pathFinderMesh = mesh;
        m_pathFinderVertices = mesh->vertexCount();
        m_pathFinderBuiltKind = pathFinderKind;
    }
    return m_pathFinder->findPath(from, to);
}

void Controller::Shared::fitToView()
{
    const GeometryStack2::GeomStackTriangulated* mesh = geometry();
    if (!mesh || mesh->vertices().isEmpty())
        return;
    QVector3D lo = mesh->vertices()[0], hi = lo;
    for (const QVector3D& v : mesh->vertices())
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], v[k]);
            hi[k] = std::max(hi[k], v[k]);
        }
    renderer->fitToView(lo, hi);
    used = true;
}

// State -------------------------------------------------------------------------

void Controller::State::updateHover(const MouseEvent& event)
{
    m_shared.surfaceAt(event.position);
    m_shared.hover = m_shared.hitSplines(event.position);
}

std::unique_ptr<Controller::State> Controller::State::onMouseMove(const MouseEvent& event)
{
    updateHover(event);
    return nullptr;
}

// Idle ----------------------------------------------------------------------------

std::unique_ptr<Controller::State> Idle::update()
{
    if (m_leaving || m_editRequested)
        return nullptr;
    m_shared.highlights.clear();
    if (m_shared.nodeData->hasResult())
        return std::make_unique<IdleResult>(m_shared);
    return nullptr;
}

std::unique_ptr<Controller::State> Idle::onMousePress(const MouseEvent& event)
{
    if (event.button != Qt::LeftButton)
        return nullptr;
    const WPointOnTriangle surface = m_shared.surfaceAt(event.position);
    const SplineHit hit = m_shared.hitSplines(event.position);
    WelkPlugin::SplineSelectionModel* model = m_shared.model();
    if (event.modifiers == Qt::AltModifier) {
        m_moved = false;
        return nullptr;
    }
    if (event.modifiers == Qt::ShiftModifier) {
        if (!hit.onSpline())
            return nullptr;
        m_shared.used = true;
        if (model->selected() == hit.name)
            return std::make_unique<UpdateDrawnSpline>(m_shared, hit.name);
        model->select(hit.name);
        m_shared.splineSelected = true;
        return nullptr;
    }
    if (event.modifiers == Qt::ControlModifier) {
        if (hit.kind != SplineHit::ControlPoint)
            return nullptr;
        QVector<WPointOnTriangle> points = model->splines().value(hit.name);
        points.remove(hit.index);
        m_shared.used = true;
        if (points.isEmpty())
            model->deleteSpline(hit.name);
        else
            model->setSplinePoints(hit.name, points);
        return nullptr;
    }
    if (event.modifiers != Qt::NoModifier)
        return nullptr;
    if (hit.kind == SplineHit::ControlPoint) {
        m_shared.used = true;
        return std::make_unique<MovePoint>(m_shared, hit.name, hit.index);
    }
    if (!surface.isValid())
        return nullptr;
    m_shared.used = true;
    if (hit.kind == SplineHit::Curve)
        return std::make_unique<InsertAndMovePoint>(m_shared, hit.name, hit.index, surface);
    return std::make_unique<DrawSpline>(m_shared, surface);
}

std::unique_ptr<Controller::State> Idle::onMouseMove(const MouseEvent& event)
{
    m_moved = true;
    updateHover(event);
    m_shared.highlights.clear();
    return nullptr;
}

std::unique_ptr<Controller::State> Idle::onMouseRelease(const MouseEvent& event)
{
    if (event.button != Qt::LeftButton || event.modifiers != Qt::AltModifier || m_moved)
        return nullptr;
    const WPointOnTriangle surface = m_shared.surfaceAt(event.position);
    const SplineHit hit = m_shared.hitSplines(event.position);
    if (!hit.onSpline())
        return nullptr;
    WPointOnTriangle start = surface;
    if (hit.kind == SplineHit::ControlPoint)
        start = m_shared.model()->splines().value(hit.name).value(hit.index);
    if (!start.isValid())
        return nullptr;
    m_shared.used = true;
    const QVector<int> symmetry = m_shared.nodeData->symmetryMap();
    if (symmetry.isEmpty())
        m_shared.renderer->showMessage(QStringLiteral("Error"), QStringLiteral("Geometry has no topological symmetry"));
    return std::make_unique<DrawSpline>(m_shared, start, !symmetry.isEmpty(), false);
}

std::unique_ptr<Controller::State> Idle::onKeyPress(const KeyEvent& event)
{
    if (plainKey(event, Qt::Key_D)) {
        m_leaving = true;
        m_shared.used = true;
        return std::make_unique<IdleResult>(m_shared);
    }
    if (plainKey(event, Qt::Key_F) && m_shared.geometry()) {
        m_shared.fitToView();
        return nullptr;
    }
    if (event.key == Qt::Key_Shift) {
        // What a Shift + click would pick.
        m_shared.highlights.clear();
        const SplineHit hit = m_shared.hitSplines(m_shared.lastPosition);
        if (hit.onSpline())
            m_shared.highlights.insert(hit.name, hit.kind == SplineHit::ControlPoint ? hit.index : -1);
    }
    return nullptr;
}

std::unique_ptr<Controller::State> Idle::onKeyRelease(const KeyEvent& event)
{
    if (event.key == Qt::Key_Shift)
        m_shared.highlights.clear();
    return nullptr;
}

// IdleResult ------------------------------------------------------------------------

std::unique_ptr<Controller::State> IdleResult::onMousePress(const MouseEvent& event)
{
    if (event.button != Qt::LeftButton || event.modifiers != Qt::ShiftModifier)
        return nullptr;
    const SplineHit hit = m_shared.hitSplines(event.position);
    if (hit.onSpline()) {
        m_shared.model()->select(hit.name);
        m_shared.splineSelected = true;
        m_shared.used = true;
    }
    return nullptr;
}

std::unique_ptr<Controller::State> IdleResult::onKeyPress(const KeyEvent& event)
{
    if (event.key == Qt::Key_D && event.modifiers == Qt::NoModifier) {
        m_shared.used = true;
        return std::make_unique<Idle>(m_shared, true);
    }
    if (event.key == Qt::Key_F && event.modifiers == Qt::NoModifier) {
        m_shared.fitToView();
        return nullptr;
    }
    if (event.key == Qt::Key_Shift) {
        m_shared.highlights.clear();
        const SplineHit hit = m_shared.hitSplines(m_shared.lastPosition);
        if (hit.onSpline())
            m_shared.highlights.insert(hit.name, -1);
    }
    return nullptr;
}

std::unique_ptr<Controller::State> IdleResult::onKeyRelease(const KeyEvent& event)
{
    if (event.key == Qt::Key_Shift)
        m_shared.highlights.clear();
    return nullptr;
}

// MovePoint and InsertAndMovePoint -------------------------------------------------------

MovePoint::MovePoint(Controller::Shared& shared, const QString& spline, int index)
    : State(shared), m_spline(spline), m_index(index), m_points(shared.model()->splines().value(spline))
{
}

std::unique_ptr<Controller::State> MovePoint::onMouseMove(const MouseEvent& event)
{
    const bool inRange = m_index >= 0 && m_index < m_points.size();
    const WPointOnTriangle surface =
        m_shared.dragTo(event.position, inRange ? m_points[m_index] : WPointOnTriangle());
    if (surface.isValid() && inRange && m_points[m_index] != surface) {
        m_points[m_index] = surface;
        m_changed = true;
    }
    m_shared.used = true;
    return nullptr;
}

std::unique_ptr<Controller::State> MovePoint::onMouseRelease(const MouseEvent& event)
{
    if (event.button != Qt::LeftButton)
        return nullptr;
    if (m_changed)
        m_shared.model()->setSplinePoints(m_spline, m_points);
    m_shared.used = true;
    return std::make_unique<Idle>(m_shared);
}

bool MovePoint::editedSpline(QString& name, QVector<WPointOnTriangle>& points) const
{
    name = m_spline;
    points = m_points;
    return true;
}

InsertAndMovePoint::InsertAndMovePoint(Controller::Shared& shared, const QString& spline, int segment,
                                       const WPointOnTriangle& point)
    : MovePoint(shared, spline, segment + 1)
{
    m_index = std::clamp(m_index, 0, int(m_points.size()));
    m_points.insert(m_index, point);
    m_changed = true;
}

// Drawing -----------------------------------------------------------------------------------

DrawSplineBase::DrawSplineBase(Controller::Shared& shared, const QString& spline,
                               const QVector<WPointOnTriangle>& points)
    : State(shared), m_spline(spline), m_points(points), m_inner(std::make_unique<DrawSplineState::Idle>(*this))
{
}

DrawSplineBase::~DrawSplineBase() = default;

bool DrawSplineBase::editedSpline(QString& name, QVector<WPointOnTriangle>& points) const
{
    name = m_spline;
    points = m_points;
    return true;
}

void DrawSplineBase::updateHover(const MouseEvent& event)
{
    m_shared.surfaceAt(event.position);
    m_shared.hover = m_shared.hitPoints(m_points, event.position);
    m_shared.hover.name = m_spline;
}

std::unique_ptr<Controller::State> DrawSplineBase::handle(std::unique_ptr<DrawSplineState::State> next, End end)
{
    if (next)
        m_inner = std::move(next);
    if (end == Running)
        return nullptr;
    m_shared.used = true;
    if (end == Finish)
        commit();
    return std::make_unique<Idle>(m_shared, true);
}

std::unique_ptr<Controller::State> DrawSplineBase::onMousePress(const MouseEvent& event)
{
    End end = Running;
    auto next = m_inner->onMousePress(event, end);
    return handle(std::move(next), end);
}

std::unique_ptr<Controller::State> DrawSplineBase::onMouseMove(const MouseEvent& event)
{
    End end = Running;
    auto next = m_inner->onMouseMove(event, end);
    return handle(std::move(next), end);
}

std::unique_ptr<Controller::State> DrawSplineBase::onMouseRelease(const MouseEvent& event)
{
    End end = Running;
    auto next = m_inner->onMouseRelease(event, end);
    return handle(std::move(next), end);
}

std::unique_ptr<Controller::State> DrawSplineBase::onKeyPress(const KeyEvent& event)
{
    End end = Running;
    auto next = m_inner->onKeyPress(event, end);
    return handle(std::move(next), end);
}

DrawSpline::DrawSpline(Controller::Shared& shared, const WPointOnTriangle& first, bool mirrorAfter, bool dragFirst)
    : DrawSplineBase(shared, QString(), {first}), m_mirrorAfter(mirrorAfter)
{
    if (dragFirst)
        m_inner = std::make_unique<DrawSplineState::MovePoint>(*this, 0);
}

void DrawSpline::commit()
{
    // A spline needs two control points to have a curve.
    if (m_points.size() < 2)
        return;
    const QString name = m_shared.model()->addSpline(m_points);
    m_shared.splineSelected = true;
    if (m_mirrorAfter)
        m_shared.model()->mirror(name, true);
}

UpdateDrawnSpline::UpdateDrawnSpline(Controller::Shared& shared, const QString& spline)
    : DrawSplineBase(shared, spline, shared.model()->splines().value(spline))
{
}

void UpdateDrawnSpline::commit()
{
    WelkPlugin::SplineSelectionModel* model = m_shared.model();
    if (m_points.size() < 2)
        model->deleteSpline(m_spline);
    else
        model->setSplinePoints(m_spline, m_points);
}

// The inner machine ----------------------------------------------------------------------------

namespace DrawSplineState {

std::unique_ptr<State> Idle::onMousePress(const MouseEvent& event, DrawSplineBase::End& end)
{
    Controller::Shared& shared = m_owner.shared();
    QVector<WPointOnTriangle>& points = m_owner.points();
    if (event.button == Qt::RightButton) {
        m_rightPressed = event.modifiers == Qt::NoModifier;
        m_moved = false;
        return nullptr;
    }
    if (event.button != Qt::LeftButton)
        return nullptr;
    const WPointOnTriangle surface = shared.surfaceAt(event.position);
    const SplineHit hit = shared.hitPoints(points, event.position);
    shared.used = true;
    if (event.modifiers == Qt::ControlModifier) {
        if (hit.kind == SplineHit::ControlPoint)
            points.remove(hit.index);
        return nullptr;
    }
    if (event.modifiers == Qt::NoModifier && hit.kind == SplineHit::ControlPoint)
        return std::make_unique<MovePoint>(m_owner, hit.index);
    if (!surface.isValid()) {
        end = DrawSplineBase::Finish;
        return nullptr;
    }
    if (event.modifiers == Qt::ShiftModifier) {
        if (points.isEmpty()) {
            points.append(surface);
            return nullptr;
        }
        const QVector<WPointOnTriangle> path = shared.shortestPath(points.last(), surface);
        if (path.size() >= 2)
            points += path.mid(1);
        else
            points.append(surface);
        return nullptr;
    }
    if (event.modifiers != Qt::NoModifier)
        return nullptr;
    if (hit.kind == SplineHit::Curve) {
        points.insert(hit.index + 1, surface);
        return std::make_unique<MovePoint>(m_owner, hit.index + 1);
    }
    points.append(surface);
    return std::make_unique<MovePoint>(m_owner, points.size() - 1);
}

std::unique_ptr<State> Idle::onMouseMove(const MouseEvent& event, DrawSplineBase::End&)
{
    m_moved = true;
    m_owner.updateHover(event);
    return nullptr;
}

std::unique_ptr<State> Idle::onMouseRelease(const MouseEvent& event, DrawSplineBase::End& end)
{
    // RMB also turns the camera: only a click without a drag finishes.
    if (event.button == Qt::RightButton && m_rightPressed && !m_moved && event.modifiers == Qt::NoModifier)
        end = DrawSplineBase::Finish;
    m_rightPressed = false;
    return nullptr;
}

std::unique_ptr<State> Idle::onKeyPress(const KeyEvent& event, DrawSplineBase::End& end)
{
    if (isEnter(event)) {
        end = DrawSplineBase::Finish;
    } else if (event.key == Qt::Key_Escape && event.modifiers == Qt::NoModifier) {
        end = DrawSplineBase::Cancel;
    } else if (plainKey(event, Qt::Key_F)) {
        m_owner.shared().fitToView();
    }
    return nullptr;
}

std::unique_ptr<State> MovePoint::onMouseMove(const MouseEvent& event, DrawSplineBase::End&)
{
    Controller::Shared& shared = m_owner.shared();
    QVector<WPointOnTriangle>& points = m_owner.points();
    const bool inRange = m_index >= 0 && m_index < points.size();
    const WPointOnTriangle surface = shared.dragTo(event.position, inRange ? points[m_index] : WPointOnTriangle());
    if (surface.isValid() && inRange)
        points[m_index] = surface;
    shared.used = true;
    return nullptr;
}

std::unique_ptr<State> MovePoint::onMouseRelease(const MouseEvent& event, DrawSplineBase::End&)
{
    if (event.button != Qt::LeftButton)
        return nullptr;
    m_owner.shared().used = true;
    return std::make_unique<Idle>(m_owner);
}

} // namespace DrawSplineState

} // namespace SelectPointsWithSplines
} // namespace Welk
