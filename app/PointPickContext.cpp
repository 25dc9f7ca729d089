#include "PointPickContext.h"

#include "WCamera3D.h"
#include "ZGLViewport.h"
#include "ZModelView.h"

#include "steps/points/PointSelectionModel.h"

#include <QMouseEvent>

namespace WelkPlugin {

PointPickContext::PointPickContext(ZModelView* view, int side, PointSelectionModel* model)
    : WContext(view->viewport()), m_view(view), m_side(side), m_model(model)
{
}

void PointPickContext::rayAt(const QPointF& p, QVector3D& origin, QVector3D& direction) const
{
    m_view->rayAt(p, origin, direction);
}

Welk::WPointOnTriangle PointPickContext::pickAt(const QPointF& p) const
{
    QVector3D origin, direction;
    rayAt(p, origin, direction);
    return m_model->pick(m_side, origin, direction);
}

int PointPickContext::markerAt(const QPointF& p, float radius) const
{
    const int count = m_model->points(m_side).size();
    if (count == 0)
        return -1;
    QVector<QVector3D> positions(count);
    for (int i = 0; i < count; ++i)
        positions[i] = m_model->position(m_side, i);
    QVector<QPoint> pixels;
    Welk::WCamera::project(m_view->camera(), positions, viewport()->size(), pixels);
    int best = -1;
    float bestDistance = radius;
    for (int i = 0; i < count; ++i) {
        const float d = static_cast<float>(QLineF(p, QPointF(pixels[i])).length());
        if (d <= bestDistance) {
            best = i;
            bestDistance = d;
        }
    }
    return best;
}

bool PointPickContext::onMousePress(QMouseEvent* event)
{
    if (!m_enabled || event->button() != Qt::LeftButton)
        return false;
    const QPointF p = event->localPos();
    if (event->modifiers() & Qt::ControlModifier) {
        const int index = markerAt(p);
        if (index >= 0)
            m_model->deletePoint(m_side, index);
        return true;
    }
    const int index = markerAt(p);
    if (index >= 0) {
        m_pressed = m_model->beginSlide(m_side, index);
        return true;
    }
    const Welk::WPointOnTriangle hit = pickAt(p);
    if (!hit.isValid())
        return true;
    QString error;
    if (!m_model->addPoint(m_side, hit, &error))
        Q_EMIT refused(error);
    return true;
}

bool PointPickContext::onMouseMove(QMouseEvent* event)
{
    if (!m_pressed || !m_model->isSliding())
        return false;
    const Welk::WPointOnTriangle hit = pickAt(event->localPos());
    // Off the surface, or on a masked polygon, the point waits where it is.
    if (hit.isValid())
        m_model->slideTo(hit);
    // A dense model draws its light form while the point slides.
    if (m_view->viewport())
        m_view->viewport()->interactBriefly();
    return true;
}

bool PointPickContext::onMouseRelease(QMouseEvent* event)
{
    if (!m_pressed || event->button() != Qt::LeftButton)
        return false;
    m_pressed = false;
    if (m_model->isSliding())
        m_model->endSlide();
    return true;
}

} // namespace WelkPlugin
