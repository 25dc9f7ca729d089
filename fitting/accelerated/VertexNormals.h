#pragma once

#include "DeformerTypes.h"

#include <vector>

namespace WelkingAcceleratedVersion {

/// Unit normals per vertex, one unit vector per triangle corner, edges
/// scaled by 1000 so that small triangles keep a direction in float.
inline std::vector<EmbeddedGraphDeformer::Vec3> vertexNormals(const std::vector<EmbeddedGraphDeformer::Vec3>& vertices, const std::vector<long long>& triangles)
{
    using Vec3 = EmbeddedGraphDeformer::Vec3;
    std::vector<Vec3> normals(vertices.size(), Vec3::Zero());
    for (size_t t = 0; t + 2 < triangles.size(); t += 3)
        for (int c = 0; c < 3; ++c) {
            const long long v = triangles[t + size_t(c)];
            const Vec3 a = (vertices[size_t(triangles[t + size_t((c + 1) % 3)])] - vertices[size_t(v)]) * 1000.0f;
            const Vec3 b = (vertices[size_t(triangles[t + size_t((c + 2) % 3)])] - vertices[size_t(v)]) * 1000.0f;
            const Vec3 n = a.cross(b);
            const float length = n.norm();
            if (length > 0)
                normals[size_t(v)] += n / length;
        }
    for (Vec3& n : normals) {
        const float length = n.norm();
        if (length > 0)
            n /= length;
    }
    return normals;
}

} // namespace WelkingAcceleratedVersion
