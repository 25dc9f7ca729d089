#pragma once

#include "NodeDataInterface.h"
#include "RendererInterface.h"

#include <QPointF>
#include <QString>
#include <Qt>

#include <memory>

class QKeyEvent;
class QMouseEvent;

namespace Welk {
namespace SelectPointsWithSplines {

/// A mouse event as the controller needs it; `button` is the button that
/// changed (press, release) and `buttons` those held (move).
struct MouseEvent
{
    QPointF position;
    Qt::MouseButton button = Qt::NoButton;
    Qt::MouseButtons buttons = Qt::NoButton;
    Qt::KeyboardModifiers modifiers = Qt::NoModifier;
};

struct KeyEvent
{
    int key = 0; ///< a `Qt::Key`
    Qt::KeyboardModifiers modifiers = Qt::NoModifier;
    bool autoRepeat = false;
};

/// Which shortest path Shift + LMB appends while drawing.
enum class PathFinderKind
{
    Naive,          ///< along edges, by length
    TurnPenalizing, ///< by length, straighter through jagged triangulations
    Topological,    ///< fewest edges
};

/// The spline step's editing in one viewport: mouse and key events become
/// edits of a `SplineSelectionModel`, as a state machine (states Idle,
/// IdleResult, DrawSpline, UpdateDrawnSpline, InsertAndMovePoint,
/// MovePoint; the drawing states run an inner machine of Idle and
/// MovePoint). Every finished edit is one undoable command of the model.
///
/// Hosting it in a window:
///   1. Implement `NodeDataInterface` over the viewport's model (geometry,
///      picking through the camera, the model's `SplineSelectionModel`,
///      whether a fit result is shown) and `RendererInterface` over the
///      viewport (projection through the same camera, drawing the
///      `SplineDrawing` it is handed, the hint line, message boxes,
///      framing).
///   2. Create one controller per viewport with both and call `start()`.
///   3. Forward the viewport's mousePressEvent, mouseMoveEvent,
///      mouseReleaseEvent, keyPressEvent and keyReleaseEvent (the QEvent
///      overloads), and call `update()` when the model, the result or the
///      camera changed, and `redraw()` after undo/redo.
///   4. Leave camera navigation to the viewport for what the controller
///      does not use (RMB drags, wheel, Alt + drags): `mousePress` returns
///      whether it used the event.
/// Everything runs on the GUI thread; the controller holds no widget.
class Controller
{
public:
    Controller(NodeDataInterface* nodeData, RendererInterface* renderer);
    ~Controller();
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    /// Enters the first state (Idle, or IdleResult when a result is there)
    /// and draws.
    void start();

    /// Each returns whether the event was used (an edit or a state change);
    /// unused events may go on to camera navigation.
    bool mousePress(const MouseEvent& event);
    bool mouseMove(const MouseEvent& event);
    bool mouseRelease(const MouseEvent& event);
    bool keyPress(const KeyEvent& event);
    bool keyRelease(const KeyEvent& event);
    bool mousePress(const QMouseEvent* event);
    bool mouseMove(const QMouseEvent* event);
    bool mouseRelease(const QMouseEvent* event);
    bool keyPress(const QKeyEvent* event);
    bool keyRelease(const QKeyEvent* event);

    /// After a change from outside (model, result, camera): lets the state
    /// react (Idle switches to the result view when a result appears) and
    /// redraws.
    void update();
    /// Hands the current drawing to the renderer.
    void redraw();

    /// The current state's class name ("Idle", "DrawSpline", ...).
    QString stateName() const;
    QString hint() const;

    void setPickTolerance(double pixels);
    void setPathFinder(PathFinderKind kind);

    class State;
    struct Shared;

private:
    bool transition(std::unique_ptr<State> next, bool used);

    std::unique_ptr<Shared> m_shared;
    std::unique_ptr<State> m_state;
};

/// The hint texts of the states.
QString idleHint();
QString idleResultHint();
QString drawSplineHint();

} // namespace SelectPointsWithSplines
} // namespace Welk
