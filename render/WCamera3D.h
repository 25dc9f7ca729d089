#pragma once

#include "WCamera.h"

#include <QQuaternion>

namespace Welk {

/// A camera orbiting a rotation centre. The view is: move the centre to the
/// origin, turn by the orientation, then shift by the translation (x, y in
/// view units, z the distance from the eye). Without perspective the
/// projection is orthographic and shows what the perspective view would
/// show at the distance z, so zooming works alike in both.
class WCamera3D : public WCamera
{
public:
    QMatrix4x4 viewMatrix() const override;
    QMatrix4x4 projectionMatrix(float aspect) const override;

    float fieldOfView() const { return m_fieldOfView; }
    void setFieldOfView(float degrees) { m_fieldOfView = degrees; }
    bool isPerspective() const { return m_perspective; }
    void setPerspective(bool perspective) { m_perspective = perspective; }

    QQuaternion orientation() const { return m_orientation; }
    void setOrientation(const QQuaternion& q) { m_orientation = q.normalized(); }
    QVector3D rotationCenter() const { return m_center; }
    void setRotationCenter(const QVector3D& c) { m_center = c; }
    QVector3D translation() const { return m_translation; }
    void setTranslation(const QVector3D& t) { m_translation = t; }

    /// Frames the box `min`..`max` in a view of `viewportSize`, keeping the
    /// orientation: the centre goes to the box's centre and the distance is
    /// such that the box's diagonal fits the narrower field of view.
    void fitToView(const QVector3D& min, const QVector3D& max, QSize viewportSize);
    /// World units per pixel at the rotation centre in a view of `height` pixels.
    float unitsPerPixel(int height) const;

    /// The nearest of the 24 axis-aligned orientations.
    static QQuaternion snapped(const QQuaternion& orientation);

private:
    float m_fieldOfView = 25.0f;
    bool m_perspective = true;
    QQuaternion m_orientation;
    QVector3D m_center;
    QVector3D m_translation = QVector3D(0, 0, 10);
};

} // namespace Welk
