#include "WGLDataGeomBuffers.h"

#include "WGLBuffer.h"
#include "WGLSharedContext.h"
#include "WGLTexBuffer.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>
#include <tbb/parallel_sort.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace Welk {

namespace {

QVector<float> asFloats(const QVector<int>& indices)
{
    QVector<float> out(indices.size());
    tbb::parallel_for(tbb::blocked_range<int>(0, indices.size(), 1 << 16),
                      [&](const tbb::blocked_range<int>& r) {
                          for (int i = r.begin(); i < r.end(); ++i)
                              out[i] = static_cast<float>(indices[i]);
                      });
    return out;
}

/// Each polygon edge once, whichever polygons share it.
QVector<float> uniqueEdges(const QVector<int>& corners, const QVector<int>& offsets)
{
    std::vector<quint64> keys(corners.size());
    const int polygons = offsets.isEmpty() ? 0 : offsets.size() - 1;
    tbb::parallel_for(tbb::blocked_range<int>(0, polygons, 1 << 14), [&](const tbb::blocked_range<int>& r) {
        for (int p = r.begin(); p < r.end(); ++p) {
            const int begin = offsets[p];
            const int end = offsets[p + 1];
            for (int c = begin; c < end; ++c) {
                const quint32 a = static_cast<quint32>(corners[c]);
                const quint32 b = static_cast<quint32>(corners[c + 1 < end ? c + 1 : begin]);
                keys[c] = (static_cast<quint64>(std::min(a, b)) << 32) | std::max(a, b);
            }
        }
    });
    tbb::parallel_sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    QVector<float> out(static_cast<int>(keys.size() * 2));
    tbb::parallel_for(tbb::blocked_range<size_t>(0, keys.size(), 1 << 16),
                      [&](const tbb::blocked_range<size_t>& r) {
                          for (size_t i = r.begin(); i < r.end(); ++i) {
                              out[static_cast<int>(2 * i)] = static_cast<float>(keys[i] >> 32);
                              out[static_cast<int>(2 * i + 1)] = static_cast<float>(keys[i] & 0xffffffffu);
                          }
                      });
    return out;
}

/// Vertex clustering: vertices that share a cell of a grid over the bounds
/// collapse onto the cell's first vertex, and triangles that lose a corner
/// that way go. The survivors keep their original texture corners. The grid
/// is refined or coarsened until about `target` triangles remain.
void clusterTriangles(const QVector<QVector3D>& vertices, const QVector<int>& triangles,
                      const QVector<int>& texCorners, const QVector3D& lo, const QVector3D& hi, int target,
                      QVector<float>& outVertices, QVector<float>& outTexCorners)
{
    const QVector3D extent = hi - lo;
    const float largest = std::max({extent.x(), extent.y(), extent.z(), 1e-30f});
    double cellsAcross = std::sqrt(target / 4.0);
    for (int attempt = 0; attempt < 4; ++attempt) {
        const float cell = largest / static_cast<float>(cellsAcross);
        std::vector<quint64> keys(vertices.size());
        tbb::parallel_for(tbb::blocked_range<int>(0, vertices.size(), 1 << 15),
                          [&](const tbb::blocked_range<int>& r) {
                              for (int i = r.begin(); i < r.end(); ++i) {
                                  const QVector3D q = (vertices[i] - lo) / cell;
                                  const quint64 x = static_cast<quint64>(std::max(0.0f, q.x())) & 0x1fffff;
                                  const quint64 y = static_cast<quint64>(std::max(0.0f, q.y())) & 0x1fffff;
                                  const quint64 z = static_cast<quint64>(std::max(0.0f, q.z())) & 0x1fffff;
                                  keys[i] = (x << 42) | (y << 21) | z;
                              }
                          });
        // The representative of a cell is its smallest vertex index.
        std::vector<std::pair<quint64, int>> order(vertices.size());
        for (int i = 0; i < vertices.size(); ++i)
            order[i] = {keys[i], i};
        tbb::parallel_sort(order.begin(), order.end());
        std::vector<int> representative(vertices.size());
        for (size_t i = 0; i < order.size();) {
            size_t j = i;
            while (j < order.size() && order[j].first == order[i].first)
                representative[order[j++].second] = order[i].second;
            i = j;
        }
        const int count = triangles.size() / 3;
        std::vector<char> keep(count, 0);
        tbb::parallel_for(tbb::blocked_range<int>(0, count, 1 << 15), [&](const tbb::blocked_range<int>& r) {
            for (int t = r.begin(); t < r.end(); ++t) {
                const int a = representative[triangles[3 * t]];
                const int b = representative[triangles[3 * t + 1]];
                const int c = representative[triangles[3 * t + 2]];
                keep[t] = a != b && b != c && a != c;
            }
        });
        int kept = 0;
        for (char k : keep)
            kept += k;
        if (kept > 2 * target && attempt < 3) {
            cellsAcross /= std::sqrt(static_cast<double>(kept) / target);
            continue;
        }
        outVertices.clear();
        outTexCorners.clear();
        outVertices.reserve(kept * 3);
        if (!texCorners.isEmpty())
            outTexCorners.reserve(kept * 3);
        for (int t = 0; t < count; ++t) {
            if (!keep[t])
                continue;
            for (int k = 0; k < 3; ++k) {
                outVertices << static_cast<float>(representative[triangles[3 * t + k]]);
                if (!texCorners.isEmpty())
                    outTexCorners << static_cast<float>(texCorners[3 * t + k]);
            }
        }
        return;
    }
}

} // namespace

