#include "DCEL.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <stdexcept>

namespace SymmetryDetectionTBB {

namespace {

struct ThreadHalfEdges
{
    std::vector<HalfEdge*> halfEdges;
    int maxVertexId = 0;
};

} // namespace

DCEL::DCEL(const Polygons& polygons, bool keepWinding) : m_polygonCount(polygons.size())
{
    tbb::enumerable_thread_specific<ThreadHalfEdges> perThread;
    tbb::parallel_for(tbb::blocked_range<int>(0, polygons.size()), [&](const tbb::blocked_range<int>& range) {
        ThreadHalfEdges& local = perThread.local();
        for (int f = range.begin(); f != range.end(); ++f) {
            QVector<int> corners = polygons[f];
            if (!keepWinding)
                std::reverse(corners.begin(), corners.end());
            const int n = corners.size();
            if (n == 0)
                continue;
            std::vector<HalfEdge*> ring(size_t(n), nullptr);
            for (int i = 0; i < n; ++i) {
                ring[size_t(i)] = new HalfEdge{corners[i], corners[(i + 1) % n], f, nullptr, nullptr};
                local.maxVertexId = std::max(local.maxVertexId, corners[i]);
            }
            for (int i = 0; i < n; ++i)
                ring[size_t(i)]->next = ring[size_t((i + 1) % n)];
            local.halfEdges.insert(local.halfEdges.end(), ring.begin(), ring.end());
        }
    });
    size_t total = 0;
    for (const ThreadHalfEdges& local : perThread) {
        total += local.halfEdges.size();
        m_maxVertexId = std::max(m_maxVertexId, local.maxVertexId);
    }
    m_halfEdges.reserve(total);
    for (const ThreadHalfEdges& local : perThread)
        m_halfEdges.insert(m_halfEdges.end(), local.halfEdges.begin(), local.halfEdges.end());

    m_map.reserve(size_t(m_maxVertexId) + 1);
    for (HalfEdge* e : m_halfEdges)
        m_map[e->origin].emplace(e->target, e);

    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_halfEdges.size()), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i) {
            HalfEdge* e = m_halfEdges[i];
            const auto outer = m_map.find(e->target);
            if (outer == m_map.end())
                continue;
            const auto inner = outer->second.find(e->origin);
            if (inner != outer->second.end())
                e->twin = inner->second;
        }
    });
}

DCEL::~DCEL()
{
    tbb::parallel_for(tbb::blocked_range<size_t>(0, m_halfEdges.size()), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i)
            delete m_halfEdges[i];
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
