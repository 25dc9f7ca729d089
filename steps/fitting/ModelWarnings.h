#pragma once

#include <QString>
#include <QVector3D>
#include <QVector>

namespace GeometryStack2 {
class GeomStack;
}

namespace WelkPlugin {

/// Something about the two models that makes a fit useless as it stands.
struct ModelWarning
{
    enum Kind
    {
        NoIntersection,   ///< the bounding boxes do not meet
        HigherResolution, ///< the basemesh has more polygons than the target
        ScaleDiffers,     ///< the models' sizes differ by more than `ScaleLimit`
    };
    Kind kind;
    /// The window's text for the warning.
    QString message;
};

/// Sizes (bounding-box diagonals) further apart than this factor warn.
constexpr double ScaleLimit = 10.0;

/// The warnings about a basemesh at `baseVertices` (after any alignment)
/// and a target, in the order of `ModelWarning::Kind`. The same function
/// feeds the window's error bar and the batch tool's refusals.
QVector<ModelWarning> modelWarnings(const QVector<QVector3D>& baseVertices, int basePolygons,
                                    const QVector<QVector3D>& targetVertices, int targetPolygons);
QVector<ModelWarning> modelWarnings(const GeometryStack2::GeomStack& base, const GeometryStack2::GeomStack& target);

} // namespace WelkPlugin
