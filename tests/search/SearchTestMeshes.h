#pragma once

// Seeded meshes and an independent double-precision point-to-triangle
// distance for the surface searches' tests.
#include <QVector3D>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace SearchTestMeshes {

struct Mesh
{
    QVector<QVector3D> vertices;
    QVector<int> indices;
    int triangleCount() const { return indices.size() / 3; }
};

/// An nx by ny grid of quads split into two triangles each, in z = height(x, y).
template <typename Height> Mesh grid(int nx, int ny, float size, Height height)
{
    Mesh m;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i) {
            const float x = size * float(i) / float(nx), y = size * float(j) / float(ny);
            m.vertices.append(QVector3D(x, y, height(x, y)));
        }
    const auto at = [&](int i, int j) { return j * (nx + 1) + i; };
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            m.indices << at(i, j) << at(i + 1, j) << at(i + 1, j + 1);
            m.indices << at(i, j) << at(i + 1, j + 1) << at(i, j + 1);
        }
    return m;
}

inline Mesh flatGrid(int nx, int ny, float size = 1.0f)
{
    return grid(nx, ny, size, [](float, float) { return 0.0f; });
}

/// A closed, outward-facing latitude-longitude sphere, its radius moved by
/// up to `noise` (relative) per vertex.
inline Mesh sphere(int rings, int segments, float radius, float noise, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> jitter(-noise, noise);
    Mesh m;
    const float pi = 3.14159265f;
    m.vertices.append(QVector3D(0, 0, radius * (1 + jitter(random))));
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const float theta = pi * float(r) / float(rings), phi = 2 * pi * float(s) / float(segments);
            const float rr = radius * (1 + jitter(random));
            m.vertices.append(rr * QVector3D(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi),
                                             std::cos(theta)));
        }
    m.vertices.append(QVector3D(0, 0, -radius * (1 + jitter(random))));
    const int south = m.vertices.size() - 1;
    const auto at = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    for (int s = 0; s < segments; ++s)
        m.indices << 0 << at(1, s) << at(1, s + 1);
    for (int r = 1; r < rings - 1; ++r)
        for (int s = 0; s < segments; ++s) {
            m.indices << at(r, s) << at(r + 1, s) << at(r + 1, s + 1);
            m.indices << at(r, s) << at(r + 1, s + 1) << at(r, s + 1);
        }
    for (int s = 0; s < segments; ++s)
        m.indices << at(rings - 1, s) << south << at(rings - 1, s + 1);
    return m;
}

/// Unconnected triangles of random size and direction in a cube, long thin
/// ones among them, so that boxes overlap and spatial splits pay.
inline Mesh soup(int count, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    Mesh m;
    for (int t = 0; t < count; ++t) {
        const QVector3D centre(unit(random), unit(random), unit(random));
        const float size = t % 5 == 0 ? 1.5f : 0.1f;
        for (int c = 0; c < 3; ++c) {
            m.indices << m.vertices.size();
            m.vertices.append(centre + size * QVector3D(unit(random), unit(random), unit(random)));
        }
    }
    return m;
}

inline double segmentDistance(const QVector3D& p, const QVector3D& a, const QVector3D& b)
{
    const double ab[3] = {double(b.x()) - a.x(), double(b.y()) - a.y(), double(b.z()) - a.z()};
    const double ap[3] = {double(p.x()) - a.x(), double(p.y()) - a.y(), double(p.z()) - a.z()};
    const double len = ab[0] * ab[0] + ab[1] * ab[1] + ab[2] * ab[2];
    double t = len > 0 ? (ap[0] * ab[0] + ap[1] * ab[1] + ap[2] * ab[2]) / len : 0.0;
    t = std::min(1.0, std::max(0.0, t));
    double d = 0;
    for (int k = 0; k < 3; ++k)
        d += (ap[k] - t * ab[k]) * (ap[k] - t * ab[k]);
    return std::sqrt(d);
}

/// Distance from p to triangle abc in double precision: the plane when the
/// foot lies inside, else the nearest edge. Degenerate triangles are their edges.
inline double triangleDistance(const QVector3D& p, const QVector3D& a, const QVector3D& b, const QVector3D& c)
{
    const double e0[3] = {double(b.x()) - a.x(), double(b.y()) - a.y(), double(b.z()) - a.z()};
    const double e1[3] = {double(c.x()) - a.x(), double(c.y()) - a.y(), double(c.z()) - a.z()};
    const double d[3] = {double(p.x()) - a.x(), double(p.y()) - a.y(), double(p.z()) - a.z()};
    const double n[3] = {e0[1] * e1[2] - e0[2] * e1[1], e0[2] * e1[0] - e0[0] * e1[2],
                         e0[0] * e1[1] - e0[1] * e1[0]};
    const double nn = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    const double edges =
        std::min({segmentDistance(p, a, b), segmentDistance(p, b, c), segmentDistance(p, c, a)});
    const double scale =
        e0[0] * e0[0] + e0[1] * e0[1] + e0[2] * e0[2] + e1[0] * e1[0] + e1[1] * e1[1] + e1[2] * e1[2];
    if (nn <= 1e-20 * scale * scale)
        return edges;
    const auto dot = [](const double* x, const double* y) { return x[0] * y[0] + x[1] * y[1] + x[2] * y[2]; };
    const double d00 = dot(e0, e0), d01 = dot(e0, e1), d11 = dot(e1, e1), d20 = dot(d, e0), d21 = dot(d, e1);
    const double den = d00 * d11 - d01 * d01;
    const double v = (d11 * d20 - d01 * d21) / den, w = (d00 * d21 - d01 * d20) / den;
    if (v >= 0 && w >= 0 && v + w <= 1)
        return std::abs(dot(d, n)) / std::sqrt(nn);
    return edges;
}

inline double meshDistance(const Mesh& m, const QVector3D& p)
{
    double best = std::numeric_limits<double>::infinity();
    for (int t = 0; t < m.triangleCount(); ++t)
        best =
            std::min(best, triangleDistance(p, m.vertices[m.indices[3 * t]], m.vertices[m.indices[3 * t + 1]],
                                            m.vertices[m.indices[3 * t + 2]]));
    return best;
}

/// Query points: near the surface, inside the box and far outside it.
inline QVector<QVector3D> queries(int count, float extent, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    QVector<QVector3D> result;
    for (int i = 0; i < count; ++i) {
        const float reach = i % 10 == 0 ? 5.0f * extent : extent;
        result.append(reach * QVector3D(unit(random), unit(random), unit(random)));
    }
    return result;
}

} // namespace SearchTestMeshes
