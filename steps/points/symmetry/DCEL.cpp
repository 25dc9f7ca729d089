#include "DCEL.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <stdexcept>

namespace SymmetryDetectionTBB {

namespace {

struct ThreadHalfEdges
{
    std::vector<std::unique_ptr<HalfEdge[]>> blocks;
    std::vector<size_t> sizes;
    int maxVertexId = 0;
};

} // namespace

DCEL::DCEL(const Polygons& polygons, bool keepWinding) : m_polygonCount(polygons.size())
{
    tbb::enumerable_thread_specific<ThreadHalfEdges> perThread;
    tbb::parallel_for(tbb::blocked_range<int>(0, polygons.size()), [&](const tbb::blocked_range<int>& range) {
        ThreadHalfEdges& local = perThread.local();
        size_t corners = 0;
        for (int f = range.begin(); f != range.end(); ++f)
            corners += size_t(polygons[f].size());
        // One allocation for the range instead of one per half-edge.
        std::unique_ptr<HalfEdge[]> block(new HalfEdge[corners]);
        HalfEdge* e = block.get();
        for (int f = range.begin(); f != range.end(); ++f) {
            const QVector<int>& polygon = polygons[f];
            const int n = polygon.size();
            for (int i = 0; i < n; ++i) {
                // Reversed winding: corner order n-1, ..., 0.
                const int corner = keepWinding ? polygon[i] : polygon[n - 1 - i];
                const int following = keepWinding ? polygon[(i + 1) % n] : polygon[(2 * n - 2 - i) % n];
                e[i] = HalfEdge{corner, following, f, &e[(i + 1) % n], nullptr};
                local.maxVertexId = std::max(local.maxVertexId, corner);
            }
            e += n;
        }
        local.blocks.push_back(std::move(block));
        local.sizes.push_back(corners);
    });
    std::vector<std::pair<HalfEdge*, size_t>> ranges;
    for (ThreadHalfEdges& local : perThread) {
        m_maxVertexId = std::max(m_maxVertexId, local.maxVertexId);
        for (size_t b = 0; b < local.blocks.size(); ++b) {
            ranges.emplace_back(local.blocks[b].get(), local.sizes[b]);
            m_blocks.push_back(std::move(local.blocks[b]));
        }
    }

    // The list of all half-edges is kept grouped by origin (a counting
    // sort over the blocks): every outer entry is made first, then the
    // inner maps are filled in parallel, each thread writing only the inner
    // maps of its own origins.
    const size_t count = size_t(m_maxVertexId) + 1;
    std::vector<int> start(count + 1, 0);
    for (const auto& range : ranges)
        for (size_t i = 0; i < range.second; ++i)
            if (range.first[i].origin >= 0)
                ++start[size_t(range.first[i].origin) + 1];
    for (size_t v = 0; v < count; ++v)
        start[v + 1] += start[v];
    m_halfEdges.resize(size_t(start[count]));
    {
        std::vector<int> fill(start.begin(), start.end() - 1);
        for (const auto& range : ranges)
            for (size_t i = 0; i < range.second; ++i)
                if (range.first[i].origin >= 0)
                    m_halfEdges[size_t(fill[size_t(range.first[i].origin)]++)] = &range.first[i];
    }
    const std::vector<HalfEdge*>& byOrigin = m_halfEdges;
    // Fuller tables: most of this structure's time goes to allocating and
    // touching memory, and lookups stay short at this load.
    m_map.max_load_factor(0.9f);
    m_map.reserve(count);
    std::vector<TargetMap*> inner(count, nullptr);
    for (size_t v = 0; v < count; ++v)
        if (start[v + 1] > start[v])
            m_map.emplace(int(v), TargetMap());
    for (auto it = m_map.begin(); it != m_map.end(); ++it)
        inner[size_t(it->first)] = &it.value();
    tbb::parallel_for(tbb::blocked_range<size_t>(0, count), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t v = r.begin(); v != r.end(); ++v) {
            if (!inner[v])
                continue;
            TargetMap& targets = *inner[v];
            targets.max_load_factor(0.9f);
            targets.reserve(size_t(start[v + 1] - start[v]));
            for (int i = start[v]; i < start[v + 1]; ++i)
                targets.emplace(byOrigin[size_t(i)]->target, byOrigin[size_t(i)]);
        }
    });

    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_halfEdges.size()), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i) {
            HalfEdge* e = m_halfEdges[i];
            const TargetMap* back = e->target >= 0 && size_t(e->target) < count ? inner[size_t(e->target)] : nullptr;
            if (!back)
                continue;
            const auto found = back->find(e->origin);
            if (found != back->end())
                e->twin = found->second;
        }
    });
}

DCEL::~DCEL()
{
    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_blocks.size()), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i)
            m_blocks[i].reset();
    });
}

bool DCEL::hasHalfEdge(int origin, int target) const
{
    const auto outer = m_map.find(origin);
    return outer != m_map.end() && outer->second.find(target) != outer->second.end();
}

HalfEdge* DCEL::halfEdge(int origin, int target) const
{
    const auto outer = m_map.find(origin);
    if (outer != m_map.end()) {
        const auto inner = outer->second.find(target);
        if (inner != outer->second.end())
            return inner->second;
    }
    throw std::out_of_range("Couldn't find key.");
}

const DCEL::TargetMap* DCEL::outgoing(int origin) const
{
    const auto outer = m_map.find(origin);
    return outer == m_map.end() ? nullptr : &outer->second;
}

} // namespace SymmetryDetectionTBB
