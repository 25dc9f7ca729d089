#include "WCamera2D.h"

#include <algorithm>

namespace Welk {

QMatrix4x4 WCamera2D::viewMatrix() const
{
    QMatrix4x4 view;
    view.scale(m_zoom, m_zoom, 1.0f);
    view.translate(-static_cast<float>(m_center.x()), -static_cast<float>(m_center.y()), 0.0f);
    return view;
}

QMatrix4x4 WCamera2D::projectionMatrix(float) const
{
    QMatrix4x4 projection;
    const float w = std::max(1, m_viewSize.width()) / 2.0f;
    const float h = std::max(1, m_viewSize.height()) / 2.0f;
    projection.ortho(-w, w, -h, h, -1.0f, 1.0f);
    return projection;
}

void WCamera2D::setZoom(float zoom)
{
    m_zoom = std::clamp(zoom, 1e-4f, 1e6f);
}

void WCamera2D::fitToView(const QRectF& rect)
{
    m_center = rect.center();
    if (rect.width() <= 0 || rect.height() <= 0)
        return;
    const float zx = static_cast<float>(m_viewSize.width() / rect.width());
    const float zy = static_cast<float>(m_viewSize.height() / rect.height());
    setZoom(0.95f * std::min(zx, zy));
}

QPointF WCamera2D::toImage(const QPointF& p) const
{
    // Image units grow upwards, view pixels downwards.
    const QPointF fromCentre(p.x() - m_viewSize.width() / 2.0, m_viewSize.height() / 2.0 - p.y());
    return m_center + fromCentre / m_zoom;
}

void WCamera2D::zoomAt(const QPointF& p, float factor)
{
    const QPointF before = toImage(p);
    setZoom(m_zoom * factor);
    const QPointF after = toImage(p);
    m_center += before - after;
}

} // namespace Welk
