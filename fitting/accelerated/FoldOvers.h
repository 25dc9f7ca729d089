#pragma once

#include <cmath>
#include <algorithm>
#include <cstddef>
#include <vector>

namespace WelkingAcceleratedVersion {

namespace FoldTest {

struct D3
{
    double x = 0, y = 0, z = 0;
};

/// A triangle's unnormalised normal (twice its area), in double, and with
/// `positionTolerance` e above 0 its slack 2e (|u| + |v|): corners moved by
/// up to e change the edges u and v by up to 2e each, so u x v by up to
/// that much to first order.
template <class Point>
D3 faceNormal(const Point& a, const Point& b, const Point& c, double positionTolerance, double& slack)
{
    const double ux = double(b.x()) - a.x(), uy = double(b.y()) - a.y(), uz = double(b.z()) - a.z();
    const double vx = double(c.x()) - a.x(), vy = double(c.y()) - a.y(), vz = double(c.z()) - a.z();
    if (positionTolerance > 0)
        slack = 2.0 * positionTolerance * (std::sqrt(ux * ux + uy * uy + uz * uz) + std::sqrt(vx * vx + vy * vy + vz * vz));
    return D3{uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx};
}

/// The sum of triangle `t`'s corners' vertex normals, in corner order.
template <class Indices>
D3 cornerSum(const std::vector<D3>& vertexNormals, const Indices& triangles, size_t t)
{
    D3 sum;
    for (int k = 0; k < 3; ++k) {
        const D3& m = vertexNormals[size_t(triangles[3 * t + size_t(k)])];
        sum.x += m.x;
        sum.y += m.y;
        sum.z += m.z;
    }
    return sum;
}

/// Whether a triangle of normal `n` counts as folded against `sum`, the sum
/// of its corners' vertex normals (see `foldedTriangles`).
inline bool folded(const D3& n, const D3& sum, double minCosine, double positionTolerance, double slack)
{
    const double dot = n.x * sum.x + n.y * sum.y + n.z * sum.z;
    double bound = 0;
    if (minCosine > 0 || positionTolerance > 0) {
        const double sumLength = std::sqrt(sum.x * sum.x + sum.y * sum.y + sum.z * sum.z);
        if (minCosine > 0)
            bound = minCosine * std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z) * sumLength;
        if (positionTolerance > 0)
            bound = std::max(bound, slack * sumLength);
    }
    // A sliver whose corners lie within the tolerance of one line (a
    // triangle crushed to a point, among neighbours crushed with it, has
    // no direction to compare) has no direction that rounding keeps.
    return (bound > 0 ? dot < bound : dot < 0) ||
           (positionTolerance > 0 &&
            std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z) <= slack + 4.0 * positionTolerance * positionTolerance);
}

} // namespace FoldTest

/// Fold-overs of a triangle mesh, counted the way the research fits count
/// them: a triangle is folded when its normal points against the sum of
/// its three corners' area-weighted vertex normals. A fit adds the
/// fold-overs it leaves beyond those the mesh had before it.
///
/// `Points` is any random-access list of points with `x()`, `y()`, `z()`
/// (QVector<QVector3D>, std::vector<Eigen::Vector3f>); `Indices` holds
/// three vertex indices per triangle. Sums are taken in double, so tiny
/// triangles of large models keep their sign. With `minCosine` above 0 a
/// triangle also counts when the angle between the two directions is
/// within that margin of a right angle: nearly folded, and so liable to
/// fold by rounding alone. With `positionTolerance` above 0 a triangle
/// also counts when moving its corners by up to that distance could turn
/// its normal over, or leave it without a direction: a sliver that
/// rounding on output may fold.
template <class Points, class Indices>
std::vector<char> foldedTriangles(const Points& vertices, const Indices& triangles, double minCosine = 0,
                                  double positionTolerance = 0)
{
    using FoldTest::D3;
    const size_t triangleCount = size_t(triangles.size()) / 3;
    std::vector<D3> faceNormals(triangleCount);
    std::vector<D3> vertexNormals(size_t(vertices.size()));
    std::vector<double> slack(positionTolerance > 0 ? triangleCount : 0);
    double noSlack = 0;
    for (size_t t = 0; t < triangleCount; ++t) {
        const D3 n = FoldTest::faceNormal(vertices[triangles[3 * t]], vertices[triangles[3 * t + 1]],
                                          vertices[triangles[3 * t + 2]], positionTolerance,
                                          slack.empty() ? noSlack : slack[t]);
        faceNormals[t] = n;
        for (int k = 0; k < 3; ++k) {
            D3& m = vertexNormals[size_t(triangles[3 * t + size_t(k)])];
            m.x += n.x;
            m.y += n.y;
            m.z += n.z;
        }
    }
    std::vector<char> folded(triangleCount, 0);
    for (size_t t = 0; t < triangleCount; ++t)
        folded[t] = FoldTest::folded(faceNormals[t], FoldTest::cornerSum(vertexNormals, triangles, t), minCosine,
                                     positionTolerance, slack.empty() ? 0.0 : slack[t]);
    return folded;
}

/// The number of folded triangles (see `foldedTriangles`).
template <class Points, class Indices>
int foldedTriangleCount(const Points& vertices, const Indices& triangles)
{
    int count = 0;
    for (char f : foldedTriangles(vertices, triangles))
        count += f != 0;
    return count;
}

} // namespace WelkingAcceleratedVersion
