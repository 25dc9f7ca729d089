#include "ClosestPointLookup.h"

#include "steps/points/SurfaceDistance.h"

#include <memory>

namespace WelkPlugin {

ClosestPointLookup makeClosestPointLookup(const GeometryStack2::GeomStackTriangulated& mesh)
{
    if (mesh.triangleCount() == 0)
        return [](const QVector3D&) { return Welk::WPointOnTriangle(); };
    auto search = std::make_shared<SurfaceDistance>(mesh.vertices(), mesh.triangleVertexIndices());
    return [search](const QVector3D& p) { return search->closestPoint(p); };
}

} // namespace WelkPlugin