WGLDataGeomBuffers::WGLDataGeomBuffers(WGLSharedContext* context, const QVector<QVector3D>& vertices,
                                       const QVector<QVector3D>& normals, const QVector<QVector2D>& texCoords,
                                       const QVector<int>& triangleVertexIndices,
                                       const QVector<int>& triangleTexCoordIndices,
                                       const QVector<int>& polygonVertexIndices,
                                       const QVector<int>& polygonOffsets)
    : m_context(context), m_polygonVertexIndices(polygonVertexIndices), m_polygonOffsets(polygonOffsets)
{
    if (m_context)
        m_context->makeCurrentIfNeeded();
    m_vertices = std::make_unique<WGLTexBufferVector3D>(vertices);
    m_normals = std::make_unique<WGLTexBufferVector3D>(normals);
    const bool textured =
        !texCoords.isEmpty() && triangleTexCoordIndices.size() == triangleVertexIndices.size();
    if (textured)
        m_texCoords = std::make_unique<WGLTexBufferVector2D>(texCoords);
    m_triangleVertexIndices = std::make_unique<WGLBufferFloat>(asFloats(triangleVertexIndices));
    ++m_indexStreamBuilds;
    if (textured)
        m_triangleTexCoordIndices = std::make_unique<WGLBufferFloat>(asFloats(triangleTexCoordIndices));
    computeBounds(vertices);
    if (triangleVertexIndices.size() / 3 > CoarseThreshold) {
        QVector<float> coarse;
        QVector<float> coarseTex;
        clusterTriangles(vertices, triangleVertexIndices, textured ? triangleTexCoordIndices : QVector<int>(),
                         m_min, m_max, CoarseTriangles, coarse, coarseTex);
        if (!coarse.isEmpty())
            m_coarseVertexIndices = std::make_unique<WGLBufferFloat>(coarse);
        if (!coarseTex.isEmpty())
            m_coarseTexCoordIndices = std::make_unique<WGLBufferFloat>(coarseTex);
    }
}

WGLDataGeomBuffers::~WGLDataGeomBuffers()
{
    if (m_context)
        m_context->makeCurrentIfNeeded();
}

WGLBufferFloat* WGLDataGeomBuffers::edgeVertexIndices()
{
    if (!m_edgeVertexIndices && !m_polygonOffsets.isEmpty()) {
        if (m_context)
            m_context->makeCurrentIfNeeded();
        m_edgeVertexIndices =
            std::make_unique<WGLBufferFloat>(uniqueEdges(m_polygonVertexIndices, m_polygonOffsets));
        m_polygonVertexIndices.clear();
        m_polygonOffsets.clear();
    }
    return m_edgeVertexIndices.get();
}

void WGLDataGeomBuffers::updateVertices(const QVector<QVector3D>& vertices, const QVector<QVector3D>& normals)
{
    if (vertices.size() != m_vertices->count() || normals.size() != m_normals->count())
        return;
    if (m_context)
        m_context->makeCurrentIfNeeded();
    m_vertices->update(vertices);
    m_normals->update(normals);
    computeBounds(vertices);
}

void WGLDataGeomBuffers::setVertexColors(const QVector<QColor>& colors)
{
    if (m_context)
        m_context->makeCurrentIfNeeded();
    if (colors.isEmpty() || colors.size() != m_vertices->count()) {
        m_vertexColors.reset();
        return;
    }
    if (m_vertexColors)
        m_vertexColors->update(colors);
    else
        m_vertexColors = std::make_unique<WGLTexBufferColor>(colors);
}

qint64 WGLDataGeomBuffers::gpuBytes() const
{
    qint64 bytes = m_vertices->gpuBytes() + m_normals->gpuBytes() + m_triangleVertexIndices->gpuBytes();
    if (m_texCoords)
        bytes += m_texCoords->gpuBytes();
    if (m_triangleTexCoordIndices)
        bytes += m_triangleTexCoordIndices->gpuBytes();
    if (m_edgeVertexIndices)
        bytes += m_edgeVertexIndices->gpuBytes();
    if (m_vertexColors)
        bytes += m_vertexColors->gpuBytes();
    if (m_coarseVertexIndices)
        bytes += m_coarseVertexIndices->gpuBytes();
    if (m_coarseTexCoordIndices)
        bytes += m_coarseTexCoordIndices->gpuBytes();
    return bytes;
}

void WGLDataGeomBuffers::computeBounds(const QVector<QVector3D>& vertices)
{
    if (vertices.isEmpty()) {
        m_min = m_max = QVector3D();
        return;
    }
    using Box = std::pair<QVector3D, QVector3D>;
    const Box box = tbb::parallel_reduce(
        tbb::blocked_range<int>(0, vertices.size(), 1 << 16), Box(vertices[0], vertices[0]),
        [&](const tbb::blocked_range<int>& r, Box b) {
            for (int i = r.begin(); i < r.end(); ++i) {
                const QVector3D& v = vertices[i];
                b.first = QVector3D(std::min(b.first.x(), v.x()), std::min(b.first.y(), v.y()),
                                    std::min(b.first.z(), v.z()));
                b.second = QVector3D(std::max(b.second.x(), v.x()), std::max(b.second.y(), v.y()),
                                     std::max(b.second.z(), v.z()));
            }
            return b;
        },
        [](const Box& a, const Box& b) {
            return Box(QVector3D(std::min(a.first.x(), b.first.x()), std::min(a.first.y(), b.first.y()),
                                 std::min(a.first.z(), b.first.z())),
                       QVector3D(std::max(a.second.x(), b.second.x()), std::max(a.second.y(), b.second.y()),
                                 std::max(a.second.z(), b.second.z())));
        });
    m_min = box.first;
    m_max = box.second;
}

} // namespace Welk
