#pragma once

#include "BvhClosestTriangleFinder.h"

#include <tbb/task_group.h>

#include <algorithm>
#include <atomic>
#include <limits>

namespace ClosestTriangleSearch {

/// Builds the node and primitive arrays of a `BvhClosestTriangleFinder`
/// (used once, by its constructor).
///
/// Each node keeps its references sorted along x, y and z. An object split
/// is found by a surface-area sweep over those orders; when its children
/// overlap by more than a small share of the scene, a binned spatial split
/// is tried as well, whose references are the triangles clipped to each
/// side. Object splits keep the orders by stable partitioning; the rarer
/// spatial splits sort their children again.
class BvhBuilder
{
public:
    BvhBuilder(const QVector<QVector3D>& vertices, const QVector<int>& triangleIndices,
               const BvhParameters& parameters);
    void build(BvhClosestTriangleFinder& target);

    struct Box
    {
        float lo[3], hi[3];
        void reset()
        {
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::numeric_limits<float>::infinity();
                hi[a] = -std::numeric_limits<float>::infinity();
            }
        }
        void grow(const Box& o)
        {
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], o.lo[a]);
                hi[a] = std::max(hi[a], o.hi[a]);
            }
        }
        void grow(const float p[3])
        {
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], p[a]);
                hi[a] = std::max(hi[a], p[a]);
            }
        }
        bool isEmpty() const { return lo[0] > hi[0] || lo[1] > hi[1] || lo[2] > hi[2]; }
        float halfArea() const
        {
            if (isEmpty())
                return 0.0f;
            const float dx = hi[0] - lo[0], dy = hi[1] - lo[1], dz = hi[2] - lo[2];
            return dz * (dx + dy) + dx * dy;
        }
    };
    struct Reference
    {
        Box box;
        float centroid[3];
        uint32_t triangle;
    };

private:
    struct Task
    {
        std::vector<uint32_t> order[3];
        Box bounds; ///< of the references; valid when `hasBounds`
        bool hasBounds = false;
        uint32_t node = 0;
        long long depth = 0;
    };
    struct Split
    {
        int axis = -1;
        float cost = 0.0f;
        size_t index = 0; ///< object split: size of the left side in the axis order
        int bin = 0;      ///< spatial split: first bin of the right side
        int bins = 0;     ///< spatial split: bins across the node
        size_t duplicates = 0;
        Box left, right;
    };

    void process(Task task);
    void runTask(Task& task, std::vector<Task>& stack);
    Split findObjectSplit(const Task& task) const;
    Split findSpatialSplit(const Task& task, const Box& bounds) const;
    Box clippedBox(const Reference& r, int axis, float lo, float hi) const;
    void objectSplit(Task& task, int axis, size_t leftCount, Task& left, Task& right);
    bool spatialSplit(Task& task, const Box& bounds, const Split& split, Task& left, Task& right);
    void makeLeaf(const Task& task, const Box& bounds);
    void sortOrders(Task& task) const;

    const QVector<QVector3D>& m_vertices;
    const QVector<int>& m_indices;
    BvhParameters m_parameters;
    size_t m_capacity = 0;
    float m_spatialThreshold = 0.0f;
    std::vector<Reference> m_refs;
    std::vector<uint8_t> m_side;
    std::unique_ptr<BvhNode[]> m_nodes;
    std::unique_ptr<uint32_t[]> m_primitives;
    std::atomic<size_t> m_refCount{0};
    std::atomic<uint32_t> m_nodeCursor{1};
    std::atomic<uint32_t> m_primitiveCursor{0};
    std::atomic<int> m_spatialSplits{0};
    tbb::task_group* m_group = nullptr;
};

} // namespace ClosestTriangleSearch
