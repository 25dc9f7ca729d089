#include "FastContinuousProjectionOnTriangleFinder.h"

#include "BvhClosestTriangleFinder.h"
#include "ClosestPointOnTriangle.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace KeepDistance {

namespace {

// Weights this far below zero still count as inside, so that a position on
// a shared edge does not bounce between the two triangles.
constexpr float kInsideTolerance = 1e-5f;

} // namespace

namespace {

/// The triangles around each vertex, in increasing order: those of vertex v
/// are `around[first[v]]` to `around[first[v + 1] - 1]`. A counting sort,
/// linear in the mesh.
struct TrianglesAroundVertices
{
    std::vector<int> first;
    std::vector<int> around;

    TrianglesAroundVertices(const int* indices, int triangleCount, int vertexCount)
        : first(size_t(vertexCount) + 1, 0)
    {
        for (int k = 0; k < 3 * triangleCount; ++k)
            if (indices[k] >= 0 && indices[k] < vertexCount)
                ++first[size_t(indices[k]) + 1];
        for (size_t v = 0; v < size_t(vertexCount); ++v)
            first[v + 1] += first[v];
        around.resize(size_t(first.back()));
        std::vector<int> fill(first.begin(), first.end() - 1);
        for (int k = 0; k < 3 * triangleCount; ++k)
            if (indices[k] >= 0 && indices[k] < vertexCount)
                around[size_t(fill[size_t(indices[k])]++)] = k / 3;
    }
};

} // namespace

FastContinuousProjectionOnTriangleFinder::FastContinuousProjectionOnTriangleFinder(
    const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices,
    std::shared_ptr<const ClosestTriangleSearch::ClosestTriangleFinder> nearestFinder,
    const QVector<QVector3D>& vertexNormals)
    : m_vertices(vertices), m_indices(triangleIndices), m_normals(vertexNormals),
      m_nearest(std::move(nearestFinder))
{
    // The lists are shared with the caller's mesh: read them through const
    // pointers only, so that nothing detaches and copies them.
    const int* indices = m_indices.constData();
    const QVector3D* points = m_vertices.constData();
    const int triangleCount = m_indices.size() / 3;
    const int vertexCount = m_vertices.size();
    const TrianglesAroundVertices around(indices, triangleCount, vertexCount);

    const bool given = m_normals.size() == vertexCount;
    if (!given)
        m_normals = QVector<QVector3D>(vertexCount);
    QVector3D* normals = m_normals.data();
    tbb::parallel_for(tbb::blocked_range<int>(0, vertexCount, 8192), [&](const tbb::blocked_range<int>& range) {
        for (int v = range.begin(); v != range.end(); ++v) {
            if (!given) {
                // Area-weighted: the unnormalised face normals summed.
                QVector3D sum;
                for (int k = around.first[size_t(v)]; k < around.first[size_t(v) + 1]; ++k) {
                    const int* t = indices + 3 * around.around[size_t(k)];
                    sum += QVector3D::crossProduct(points[t[1]] - points[t[0]], points[t[2]] - points[t[0]]);
                }
                normals[v] = sum;
            }
            normals[v].normalize();
        }
    });
    buildNeighbours(around.first, around.around);
    if (!m_nearest)
        m_nearest = std::make_shared<ClosestTriangleSearch::BvhClosestTriangleFinder>(m_vertices, m_indices);
}

void FastContinuousProjectionOnTriangleFinder::buildNeighbours(const std::vector<int>& first,
                                                               const std::vector<int>& around)
{
    const int* indices = m_indices.constData();
    const int triangleCount = m_indices.size() / 3;
    const int vertexCount = m_vertices.size();
    m_neighbours.assign(size_t(triangleCount), {-1, -1, -1});

    tbb::parallel_for(tbb::blocked_range<int>(0, triangleCount, 4096), [&](const tbb::blocked_range<int>& range) {
        for (int t = range.begin(); t != range.end(); ++t)
            for (int c = 0; c < 3; ++c) {
                const int a = indices[3 * t + (c + 1) % 3];
                const int b = indices[3 * t + (c + 2) % 3];
                if (a < 0 || a >= vertexCount || b < 0 || b >= vertexCount || a == b)
                    continue;
                // The sides of edge ab are the triangles around a that hold b,
                // in triangle order. A non-manifold edge links them in a ring,
                // so a walk can still cross it: each side names the next.
                auto holdsEdge = [&](int other) {
                    for (int k = 0; k < 3; ++k) {
                        const int x = indices[3 * other + (k + 1) % 3], y = indices[3 * other + (k + 2) % 3];
                        if ((x == a && y == b) || (x == b && y == a))
                            return true;
                    }
                    return false;
                };
                int firstSide = -1, next = -1;
                bool passedSelf = false;
                for (int k = first[size_t(a)]; k < first[size_t(a) + 1]; ++k) {
                    const int other = around[size_t(k)];
                    if (k > first[size_t(a)] && other == around[size_t(k) - 1])
                        continue; // a triangle with a twice
                    if (other == t) {
                        passedSelf = true;
                        continue;
                    }
                    if (!holdsEdge(other))
                        continue;
                    if (firstSide < 0)
                        firstSide = other;
                    if (passedSelf) {
                        next = other;
                        break;
                    }
                }
                m_neighbours[size_t(t)][size_t(c)] = next >= 0 ? next : firstSide;
            }
    });
}

