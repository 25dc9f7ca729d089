#pragma once

#include "geometry/GeomStackTriangulated.h"

#include <QVector3D>

#include <cmath>

namespace StepMeshes {

/// A latitude-longitude sphere of triangles, outward facing.
inline GeometryStack2::GeomStackTriangulated sphere(int rings, float radius, const QVector3D& centre = {})
{
    const int segments = 2 * rings;
    QVector<QVector3D> vertices{centre + QVector3D(0, 0, radius)};
    for (int r = 1; r < rings; ++r) {
        const float theta = float(M_PI) * float(r) / float(rings);
        for (int s = 0; s < segments; ++s) {
            const float phi = 2.0f * float(M_PI) * float(s) / float(segments);
            vertices.append(centre + radius * QVector3D(std::sin(theta) * std::cos(phi),
                                                        std::sin(theta) * std::sin(phi), std::cos(theta)));
        }
    }
    vertices.append(centre + QVector3D(0, 0, -radius));
    const int south = vertices.size() - 1;
    const auto at = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    QVector<int> corners, sizes, offsets;
    const auto triangle = [&](int a, int b, int c) {
        offsets.append(corners.size());
        sizes.append(3);
        corners << a << b << c;
    };
    for (int s = 0; s < segments; ++s) {
        triangle(0, at(1, s), at(1, s + 1));
        for (int r = 1; r + 1 < rings; ++r) {
            triangle(at(r, s), at(r + 1, s), at(r + 1, s + 1));
            triangle(at(r, s), at(r + 1, s + 1), at(r, s + 1));
        }
        triangle(at(rings - 1, s), south, at(rings - 1, s + 1));
    }
    offsets.append(corners.size());
    const int polygons = sizes.size();
    return GeometryStack2::GeomStackTriangulated(vertices, corners, sizes, offsets, {}, {}, {},
                                                 QVector<int>(polygons, -1), {}, QVector<int>(polygons, -1), {},
                                                 QString());
}

} // namespace StepMeshes
