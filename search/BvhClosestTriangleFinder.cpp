#include "BvhClosestTriangleFinder.h"

#include "BvhBuilder.h"
#include "BvhPointOnTriangleFinder.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <limits>

namespace ClosestTriangleSearch {

namespace {

constexpr float kNoLimit = std::numeric_limits<float>::max();

float boxDistanceSq(const BvhNode& n, const QVector3D& p)
{
    const float dx = p.x() - std::min(std::max(p.x(), n.minX), n.maxX);
    const float dy = p.y() - std::min(std::max(p.y(), n.minY), n.maxY);
    const float dz = p.z() - std::min(std::max(p.z(), n.minZ), n.maxZ);
    return dx * dx + dy * dy + dz * dz;
}

float centreDistanceSq(const BvhNode& n, const QVector3D& p)
{
    const float dx = p.x() - 0.5f * (n.minX + n.maxX);
    const float dy = p.y() - 0.5f * (n.minY + n.maxY);
    const float dz = p.z() - 0.5f * (n.minZ + n.maxZ);
    return dx * dx + dy * dy + dz * dz;
}

} // namespace

QVector<Welk::WPointOnTriangle> ClosestTriangleFinder::findAll(const QVector<QVector3D>& points,
                                                               QVector<float>* distances) const
{
    QVector<Welk::WPointOnTriangle> result(points.size());
    if (distances)
        distances->fill(kNoLimit, points.size());
    Welk::WPointOnTriangle* out = result.data();
    float* outDistances = distances ? distances->data() : nullptr;
    tbb::parallel_for(tbb::blocked_range<int>(0, points.size(), 256),
                      [&](const tbb::blocked_range<int>& range) {
                          for (int i = range.begin(); i != range.end(); ++i) {
                              float distance = kNoLimit;
                              out[i] = find(points[i], &distance);
                              if (outDistances)
                                  outDistances[i] = distance;
                          }
                      });
    return result;
}

BvhClosestTriangleFinder::BvhClosestTriangleFinder(const QVector<QVector3D>& vertices,
                                                   const QVector<int>& triangleIndices,
                                                   const BvhParameters& parameters,
                                                   std::shared_ptr<PointOnTriangleFinder> pointFinder)
    : m_pointFinder(std::move(pointFinder))
{
    if (!m_pointFinder)
        m_pointFinder = std::make_shared<BvhPointOnTriangleFinder>(vertices, triangleIndices);
    BvhBuilder(vertices, triangleIndices, parameters).build(*this);
}

size_t BvhClosestTriangleFinder::memoryBytes() const
{
    return m_nodes.capacity() * sizeof(BvhNode) + m_primitives.capacity() * sizeof(uint32_t);
}

Welk::WPointOnTriangle BvhClosestTriangleFinder::find(const QVector3D& point, float* distance) const
{
    Welk::WPointOnTriangle result;
    if (m_nodes.empty())
        return result;
    float best = distance ? *distance : kNoLimit;

    // Depth is bounded by maxDepth, and each level leaves at most one node waiting.
    constexpr size_t kFixedStack = 128;
    uint32_t fixedStack[kFixedStack];
    std::vector<uint32_t> largeStack;
    uint32_t* stack = fixedStack;
    if (size_t(m_maxDepth) + 2 > kFixedStack) {
        largeStack.resize(size_t(m_maxDepth) + 2);
        stack = largeStack.data();
    }
    size_t size = 0;
    stack[size++] = 0;
    const PointOnTriangleFinder& finder = *m_pointFinder;
    while (size > 0) {
        const BvhNode& node = m_nodes[stack[--size]];
        if (best != kNoLimit && boxDistanceSq(node, point) > best * best)
            continue;
        if (node.count > 0) {
            for (uint32_t i = node.first, end = node.first + node.count; i < end; ++i) {
                const float before = best;
                const Welk::WPointOnTriangle hit = finder.find(int(m_primitives[i]), point, best);
                if (best < before)
                    result = hit;
            }
            continue;
        }
        const float left = centreDistanceSq(m_nodes[node.first], point);
        const float right = centreDistanceSq(m_nodes[node.first + 1], point);
        if (left <= right) {
            stack[size++] = node.first + 1;
            stack[size++] = node.first;
        } else {
            stack[size++] = node.first;
            stack[size++] = node.first + 1;
        }
    }
    if (distance && result.isValid())
        *distance = best;
    return result;
}

} // namespace ClosestTriangleSearch
