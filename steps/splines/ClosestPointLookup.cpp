#include "ClosestPointLookup.h"

#include "search/BvhClosestTriangleFinder.h"

#include <memory>

namespace WelkPlugin {

ClosestPointLookup makeClosestPointLookup(const GeometryStack2::GeomStackTriangulated& mesh)
{
    if (mesh.triangleCount() == 0)
        return [](const QVector3D&) { return Welk::WPointOnTriangle(); };
    auto search = std::make_shared<ClosestTriangleSearch::BvhClosestTriangleFinder>(mesh.vertices(),
                                                                                    mesh.triangleVertexIndices());
    return [search](const QVector3D& p) { return search->find(p); };
}

} // namespace WelkPlugin
