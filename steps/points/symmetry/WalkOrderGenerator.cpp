#include "WalkOrderGenerator.h"

#include <algorithm>

namespace SymmetryDetectionTBB {

WalkOrderGenerator::WalkOrderGenerator(const DCEL& dcel)
    : m_dcel(&dcel), m_vertexSeen(size_t(dcel.maxVertexId()) + 1, 0), m_polygonSeen(size_t(dcel.polygonCount()), 0)
{
}

SeedWalkCache::SeedWalkCache(const DCEL& dcel, int seed, tbb::spin_mutex& mutex)
    : m_dcel(dcel), m_seed(seed), m_mutex(mutex)
{
    const DCEL::TargetMap* leaving = dcel.outgoing(seed);
    const int count = leaving ? int(leaving->size()) : 0;
    m_entries.reset(new Entry[size_t(std::max(count, 1))]);
    if (leaving)
        for (const auto& entry : *leaving)
            m_index.emplace(entry.first, int(m_index.size()));
}

const QVector<int>* SeedWalkCache::order(int target) const
{
    const auto it = m_index.find(target);
    if (it == m_index.end())
        return nullptr;
    const Entry& entry = m_entries[size_t(it->second)];
    return entry.ready.load(std::memory_order_acquire) ? &entry.order : nullptr;
}

void SeedWalkCache::noteWalk(int target)
{
    const auto it = m_index.find(target);
    if (it == m_index.end())
        return;
    Entry& entry = m_entries[size_t(it->second)];
    if (entry.walks.fetch_add(1) != 1)
        return;
    tbb::spin_mutex::scoped_lock lock(m_mutex);
    WalkOrderGenerator walker(m_dcel);
    entry.order = walker.walkAll(m_seed, target);
    entry.ready.store(true, std::memory_order_release);
}

void WalkOrderGenerator::clearMarks()
{
    // Most candidates die within a few vertices: resetting what they
    // touched is far cheaper than clearing whole arrays.
    if (m_touchedVertices.size() * 5 >= m_vertexSeen.size())
        std::fill(m_vertexSeen.begin(), m_vertexSeen.end(), 0);
    else
        for (int v : m_touchedVertices)
            m_vertexSeen[size_t(v)] = 0;
    if (m_touchedPolygons.size() * 5 >= m_polygonSeen.size())
        std::fill(m_polygonSeen.begin(), m_polygonSeen.end(), 0);
    else
        for (int f : m_touchedPolygons)
            m_polygonSeen[size_t(f)] = 0;
    m_touchedVertices.clear();
    m_touchedPolygons.clear();
}

void WalkOrderGenerator::start(int a, int b)
{
    m_a = a;
    m_b = b;
    m_queue.clear();
    m_head = 0;
    m_state = State::Begin;
    clearMarks();
}

bool WalkOrderGenerator::next(int& vertex)
{
    for (;;) {
        switch (m_state) {
        case State::Finished:
            return false;
        case State::Begin: {
            if (m_cache && m_cache->seed() == m_a) {
                const QVector<int>* cached = m_cache->order(m_b);
                if (!cached) {
                    m_cache->noteWalk(m_b);
                    cached = m_cache->order(m_b);
                }
                if (cached) {
                    m_replay = cached;
                    m_replayPosition = 0;
                    m_state = State::Replay;
                    break;
                }
            }
            const DCEL::TargetMap* leaving = m_dcel->outgoing(m_a);
            const auto found = leaving ? leaving->find(m_b) : DCEL::TargetMap::const_iterator();
            if (!leaving || found == leaving->end()) {
                m_state = State::Finished;
                return false;
            }
            m_queue.push_back(found->second);
            m_vertexSeen[size_t(m_a)] = 1;
            m_touchedVertices.push_back(m_a);
            m_state = State::Pop;
            vertex = m_a;
            return true;
        }
        case State::Pop:
            if (m_head == m_queue.size()) {
                m_state = State::Finished;
                return false;
            }
            m_first = m_current = m_queue[m_head++];
            m_state = State::Walk;
            break;
        case State::Walk: {
            const HalfEdge* c = m_current;
            if (c->next == m_first)
                m_state = State::Pop;
            if (c->twin && !m_polygonSeen[size_t(c->twin->face)]) {
                m_queue.push_back(c->twin);
                m_polygonSeen[size_t(c->twin->face)] = 1;
                m_touchedPolygons.push_back(c->twin->face);
            }
            m_current = c->next;
            if (!m_vertexSeen[size_t(c->target)]) {
                m_vertexSeen[size_t(c->target)] = 1;
                m_touchedVertices.push_back(c->target);
                vertex = c->target;
                return true;
            }
            break;
        }
        case State::Replay:
            if (m_replayPosition < m_replay->size()) {
                vertex = (*m_replay)[m_replayPosition++];
                return true;
            }
            m_state = State::Finished;
            return false;
        }
    }
}

QVector<int> WalkOrderGenerator::walkAll(int a, int b)
{
    // Walk afresh even where a cache exists: this is what fills caches.
    SeedWalkCache* cache = m_cache;
    m_cache = nullptr;
    QVector<int> order;
    start(a, b);
    int v = 0;
    while (next(v))
        order.append(v);
    m_cache = cache;
    return order;
}

} // namespace SymmetryDetectionTBB