bool FastContinuousProjectionOnTriangleFinder::solve(int triangle, const QVector3D& x, Solution& out) const
{
    const int i0 = m_indices[3 * triangle], i1 = m_indices[3 * triangle + 1],
              i2 = m_indices[3 * triangle + 2];
    const QVector3D& p0 = m_vertices[i0];
    const QVector3D e1 = m_vertices[i1] - p0;
    const QVector3D e2 = m_vertices[i2] - p0;
    const QVector3D faceNormal = QVector3D::crossProduct(e1, e2);
    const float scale = std::max({e1.length(), e2.length(), (e2 - e1).length()});
    const float doubleArea = faceNormal.length();
    if (!(doubleArea > 1e-6f * scale * scale))
        return false;
    const QVector3D nf = faceNormal / doubleArea;
    const QVector3D& n0 = m_normals[i0];
    const QVector3D f1 = m_normals[i1] - n0;
    const QVector3D f2 = m_normals[i2] - n0;
    if (!(QVector3D::dotProduct(n0, nf) > 0.0f && QVector3D::dotProduct(m_normals[i1], nf) > 0.0f &&
          QVector3D::dotProduct(m_normals[i2], nf) > 0.0f))
        return false;

    // Start from the flat projection, then Newton on (w1, w2, t) for
    // p0 + w1 e1 + w2 e2 + t (n0 + w1 f1 + w2 f2) = x.
    float t = QVector3D::dotProduct(x - p0, nf);
    const QVector3D d = x - t * nf - p0;
    const float d11 = QVector3D::dotProduct(e1, e1), d12 = QVector3D::dotProduct(e1, e2),
                d22 = QVector3D::dotProduct(e2, e2);
    const float r1 = QVector3D::dotProduct(d, e1), r2 = QVector3D::dotProduct(d, e2);
    const float denominator = d11 * d22 - d12 * d12;
    float w1 = (d22 * r1 - d12 * r2) / denominator;
    float w2 = (d11 * r2 - d12 * r1) / denominator;
    for (int iteration = 0; iteration < 16; ++iteration) {
        const QVector3D n = n0 + w1 * f1 + w2 * f2;
        const QVector3D residual = p0 + w1 * e1 + w2 * e2 + t * n - x;
        if (residual.length() <= 1e-6f * (scale + std::abs(t)))
            break;
        const QVector3D c1 = e1 + t * f1, c2 = e2 + t * f2;
        const float det = QVector3D::dotProduct(c1, QVector3D::crossProduct(c2, n));
        if (!(std::abs(det) > 1e-9f * c1.length() * c2.length() * n.length()))
            return false;
        const QVector3D r = -residual;
        w1 += QVector3D::dotProduct(r, QVector3D::crossProduct(c2, n)) / det;
        w2 += QVector3D::dotProduct(c1, QVector3D::crossProduct(r, n)) / det;
        t += QVector3D::dotProduct(c1, QVector3D::crossProduct(c2, r)) / det;
    }
    if (!std::isfinite(w1) || !std::isfinite(w2) || !std::isfinite(t))
        return false;
    out.w[0] = 1.0f - w1 - w2;
    out.w[1] = w1;
    out.w[2] = w2;
    out.offset = t;
    out.surface = p0 + w1 * e1 + w2 * e2;
    return true;
}

Welk::WPointOnTriangle
FastContinuousProjectionOnTriangleFinder::clampToTriangle(int triangle, const QVector3D& position) const
{
    float u = 0.0f, v = 0.0f;
    ClosestTriangleSearch::closestPointOnTriangle(m_vertices[m_indices[3 * triangle]],
                                                  m_vertices[m_indices[3 * triangle + 1]],
                                                  m_vertices[m_indices[3 * triangle + 2]], position, u, v);
    return {triangle, u, v};
}

Welk::WPointOnTriangle FastContinuousProjectionOnTriangleFinder::find(int triangle, const QVector3D& point,
                                                                      float& bestDistance) const
{
    Solution s;
    if (!solve(triangle, point, s) || std::min({s.w[0], s.w[1], s.w[2]}) < -kInsideTolerance)
        return {};
    const float distance = (point - s.surface).length();
    if (!(distance <= bestDistance))
        return {};
    bestDistance = distance;
    return {triangle, s.w[0], s.w[1]};
}

Welk::WPointOnTriangle FastContinuousProjectionOnTriangleFinder::project(
    const QVector3D& position, const Welk::WPointOnTriangle& previous, QString* error) const
{
    const int triangleCount = m_indices.size() / 3;
    int triangle = previous.isValid() && previous.triangle < triangleCount ? previous.triangle : -1;
    if (triangle < 0)
        triangle = m_nearest->find(position).triangle;
    if (triangle < 0) {
        if (error)
            *error = QStringLiteral("The mesh has no triangles");
        return {};
    }

    int from = -1;
    for (int step = 0; step < m_maxWalkSteps; ++step) {
        Solution s;
        if (!solve(triangle, position, s)) {
            if (error)
                *error = singularTriangleMessage();
            return {};
        }
        const int corner = int(std::min_element(s.w, s.w + 3) - s.w);
        if (s.w[corner] >= -kInsideTolerance) {
            // Snap the tolerated overshoot onto the edge so the point stays on this triangle.
            float w[3];
            for (int c = 0; c < 3; ++c)
                w[c] = std::max(0.0f, s.w[c]);
            const float sum = w[0] + w[1] + w[2];
            if (error)
                error->clear();
            return {triangle, w[0] / sum, w[1] / sum};
        }
        const int next = neighbour(triangle, corner);
        if (next < 0 || next == from) {
            // A border, or a concave fold no normal reaches: stay on this triangle's nearest point.
            if (error)
                error->clear();
            return clampToTriangle(triangle, position);
        }
        from = triangle;
        triangle = next;
    }

    // Lost (a long jump, or a cycle around a vertex): start over from the nearest point.
    if (error)
        error->clear();
    return m_nearest->find(position);
}

} // namespace KeepDistance
