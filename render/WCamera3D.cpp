#include "WCamera3D.h"

#include <QtMath>

#include <algorithm>
#include <cmath>

namespace Welk {

QMatrix4x4 WCamera3D::viewMatrix() const
{
    QMatrix4x4 view;
    view.translate(m_translation.x(), m_translation.y(), -m_translation.z());
    view.rotate(m_orientation);
    view.translate(-m_center);
    return view;
}

QMatrix4x4 WCamera3D::projectionMatrix(float aspect) const
{
    // Near and far scale with the distance, so any zoom keeps the model
    // inside the depth range.
    const float distance = std::max(m_translation.z(), 1e-30f);
    const float nearPlane = distance * 0.01f;
    const float farPlane = distance * 100.0f;
    QMatrix4x4 projection;
    if (m_perspective) {
        projection.perspective(m_fieldOfView, aspect, nearPlane, farPlane);
    } else {
        const float halfHeight = distance * std::tan(qDegreesToRadians(m_fieldOfView) / 2.0f);
        projection.ortho(-halfHeight * aspect, halfHeight * aspect, -halfHeight, halfHeight, nearPlane,
                         farPlane);
    }
    return projection;
}

void WCamera3D::fitToView(const QVector3D& min, const QVector3D& max, QSize viewportSize)
{
    const float d = (max - min).length();
    const float f = qDegreesToRadians(m_fieldOfView);
    const float horizontal = 2.0f * std::atan(std::tan(f / 2.0f) * aspectOf(viewportSize));
    const float a = std::min(f, horizontal);
    const float distance = d > 0.0f ? (d / 2.0f) / std::sin(a / 2.0f) : 10.0f;
    m_translation = QVector3D(0, 0, distance);
    m_center = (min + max) / 2.0f;
}

float WCamera3D::unitsPerPixel(int height) const
{
    const float halfHeight = m_translation.z() * std::tan(qDegreesToRadians(m_fieldOfView) / 2.0f);
    return 2.0f * halfHeight / static_cast<float>(std::max(height, 1));
}

QQuaternion WCamera3D::snapped(const QQuaternion& orientation)
{
    // Rows of the rotation are the world axes seen from the camera. Snap the
    // view axis first, then the up axis among those at right angles to it.
    const QMatrix3x3 r = orientation.normalized().toRotationMatrix();
    auto nearestAxis = [](const QVector3D& v, int exclude) {
        int best = 0;
        for (int i = 1; i < 3; ++i)
            if (i != exclude && (best == exclude || std::abs(v[i]) > std::abs(v[best])))
                best = i;
        if (best == exclude)
            best = (exclude + 1) % 3;
        QVector3D axis;
        axis[best] = v[best] < 0 ? -1.0f : 1.0f;
        return std::make_pair(axis, best);
    };
    const QVector3D z(r(2, 0), r(2, 1), r(2, 2));
    const QVector3D y(r(1, 0), r(1, 1), r(1, 2));
    const auto [zAxis, zIndex] = nearestAxis(z, -1);
    const auto [yAxis, yIndex] = nearestAxis(y, zIndex);
    const QVector3D xAxis = QVector3D::crossProduct(yAxis, zAxis);
    float m[9] = {xAxis.x(), xAxis.y(), xAxis.z(), yAxis.x(), yAxis.y(),
                  yAxis.z(), zAxis.x(), zAxis.y(), zAxis.z()};
    return QQuaternion::fromRotationMatrix(QMatrix3x3(m)).normalized();
}

} // namespace Welk
