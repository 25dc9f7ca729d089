#include "ModelWarnings.h"

#include "geometry/GeomStack.h"

#include <algorithm>
#include <limits>

namespace WelkPlugin {

namespace {

struct Box
{
    QVector3D lo{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                 std::numeric_limits<float>::max()};
    QVector3D hi{-std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
                 -std::numeric_limits<float>::max()};

    explicit Box(const QVector<QVector3D>& vertices)
    {
        for (const QVector3D& v : vertices)
            for (int axis = 0; axis < 3; ++axis) {
                lo[axis] = std::min(lo[axis], v[axis]);
                hi[axis] = std::max(hi[axis], v[axis]);
            }
    }
    double diagonal() const { return double((hi - lo).length()); }
};

} // namespace

QVector<ModelWarning> modelWarnings(const QVector<QVector3D>& baseVertices, int basePolygons,
                                    const QVector<QVector3D>& targetVertices, int targetPolygons)
{
    QVector<ModelWarning> warnings;
    if (baseVertices.isEmpty() || targetVertices.isEmpty())
        return warnings;
    const Box base(baseVertices), target(targetVertices);
    bool apart = false;
    for (int axis = 0; axis < 3; ++axis)
        apart = apart || base.hi[axis] <= target.lo[axis] || target.hi[axis] <= base.lo[axis];
    if (apart)
        warnings.append({ModelWarning::NoIntersection, QStringLiteral("The basemesh and reference have no intersections")});
    if (basePolygons > targetPolygons)
        warnings.append({ModelWarning::HigherResolution,
                         QStringLiteral("The basemesh has higher resolution than the target model. Make sure the "
                                        "order of subtools is not mixed up.")});
    const double a = base.diagonal(), b = target.diagonal();
    const double ratio = std::max(a, b) / std::max(std::min(a, b), std::numeric_limits<double>::min());
    if (ratio > ScaleLimit)
        warnings.append({ModelWarning::ScaleDiffers,
                         QStringLiteral("The basemesh is %1 times %2 than the target model.")
                             .arg(ratio, 0, 'f', ratio < 100 ? 1 : 0)
                             .arg(a > b ? QStringLiteral("larger") : QStringLiteral("smaller"))});
    return warnings;
}

QVector<ModelWarning> modelWarnings(const GeometryStack2::GeomStack& base, const GeometryStack2::GeomStack& target)
{
    return modelWarnings(base.vertices(), base.polygonCount(), target.vertices(), target.polygonCount());
}

} // namespace WelkPlugin
