#include "WContextNavigation2.h"

#include "WCamera3D.h"
#include "WViewport.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>

#include <algorithm>
#include <cmath>

namespace Welk {

namespace {

/// Rounds the event's position to whole pixels, halves away from zero.
QPoint pixelOf(const QPointF& p)
{
    return QPoint(static_cast<int>(std::round(p.x())), static_cast<int>(std::round(p.y())));
}

} // namespace

WContextNavigation2::WContextNavigation2(QWidget* viewport, std::shared_ptr<WCamera3D> camera)
    : WContext(viewport), m_camera(std::move(camera))
{
    m_modes = {
        {ModeNone, Qt::NoModifier, Qt::NoButton},
        {ModePan, Qt::AltModifier, Qt::RightButton},
        {ModeZoom, Qt::ControlModifier, Qt::RightButton},
        {ModeRotate, Qt::NoModifier, Qt::RightButton},
        {ModeRotateSnap, Qt::ShiftModifier, Qt::RightButton},
    };
    m_storedOrientation = m_camera->orientation();
    viewport->setFocusPolicy(Qt::StrongFocus);
    viewport->setMouseTracking(true);
}

int WContextNavigation2::modeFor(Qt::MouseButton button, Qt::KeyboardModifiers modifiers) const
{
    for (int i = 1; i < m_modes.size(); ++i) {
        const ModeRecord& r = m_modes[i];
        if (r.button == button &&
            (static_cast<int>(modifiers) & r.modifierMask) == static_cast<int>(r.modifiers))
            return r.mode;
    }
    return ModeNone;
}

QVector3D WContextNavigation2::translation() const
{
    return m_camera->translation();
}
QVector3D WContextNavigation2::rotationCenter() const
{
    return m_camera->rotationCenter();
}
QQuaternion WContextNavigation2::orientation() const
{
    return m_camera->orientation();
}
void WContextNavigation2::setTranslation(const QVector3D& t)
{
    m_camera->setTranslation(t);
}
void WContextNavigation2::setRotationCenter(const QVector3D& c)
{
    m_camera->setRotationCenter(c);
}
void WContextNavigation2::setOrientation(const QQuaternion& q)
{
    m_camera->setOrientation(q);
    m_storedOrientation = m_camera->orientation();
}

QPointF WContextNavigation2::normalised(const QPoint& p) const
{
    const double w = std::max(1, viewport()->width());
    const double h = std::max(1, viewport()->height());
    return QPointF(p.x() / w, p.y() / h);
}

QVector3D WContextNavigation2::trackballPoint(const QPoint& p) const
{
    // A sphere in the middle that turns into a hyperbolic sheet outside, so
    // drags near the border still rotate smoothly.
    const double w = std::max(1, viewport()->width());
    const double h = std::max(1, viewport()->height());
    const double s = std::min(w, h);
    const float x = static_cast<float>((2.0 * p.x() - w) / s);
    const float y = static_cast<float>((h - 2.0 * p.y()) / s);
    const float r2 = x * x + y * y;
    const float z = r2 <= 0.5f ? std::sqrt(1.0f - r2) : 0.5f / std::sqrt(r2);
    return QVector3D(x, y, z).normalized();
}

void WContextNavigation2::pan(const QPoint& from, const QPoint& to)
{
    const float unit = m_camera->unitsPerPixel(viewport()->height());
    const QVector3D delta((to.x() - from.x()) * unit, -(to.y() - from.y()) * unit, 0.0f);
    if (m_panMovesCenter)
        m_camera->setRotationCenter(m_camera->rotationCenter() -
                                    m_camera->orientation().conjugated().rotatedVector(delta));
    else
        m_camera->setTranslation(m_camera->translation() + delta);
}

void WContextNavigation2::zoom(const QPoint& from, const QPoint& to)
{
    const QPointF a = normalised(from);
    const QPointF b = normalised(to);
    const float delta = static_cast<float>((b.y() - a.y()) - (b.x() - a.x()));
    QVector3D t = m_camera->translation() * (1.0f + delta);
    t.setZ(std::max(t.z(), 1e-40f));
    m_camera->setTranslation(t);
}

void WContextNavigation2::rotate(const QPoint& from, const QPoint& to)
{
    const QVector3D a = trackballPoint(from);
    const QVector3D b = trackballPoint(to);
    const QVector3D axis = QVector3D::crossProduct(a, b);
    const float length = axis.length();
    if (length < 1e-7f)
        return;
    const float angle = std::atan2(length, QVector3D::dotProduct(a, b));
    // The trackball turns in view space: the turn goes before the orientation.
    const QQuaternion turn =
        QQuaternion::fromAxisAndAngle(axis / length, angle * 180.0f / float(M_PI) * 2.0f);
    m_camera->setOrientation(turn * m_camera->orientation());
}

void WContextNavigation2::roll(const QPoint& from, const QPoint& to)
{
    const float degrees = ((to.x() - from.x()) + (to.y() - from.y())) * 0.3f;
    m_camera->setOrientation(QQuaternion::fromAxisAndAngle(0, 0, 1, degrees) * m_camera->orientation());
}

void WContextNavigation2::moved()
{
    Q_EMIT cameraMoved();
    viewport()->update();
}

bool WContextNavigation2::onMousePress(QMouseEvent* event)
{
    if (!m_enabled)
        return false;
    const int mode = modeFor(event->button(), event->modifiers());
    if (mode == ModeNone)
        return false;
    m_mode = mode;
    m_pressPosition = m_lastPosition = pixelOf(event->localPos());
    if (auto* view = qobject_cast<WViewport*>(viewport()))
        view->beginInteraction();
    return true;
}

bool WContextNavigation2::onMouseMove(QMouseEvent* event)
{
    if (m_mode == ModeNone)
        return false;
    const QPoint position = pixelOf(event->localPos());
    switch (m_mode) {
    case ModePan:
        pan(m_lastPosition, position);
        break;
    case ModeZoom:
        zoom(m_lastPosition, position);
        break;
    case ModeRotate:
    case ModeRotateSnap:
        rotate(m_lastPosition, position);
        break;
    case ModeRoll:
        roll(m_lastPosition, position);
        break;
    default:
        break;
    }
    m_lastPosition = position;
    moved();
    return true;
}

bool WContextNavigation2::onMouseRelease(QMouseEvent* event)
{
    if (m_mode == ModeNone)
        return false;
    if (m_mode == ModeRotateSnap) {
        m_camera->setOrientation(WCamera3D::snapped(m_camera->orientation()));
        moved();
    }
    m_targetOrientation = m_camera->orientation();
    m_storedOrientation = m_camera->orientation();
    m_mode = ModeNone;
    if (auto* view = qobject_cast<WViewport*>(viewport()))
        view->endInteraction();
    Q_EMIT cameraFinishedMovement();
    return true;
}

bool WContextNavigation2::onWheel(QWheelEvent* event)
{
    const float notches = event->angleDelta().y() / 120.0f;
    if (notches == 0.0f)
        return false;
    if (auto* view = qobject_cast<WViewport*>(viewport()))
        view->interactBriefly();
    // Wheel up comes closer; each notch a tenth of the distance.
    QVector3D t = m_camera->translation() * std::pow(0.9f, notches);
    t.setZ(std::max(t.z(), 1e-40f));
    m_camera->setTranslation(t);
    moved();
    Q_EMIT cameraFinishedMovement();
    return true;
}

bool WContextNavigation2::onKeyPress(QKeyEvent* event)
{
    if (event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
        return false;
    if (event->key() == Qt::Key_F) {
        Q_EMIT fitToViewPressed();
        event->accept();
        return true;
    }
    if (event->key() == Qt::Key_S && m_mode == ModeNone) {
        m_storedOrientation = WCamera3D::snapped(m_camera->orientation());
        m_camera->setOrientation(m_storedOrientation);
        moved();
        Q_EMIT cameraFinishedMovement();
        event->accept();
        return true;
    }
    return false;
}

bool WContextNavigation2::onEnter(QEvent*)
{
    // Keys act on the view under the mouse, as in ZBrush.
    if (viewport()->window()->isActiveWindow())
        viewport()->setFocus(Qt::MouseFocusReason);
    return false;
}

} // namespace Welk
