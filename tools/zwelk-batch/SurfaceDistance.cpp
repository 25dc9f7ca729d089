#include "SurfaceDistance.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>

namespace ZWelkBatch {

namespace {

using Vec3 = Eigen::Vector3f;

/// Squared distance from p to triangle abc (Ericson, Real-Time Collision Detection).
float pointTriangleSq(const Vec3& p, const Vec3& a, const Vec3& b, const Vec3& c)
{
    const Vec3 ab = b - a, ac = c - a, ap = p - a;
    const float d1 = ab.dot(ap), d2 = ac.dot(ap);
    if (d1 <= 0 && d2 <= 0)
        return ap.squaredNorm();
    const Vec3 bp = p - b;
    const float d3 = ab.dot(bp), d4 = ac.dot(bp);
    if (d3 >= 0 && d4 <= d3)
        return bp.squaredNorm();
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0)
        return (p - (a + ab * (d1 / (d1 - d3)))).squaredNorm();
    const Vec3 cp = p - c;
    const float d5 = ab.dot(cp), d6 = ac.dot(cp);
    if (d6 >= 0 && d5 <= d6)
        return cp.squaredNorm();
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0)
        return (p - (a + ac * (d2 / (d2 - d6)))).squaredNorm();
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0 && (d4 - d3) >= 0 && (d5 - d6) >= 0)
        return (p - (b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6))))).squaredNorm();
    const float denominator = 1.0f / (va + vb + vc);
    return (p - (a + ab * (vb * denominator) + ac * (vc * denominator))).squaredNorm();
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
    m_tree.reset(KDTreeEigen::build<float, long long>(m_vertices, 16));
}

SurfaceDistance::~SurfaceDistance() = default;

float SurfaceDistance::distance(const QVector3D& q) const
{
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

SurfaceDistance::Summary SurfaceDistance::summarize(const QVector<QVector3D>& points) const
{
    std::vector<float> distances(size_t(points.size()));
    tbb::parallel_for(0, points.size(), [&](int i) { distances[size_t(i)] = distance(points[i]); });
    Summary s;
    s.count = points.size();
    if (distances.empty())
        return s;
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

} // namespace ZWelkBatch
