#pragma once

#include "geometry/GeomStackTriangulated.h"

#include <Eigen/Core>

#include <vector>

namespace TestSupport {

/// Triangle meshes as the fits take them: points, and three point indices
/// per triangle. Parts added one after another keep their own indices.
struct TriangleLists
{
    std::vector<Eigen::Vector3f> points;
    std::vector<long long> triangles;

    void add(const GeometryStack2::GeomStackTriangulated& part)
    {
        const long long first = (long long)points.size();
        for (const QVector3D& p : part.vertices())
            points.emplace_back(p.x(), p.y(), p.z());
        for (int index : part.triangleVertexIndices())
            triangles.push_back(first + index);
    }
};

} // namespace TestSupport
