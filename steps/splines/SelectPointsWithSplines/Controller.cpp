#include "Controller.h"

#include "ControllerStates.h"

#include <QKeyEvent>
#include <QMouseEvent>

namespace Welk {
namespace SelectPointsWithSplines {

QVector<int> NodeDataInterface::symmetryMap()
{
    return splines() ? splines()->symmetryMap() : QVector<int>();
}

QString idleHint()
{
    return QStringLiteral("*LMB* on geometry to start drawing a spline\n"
                          "*ALT* + *LMB* on existing spline to start drawing a spline\n"
                          "*SHIFT* + *LMB* on spline to select it\n"
                          "*SHIFT* + *LMB* on selected spline to continue drawing\n"
                          "*LMB* on spline and drag to edit\n"
                          "*CTRL* + *LMB* to delete spline point\n"
                          "*D* to show result points");
}

QString idleResultHint()
{
    return QStringLiteral("*SHIFT* + *LMB* on spline to select it\n*D* to edit splines");
}

QString drawSplineHint()
{
    return QStringLiteral("*LMB* on geometry to add point to spline\n"
                          "*LMB* on spline and drag to edit\n"
                          "*CTRL* + *LMB* to delete spline point\n"
                          "*SHIFT* + *LMB* on geometry to add shortest path to spline\n"
                          "*RMB* / *ENTER* to finish spline or *LMB* outside geometry\n"
                          "*ESC* to cancel changes");
}

namespace {

MouseEvent fromQt(const QMouseEvent* event)
{
    return MouseEvent{event->localPos(), event->button(), event->buttons(), event->modifiers()};
}

KeyEvent fromQt(const QKeyEvent* event)
{
    return KeyEvent{event->key(), event->modifiers(), event->isAutoRepeat()};
}

} // namespace

Controller::Controller(NodeDataInterface* nodeData, RendererInterface* renderer) : m_shared(std::make_unique<Shared>())
{
    m_shared->nodeData = nodeData;
    m_shared->renderer = renderer;
    m_shared->redraw = [this] { redraw(); };
}

Controller::~Controller()
{
    if (m_state)
        m_state->onLeave();
}

void Controller::start()
{
    transition(std::make_unique<Idle>(*m_shared), false);
    update();
}

bool Controller::transition(std::unique_ptr<State> next, bool used)
{
    if (next) {
        if (m_state)
            m_state->onLeave();
        m_state = std::move(next);
        m_state->onEnter();
        m_shared->renderer->setHint(m_state->hint());
        used = true;
        // A state may pass on at once (Idle with a result waiting).
        if (auto after = m_state->update())
            return transition(std::move(after), true);
    }
    redraw();
    return used;
}

template<typename Event, typename Handler>
static bool dispatch(Controller::State* state, Controller::Shared& shared, const Event& event, Handler handler,
                     std::unique_ptr<Controller::State>& next)
{
    shared.used = false;
    if (state)
        next = (state->*handler)(event);
    return shared.used;
}

bool Controller::mousePress(const MouseEvent& event)
{
    std::unique_ptr<State> next;
    const bool used = dispatch(m_state.get(), *m_shared, event, &State::onMousePress, next);
    return transition(std::move(next), used);
}

bool Controller::mouseMove(const MouseEvent& event)
{
    std::unique_ptr<State> next;
    dispatch(m_state.get(), *m_shared, event, &State::onMouseMove, next);
    // Hover changes always need a repaint; the move itself stays free for
    // the camera unless a drag used it.
    const bool used = m_shared->used;
    transition(std::move(next), used);
    return used;
}

bool Controller::mouseRelease(const MouseEvent& event)
{
    std::unique_ptr<State> next;
    const bool used = dispatch(m_state.get(), *m_shared, event, &State::onMouseRelease, next);
    return transition(std::move(next), used);
}

bool Controller::keyPress(const KeyEvent& event)
{
    std::unique_ptr<State> next;
    const bool used = dispatch(m_state.get(), *m_shared, event, &State::onKeyPress, next);
    return transition(std::move(next), used);
}

bool Controller::keyRelease(const KeyEvent& event)
{
    std::unique_ptr<State> next;
    const bool used = dispatch(m_state.get(), *m_shared, event, &State::onKeyRelease, next);
    return transition(std::move(next), used);
}

bool Controller::mousePress(const QMouseEvent* event)
{
    return mousePress(fromQt(event));
}

bool Controller::mouseMove(const QMouseEvent* event)
{
    return mouseMove(fromQt(event));
}

bool Controller::mouseRelease(const QMouseEvent* event)
{
    return mouseRelease(fromQt(event));
}

bool Controller::keyPress(const QKeyEvent* event)
{
    return keyPress(fromQt(event));
}

bool Controller::keyRelease(const QKeyEvent* event)
{
    return keyRelease(fromQt(event));
}

void Controller::update()
{
    if (!m_state)
        return;
    transition(m_state->update(), false);
}

void Controller::redraw()
{
    if (!m_state)
        return;
    SplineDrawing drawing;
    drawing.resultView = m_state->isResultView();
    QString editedName;
    QVector<WPointOnTriangle> editedPoints;
    const bool editing = m_state->editedSpline(editedName, editedPoints);
    WelkPlugin::SplineSelectionModel* model = m_shared->model();
    const QString selected = model ? model->selected() : QString();
    const auto add = [&](const QString& name, const QVector<WPointOnTriangle>& points, bool edited) {
        DrawnSpline spline;
        spline.name = name;
        spline.controls = m_shared->positionsOf(points);
        spline.curve = m_shared->curve().polyline(spline.controls);
        spline.selected = !name.isEmpty() && name == selected;
        spline.edited = edited;
        spline.highlighted = m_shared->highlights.contains(name) ||
                             (m_shared->hover.onSpline() && m_shared->hover.name == name);
        if (m_shared->hover.kind == SplineHit::ControlPoint && m_shared->hover.name == name)
            spline.highlightedControl = m_shared->hover.index;
        else
            spline.highlightedControl = m_shared->highlights.value(name, -1);
        drawing.splines.append(spline);
    };
    if (model) {
        for (const QString& name : model->order()) {
            if (editing && name == editedName)
                add(name, editedPoints, true);
            else
                add(name, model->splines().value(name), false);
        }
    }
    if (editing && editedName.isEmpty())
        add(QString(), editedPoints, true);
    drawing.hasHover = m_shared->lastHit.isValid() && !drawing.resultView;
    drawing.hover = m_shared->lastHitPosition;
    m_shared->renderer->drawSplines(drawing);
}

QString Controller::stateName() const
{
    return m_state ? m_state->name() : QString();
}

QString Controller::hint() const
{
    return m_state ? m_state->hint() : QString();
}

void Controller::setPickTolerance(double pixels)
{
    m_shared->pickTolerance = pixels;
}

void Controller::setPathFinder(PathFinderKind kind)
{
    m_shared->pathFinderKind = kind;
}

} // namespace SelectPointsWithSplines
} // namespace Welk
