#include "WContextNavigation2DZBrush.h"

#include "WCamera2D.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>

#include <cmath>

namespace Welk {

WContextNavigation2DZBrush::WContextNavigation2DZBrush(QWidget* viewport, std::shared_ptr<WCamera2D> camera)
    : WContext(viewport), m_camera(std::move(camera))
{
    viewport->setFocusPolicy(Qt::StrongFocus);
}

void WContextNavigation2DZBrush::moved()
{
    Q_EMIT cameraMoved();
    viewport()->update();
}

void WContextNavigation2DZBrush::fitToView()
{
    m_camera->setViewSize(viewport()->size());
    m_camera->fitToView(m_content);
    moved();
}

bool WContextNavigation2DZBrush::onMousePress(QMouseEvent* event)
{
    if (event->button() != Qt::RightButton)
        return false;
    m_mode = (event->modifiers() & Qt::ControlModifier) ? Zoom : Pan;
    m_press = m_last = event->pos();
    return true;
}

bool WContextNavigation2DZBrush::onMouseMove(QMouseEvent* event)
{
    if (m_mode == None)
        return false;
    m_camera->setViewSize(viewport()->size());
    const QPoint p = event->pos();
    if (m_mode == Pan) {
        const QPointF delta(p.x() - m_last.x(), m_last.y() - p.y());
        m_camera->setCenter(m_camera->center() - delta / m_camera->zoom());
    } else {
        const float delta = static_cast<float>((p.y() - m_last.y()) - (p.x() - m_last.x())) /
                            static_cast<float>(std::max(1, viewport()->height()));
        m_camera->zoomAt(m_press, std::exp(-2.0f * delta));
    }
    m_last = p;
    moved();
    return true;
}

bool WContextNavigation2DZBrush::onMouseRelease(QMouseEvent*)
{
    if (m_mode == None)
        return false;
    m_mode = None;
    return true;
}

bool WContextNavigation2DZBrush::onWheel(QWheelEvent* event)
{
    const float notches = event->angleDelta().y() / 120.0f;
    if (notches == 0.0f)
        return false;
    m_camera->setViewSize(viewport()->size());
    m_camera->zoomAt(event->position(), std::pow(1.15f, notches));
    moved();
    return true;
}

bool WContextNavigation2DZBrush::onKeyPress(QKeyEvent* event)
{
    if (event->key() != Qt::Key_F || event->modifiers() != Qt::NoModifier)
        return false;
    fitToView();
    event->accept();
    return true;
}

bool WContextNavigation2DZBrush::onEnter(QEvent*)
{
    if (viewport()->window()->isActiveWindow())
        viewport()->setFocus(Qt::MouseFocusReason);
    return false;
}

} // namespace Welk
