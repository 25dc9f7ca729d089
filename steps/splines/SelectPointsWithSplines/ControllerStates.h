#pragma once

// The states of the spline controller; internal to Controller.cpp and
// ControllerStates.cpp.

#include "Controller.h"
#include "SplineHitTest.h"

#include "steps/splines/DijkstraPathFinders.h"
#include "steps/splines/SplineSelectionModel.h"

#include <QHash>

#include <functional>
#include <memory>

namespace Welk {
namespace SelectPointsWithSplines {

/// The record all states share.
struct Controller::Shared
{
    NodeDataInterface* nodeData = nullptr;
    RendererInterface* renderer = nullptr;
    QPointF lastPosition;
    WPointOnTriangle lastHit;
    QVector3D lastHitPosition;
    bool splineSelected = false;
    /// Highlighted splines by name (value: control point under the cursor
    /// or -1).
    QHash<QString, int> highlights;
    SplineHit hover;
    double pickTolerance = 8.0;
    PathFinderKind pathFinderKind = PathFinderKind::Naive;
    bool used = false; ///< set by a handler that acted on its event

    WelkPlugin::SplineSelectionModel* model() const { return nodeData->splines(); }
    const GeometryStack2::GeomStackTriangulated* geometry() const { return nodeData->geometry(); }
    const WSpline::Curve& curve() const { return model()->curve(); }

    /// The surface point under `screen`, remembered as the last hit.
    WPointOnTriangle surfaceAt(const QPointF& screen);
    /// Where a point dragged from `previous` goes for the cursor at
    /// `screen`, remembered as the last hit: the point under the cursor
    /// while it stays near the dragged point's depth, else the surface
    /// point reached by sliding from `previous` (past silhouettes, and where
    /// the cursor passes over a part in front). A bad triangle on the way
    /// shows its message in the hint line; invalid: keep the point.
    WPointOnTriangle dragTo(const QPointF& screen, const WPointOnTriangle& previous);
    QVector3D positionOf(const WPointOnTriangle& point) const;
    QVector<QVector3D> positionsOf(const QVector<WPointOnTriangle>& points) const;
    /// Hit test against the committed splines, in list order.
    SplineHit hitSplines(const QPointF& screen) const;
    /// Hit test against one list of control points.
    SplineHit hitPoints(const QVector<WPointOnTriangle>& points, const QPointF& screen) const;
    /// The shortest path between two surface points (finder built lazily).
    QVector<WPointOnTriangle> shortestPath(const WPointOnTriangle& from, const WPointOnTriangle& to);
    void fitToView();

    std::function<void()> redraw;

private:
    std::unique_ptr<WSpline::PathFinder> m_pathFinder;
    const GeometryStack2::GeomStackTriangulated* m_pathFinderMesh = nullptr;
    int m_pathFinderVertices = -1;
    PathFinderKind m_pathFinderBuiltKind = PathFinderKind::Naive;
};

/// A state. Handlers return the next state, or null to stay.
class Controller::State
{
public:
    explicit State(Shared& shared) : m_shared(shared) {}
    virtual ~State() = default;

    virtual QString name() const = 0;
    virtual QString hint() const = 0;
    virtual void onEnter() {}
    virtual void onLeave() {}
    virtual std::unique_ptr<State> update() { return nullptr; }
    virtual void updateHover(const MouseEvent& event);
    virtual std::unique_ptr<State> onMousePress(const MouseEvent&) { return nullptr; }
    virtual std::unique_ptr<State> onMouseMove(const MouseEvent& event);
    virtual std::unique_ptr<State> onMouseRelease(const MouseEvent&) { return nullptr; }
    virtual std::unique_ptr<State> onKeyPress(const KeyEvent&) { return nullptr; }
    virtual std::unique_ptr<State> onKeyRelease(const KeyEvent&) { return nullptr; }

