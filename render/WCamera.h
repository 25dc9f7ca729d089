#pragma once

#include <QMatrix4x4>
#include <QPoint>
#include <QSize>
#include <QVector3D>
#include <QVector>

namespace Welk {

/// Gives a viewport its view and projection matrices.
class WCamera
{
public:
    virtual ~WCamera() = default;
    virtual QMatrix4x4 viewMatrix() const = 0;
    /// The projection for `aspect` = width / height.
    virtual QMatrix4x4 projectionMatrix(float aspect) const = 0;

    /// The aspect of a view of `size`; a height below 1 counts as 1.
    static float aspectOf(QSize size);
    /// Pixel positions (y down) of `points` in a view of `size`.
    static void project(const WCamera& camera, const QVector<QVector3D>& points, QSize size,
                        QVector<QPoint>& out);
};

} // namespace Welk
