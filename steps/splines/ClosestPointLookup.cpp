#include "ClosestPointLookup.h"

#include "search/BvhClosestTriangleFinder.h"
#include "search/WRayTracerEmbree.h"

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

ClosestPointLookup makeEmbreeClosestPointLookup(const GeometryStack2::GeomStackTriangulated& mesh)
{
    if (mesh.triangleCount() == 0)
        return [](const QVector3D&) { return Welk::WPointOnTriangle(); };
    auto scene = std::make_shared<Welk::WRayTracerEmbree>(mesh.vertices(), mesh.triangleVertexIndices());
    return [scene](const QVector3D& p) { return scene->closestPoint(p); };
}

namespace {

class LookupFinder : public ClosestTriangleSearch::ClosestTriangleFinder
{
public:
    LookupFinder(const ClosestPointLookup& lookup, const GeometryStack2::GeomStackTriangulated& mesh)
        : m_lookup(lookup), m_vertices(mesh.vertices()), m_indices(mesh.triangleVertexIndices())
    {
    }

    Welk::WPointOnTriangle find(const QVector3D& point, float* distance) const override
    {
        const Welk::WPointOnTriangle found = m_lookup(point);
        if (!found.isValid() || found.triangle >= m_indices.size() / 3)
            return {};
        const float d = (found.position(m_vertices, m_indices) - point).length();
        if (distance) {
            if (d > *distance)
                return {};
            *distance = d;
        }
        return found;
    }

private:
    ClosestPointLookup m_lookup;
    QVector<QVector3D> m_vertices;
    QVector<int> m_indices;
};

} // namespace

std::shared_ptr<const ClosestTriangleSearch::ClosestTriangleFinder>
lookupFinder(const ClosestPointLookup& lookup, const GeometryStack2::GeomStackTriangulated& mesh)
{
    return std::make_shared<LookupFinder>(lookup, mesh);
}

} // namespace WelkPlugin
