#pragma once

#include "WCamera.h"

#include <QPointF>
#include <QRectF>

namespace Welk {

/// A flat camera for images: `center` (in image units) sits in the middle
/// of the view, and `zoom` is view pixels per image unit. The projection
/// maps view pixels to clip space, so the matrices depend on the view size,
/// which the camera keeps.
class WCamera2D : public WCamera
{
public:
    QMatrix4x4 viewMatrix() const override;
    QMatrix4x4 projectionMatrix(float aspect) const override;

    QPointF center() const { return m_center; }
    void setCenter(const QPointF& c) { m_center = c; }
    float zoom() const { return m_zoom; }
    void setZoom(float zoom);
    void setViewSize(QSize size) { m_viewSize = size; }
    QSize viewSize() const { return m_viewSize; }

    /// Shows all of `rect` with a small margin.
    void fitToView(const QRectF& rect);
    /// Image position under view pixel `p` (y down).
    QPointF toImage(const QPointF& p) const;
    /// Changes the zoom by `factor` keeping the image point under `p` fixed.
    void zoomAt(const QPointF& p, float factor);

private:
    QPointF m_center;
    float m_zoom = 1.0f;
    QSize m_viewSize = QSize(1, 1);
};

} // namespace Welk
