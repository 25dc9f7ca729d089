#include "SurfaceDistance.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace WelkPlugin {

namespace {

using Vec3 = Eigen::Vector3f;

/// The point of triangle abc nearest to p, as barycentric weights of b and c
/// (Ericson, Real-Time Collision Detection, 5.1.5).
Eigen::Vector2f closestOnTriangle(const Vec3& p, const Vec3& a, const Vec3& b, const Vec3& c)
{
    const Vec3 ab = b - a, ac = c - a, ap = p - a;
    const float d1 = ab.dot(ap), d2 = ac.dot(ap);
    if (d1 <= 0 && d2 <= 0)
        return {0, 0};
    const Vec3 bp = p - b;
    const float d3 = ab.dot(bp), d4 = ac.dot(bp);
    if (d3 >= 0 && d4 <= d3)
        return {1, 0};
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0)
        return {d1 / (d1 - d3), 0};
    const Vec3 cp = p - c;
    const float d5 = ab.dot(cp), d6 = ac.dot(cp);
    if (d6 >= 0 && d5 <= d6)
        return {0, 1};
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0)
        return {0, d2 / (d2 - d6)};
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0 && (d4 - d3) >= 0 && (d5 - d6) >= 0) {
        const float w = (d4 - d3) / ((d4 - d3) + (d5 - d6));
        return {1 - w, w};
    }
    const float denominator = 1.0f / (va + vb + vc);
    return {vb * denominator, vc * denominator};
}

float pointTriangleSq(const Vec3& p, const Vec3& a, const Vec3& b, const Vec3& c, Eigen::Vector2f* weights = nullptr)
{
    const Eigen::Vector2f w = closestOnTriangle(p, a, b, c);
    if (weights)
        *weights = w;
    return (p - (a + (b - a) * w[0] + (c - a) * w[1])).squaredNorm();
}

} // namespace

SurfaceDistance::SurfaceDistance(const QVector<QVector3D>& vertices, const QVector<int>& triangles)
    : m_triangles(triangles)
{
    for (const QVector3D& v : vertices)
        m_vertices.emplace_back(v.x(), v.y(), v.z());
    m_cornerOffsets.assign(m_vertices.size() + 1, 0);
    for (int v : triangles)
        ++m_cornerOffsets[size_t(v) + 1];
    for (size_t i = 0; i < m_vertices.size(); ++i)
        m_cornerOffsets[i + 1] += m_cornerOffsets[i];
    std::vector<long long> fill(m_cornerOffsets.begin(), m_cornerOffsets.end() - 1);
    m_cornerTriangles.resize(size_t(triangles.size()));
    for (int i = 0; i < triangles.size(); ++i)
        m_cornerTriangles[size_t(fill[size_t(triangles[i])]++)] = i / 3;
    for (int i = 0; i + 2 < triangles.size(); i += 3)
        for (int k = 0; k < 3; ++k)
            m_longestEdge = std::max(m_longestEdge, (m_vertices[size_t(triangles[i + k])] -
                                                     m_vertices[size_t(triangles[i + (k + 1) % 3])])
                                                        .norm());
    if (!m_vertices.empty())
        m_tree.reset(KDTreeEigen::build<float, long long>(m_vertices, 16));
}

Welk::WPointOnTriangle SurfaceDistance::closestPoint(const QVector3D& q, float* distance) const
{
    Welk::WPointOnTriangle best;
    if (m_triangles.size() < 3 || !m_tree)
        return best;
    const Vec3 p(q.x(), q.y(), q.z());
    float nearestSq = 0;
    m_tree->findNearestPointInd(p, m_vertices, &nearestSq);
    // Every point of a triangle lies within its longest edge of each corner,
    // so the nearest triangle has all corners within this reach.
    const float reach = std::sqrt(nearestSq) + m_longestEdge;
    std::vector<long long> near;
    m_tree->findNearestPointInRadius(p, m_vertices, near, reach * reach * 1.0001f);
    float bestSq = std::numeric_limits<float>::max();
    for (long long v : near)
        for (long long c = m_cornerOffsets[size_t(v)]; c < m_cornerOffsets[size_t(v) + 1]; ++c) {
            const int t = m_cornerTriangles[size_t(c)];
            Eigen::Vector2f w;
            const float d = pointTriangleSq(p, m_vertices[size_t(m_triangles[3 * t])],
                                            m_vertices[size_t(m_triangles[3 * t + 1])],
                                            m_vertices[size_t(m_triangles[3 * t + 2])], &w);
            if (d < bestSq || (d == bestSq && t < best.triangle)) {
                bestSq = d;
                best.triangle = t;
                best.u = 1.0f - w[0] - w[1];
                best.v = w[0];
            }
        }
    if (distance)
        *distance = std::sqrt(bestSq);
    return best;
}

SurfaceDistance::~SurfaceDistance() = default;

float SurfaceDistance::distance(const QVector3D& q) const
{
    if (!m_tree)
        return std::numeric_limits<float>::infinity();
    static thread_local Welk::IndexedHeap heap;
    if (heap.capacity() != int(m_vertices.size()))
        heap.reset(int(m_vertices.size()));
    heap.clear();
    const Vec3 p(q.x(), q.y(), q.z());
    m_tree->findKNearestPointsInds(p, m_vertices, 8, heap);
    float best = std::numeric_limits<float>::max();
    for (int i = 0; i < heap.count(); ++i) {
        const long long v = heap.entry(i).id;
        best = std::min(best, float(heap.entry(i).key));
        for (long long c = m_cornerOffsets[size_t(v)]; c < m_cornerOffsets[size_t(v) + 1]; ++c) {
            const int t = m_cornerTriangles[size_t(c)];
            best = std::min(best, pointTriangleSq(p, m_vertices[size_t(m_triangles[3 * t])],
                                                  m_vertices[size_t(m_triangles[3 * t + 1])],
                                                  m_vertices[size_t(m_triangles[3 * t + 2])]));
        }
    }
    heap.clear();
    return std::sqrt(best);
}

QVector<float> SurfaceDistance::distances(const QVector<QVector3D>& points) const
{
    QVector<float> result(points.size());
    float* out = result.data();
    tbb::parallel_for(0, points.size(), [&](int i) { out[i] = distance(points[i]); });
    return result;
}

SurfaceDistance::Summary SurfaceDistance::summarize(const QVector<float>& values)
{
    Summary s;
    s.count = values.size();
    if (values.isEmpty())
        return s;
    std::vector<float> distances(values.begin(), values.end());
    double sum = 0, squares = 0;
    for (float d : distances) {
        sum += d;
        squares += double(d) * d;
        s.max = std::max(s.max, double(d));
    }
    s.mean = sum / double(distances.size());
    s.rms = std::sqrt(squares / double(distances.size()));
    const size_t at = std::min(distances.size() - 1, size_t(0.95 * double(distances.size())));
    std::nth_element(distances.begin(), distances.begin() + long(at), distances.end());
    s.p95 = distances[at];
    return s;
}

} // namespace WelkPlugin