    /// A spline this state shows in place of the stored one: its name
    /// (empty: a new spline) and points. False when none.
    virtual bool editedSpline(QString&, QVector<WPointOnTriangle>&) const { return false; }
    virtual bool isResultView() const { return false; }

protected:
    Shared& m_shared;
};

class Idle : public Controller::State
{
public:
    /// `editRequested`: the user left the result view with D, so a result
    /// does not send the controller back there.
    Idle(Controller::Shared& shared, bool editRequested = false) : State(shared), m_editRequested(editRequested) {}
    QString name() const override { return QStringLiteral("Idle"); }
    QString hint() const override { return idleHint(); }
    std::unique_ptr<State> update() override;
    std::unique_ptr<State> onMousePress(const MouseEvent& event) override;
    std::unique_ptr<State> onMouseMove(const MouseEvent& event) override;
    std::unique_ptr<State> onMouseRelease(const MouseEvent& event) override;
    std::unique_ptr<State> onKeyPress(const KeyEvent& event) override;
    std::unique_ptr<State> onKeyRelease(const KeyEvent& event) override;

private:
    bool m_editRequested;
    bool m_leaving = false;
    bool m_moved = true;
};

class IdleResult : public Controller::State
{
public:
    using State::State;
    QString name() const override { return QStringLiteral("IdleResult"); }
    QString hint() const override { return idleResultHint(); }
    bool isResultView() const override { return true; }
    std::unique_ptr<State> onMousePress(const MouseEvent& event) override;
    std::unique_ptr<State> onKeyPress(const KeyEvent& event) override;
    std::unique_ptr<State> onKeyRelease(const KeyEvent& event) override;
};

/// Drags one control point of a stored spline; the release writes the
/// spline as one command. `InsertAndMovePoint` first inserts the point.
class MovePoint : public Controller::State
{
public:
    MovePoint(Controller::Shared& shared, const QString& spline, int index);
    QString name() const override { return QStringLiteral("MovePoint"); }
    QString hint() const override { return idleHint(); }
    std::unique_ptr<State> onMouseMove(const MouseEvent& event) override;
    std::unique_ptr<State> onMouseRelease(const MouseEvent& event) override;
    bool editedSpline(QString& name, QVector<WPointOnTriangle>& points) const override;

protected:
    QString m_spline;
    int m_index;
    QVector<WPointOnTriangle> m_points;
    bool m_changed = false;
};

class InsertAndMovePoint : public MovePoint
{
public:
    /// Inserts `point` after control `segment` of `spline`.
    InsertAndMovePoint(Controller::Shared& shared, const QString& spline, int segment, const WPointOnTriangle& point);
    QString name() const override { return QStringLiteral("InsertAndMovePoint"); }
};

namespace DrawSplineState {
class State;
}

/// Drawing a spline: a new one (`DrawSpline`) or a copy of a stored one
/// (`UpdateDrawnSpline`), edited by the inner machine until it ends.
class DrawSplineBase : public Controller::State
{
public:
    DrawSplineBase(Controller::Shared& shared, const QString& spline, const QVector<WPointOnTriangle>& points);
    ~DrawSplineBase() override;
    QString hint() const override { return drawSplineHint(); }
    void updateHover(const MouseEvent& event) override;
    std::unique_ptr<State> onMousePress(const MouseEvent& event) override;
    std::unique_ptr<State> onMouseMove(const MouseEvent& event) override;
    std::unique_ptr<State> onMouseRelease(const MouseEvent& event) override;
    std::unique_ptr<State> onKeyPress(const KeyEvent& event) override;
    bool editedSpline(QString& name, QVector<WPointOnTriangle>& points) const override;

    /// Used by the inner states.
    QVector<WPointOnTriangle>& points() { return m_points; }
    Controller::Shared& shared() { return m_shared; }
    enum End
    {
        Running,
        Finish,
        Cancel,
    };

protected:
    /// Writes the drawn spline into the model.
    virtual void commit() = 0;
    std::unique_ptr<Controller::State> handle(std::unique_ptr<DrawSplineState::State> next, End end);

    QString m_spline;
    QVector<WPointOnTriangle> m_points;
    std::unique_ptr<DrawSplineState::State> m_inner;
    End m_end = Running;
};

class DrawSpline : public DrawSplineBase
{
public:
    /// `mirrorAfter`: the drawing started on a spline with Alt on a model
    /// with a symmetry; the finished spline is mirrored too.
    /// `dragFirst`: the button that placed the first point is still down,
    /// so it drags that point until released.
    DrawSpline(Controller::Shared& shared, const WPointOnTriangle& first, bool mirrorAfter = false,
               bool dragFirst = true);
    QString name() const override { return QStringLiteral("DrawSpline"); }

protected:
    void commit() override;

private:
    bool m_mirrorAfter;
};

class UpdateDrawnSpline : public DrawSplineBase
{
public:
    UpdateDrawnSpline(Controller::Shared& shared, const QString& spline);
    QString name() const override { return QStringLiteral("UpdateDrawnSpline"); }

protected:
    void commit() override;
};

namespace DrawSplineState {

/// The inner machine's states. Handlers set `end` to finish or cancel the
/// drawing and return the next inner state or null.
class State
{
public:
    explicit State(DrawSplineBase& owner) : m_owner(owner) {}
    virtual ~State() = default;
    virtual QString name() const = 0;
    virtual std::unique_ptr<State> onMousePress(const MouseEvent&, DrawSplineBase::End&) { return nullptr; }
    virtual std::unique_ptr<State> onMouseMove(const MouseEvent&, DrawSplineBase::End&) { return nullptr; }
    virtual std::unique_ptr<State> onMouseRelease(const MouseEvent&, DrawSplineBase::End&) { return nullptr; }
    virtual std::unique_ptr<State> onKeyPress(const KeyEvent&, DrawSplineBase::End&) { return nullptr; }

protected:
    DrawSplineBase& m_owner;
};

class Idle : public State
{
public:
    using State::State;
    QString name() const override { return QStringLiteral("DrawSplineState::Idle"); }
    std::unique_ptr<State> onMousePress(const MouseEvent& event, DrawSplineBase::End& end) override;
    std::unique_ptr<State> onMouseMove(const MouseEvent& event, DrawSplineBase::End& end) override;
    std::unique_ptr<State> onMouseRelease(const MouseEvent& event, DrawSplineBase::End& end) override;
    std::unique_ptr<State> onKeyPress(const KeyEvent& event, DrawSplineBase::End& end) override;

private:
    bool m_rightPressed = false;
    bool m_moved = false;
};

class MovePoint : public State
{
public:
    MovePoint(DrawSplineBase& owner, int index) : State(owner), m_index(index) {}
    QString name() const override { return QStringLiteral("DrawSplineState::MovePoint"); }
    std::unique_ptr<State> onMouseMove(const MouseEvent& event, DrawSplineBase::End& end) override;
    std::unique_ptr<State> onMouseRelease(const MouseEvent& event, DrawSplineBase::End& end) override;

private:
    int m_index;
};

} // namespace DrawSplineState

} // namespace SelectPointsWithSplines
} // namespace Welk
