#include "WalkOrderGenerator.h"

#include <algorithm>

namespace SymmetryDetectionTBB {

WalkOrderGenerator::WalkOrderGenerator(const DCEL& dcel)
    : m_dcel(&dcel), m_vertexSeen(size_t(dcel.maxVertexId()) + 1, 0), m_polygonSeen(size_t(dcel.polygonCount()), 0)
{
}

void WalkOrderGenerator::setCache(int seed, std::shared_ptr<const WalkOrderCache> cache)
{
    m_cacheSeed = seed;
    m_cache = std::move(cache);
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
            if (m_cache && m_cacheSeed == m_a) {
                const auto cached = m_cache->find(m_b);
                if (cached != m_cache->end()) {
                    m_replay = &cached->second;
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
    std::shared_ptr<const WalkOrderCache> cache = std::move(m_cache);
    m_cache.reset();
    QVector<int> order;
    start(a, b);
    int v = 0;
    while (next(v))
        order.append(v);
    m_cache = std::move(cache);
    return order;
}

} // namespace SymmetryDetectionTBB
