#include "WCamera.h"

#include <cmath>

namespace Welk {

float WCamera::aspectOf(QSize size)
{
    return static_cast<float>(size.width()) / static_cast<float>(size.height() < 1 ? 1 : size.height());
}

void WCamera::project(const WCamera& camera, const QVector<QVector3D>& points, QSize size,
                      QVector<QPoint>& out)
{
    const QMatrix4x4 m = camera.projectionMatrix(aspectOf(size)) * camera.viewMatrix();
    out.resize(points.size());
    for (int i = 0; i < points.size(); ++i) {
        const QVector4D clip = m * QVector4D(points[i], 1.0f);
        const float x = std::floor(((clip.x() / clip.w()) + 1.0f) * 0.5f * size.width());
        const float y = std::floor((1.0f - clip.y() / clip.w()) * 0.5f * size.height());
        out[i] = QPoint(static_cast<int>(x), static_cast<int>(y));
    }
}

} // namespace Welk
