#include "PathGenerator.h"

namespace SymmetryDetectionTBB {

EdgePathGenerator::EdgePathGenerator(const VertexAdjacency& adjacency, const std::vector<int>& distances, int start)
    : m_adjacency(adjacency), m_distances(distances), m_start(start), m_records(size_t(adjacency.count())),
      m_valid(size_t(adjacency.count()), 0)
{
}

void EdgePathGenerator::setTarget(int target)
{
    m_target = target;
    m_position = 0;
}

bool EdgePathGenerator::next(CandidatePath& path)
{
    const int* row = m_adjacency.row(m_target);
    const int length = m_adjacency.rowLength(m_target);
    const int targetDistance = m_distances[size_t(m_target)];
    while (m_position < length) {
        const int w = row[m_position++];
        if (m_distances[size_t(w)] >= targetDistance)
            continue;
        if (!m_valid[size_t(w)]) {
            // Only the start has no record: the edge (start, t) itself.
            m_records[size_t(m_target)] = {m_start, m_target};
            path = {w, m_target, w, m_target};
        } else {
            const std::array<int, 2> record = m_records[size_t(w)];
            path = {record[0], record[1], w, m_target};
            m_records[size_t(m_target)] = record;
        }
        m_valid[size_t(m_target)] = 1;
        return true;
    }
    return false;
}

namespace {

std::vector<int> distancesFrom(const VertexAdjacency& adjacency, int start)
{
    std::vector<int> distances(size_t(adjacency.count()), INT_MAX);
    if (start <= 0 || start >= adjacency.count())
        return distances;
    std::vector<int> queue{start};
    distances[size_t(start)] = 0;
    for (size_t head = 0; head < queue.size(); ++head) {
        const int v = queue[head];
        const int* row = adjacency.row(v);
        for (int i = 0, n = adjacency.rowLength(v); i < n; ++i)
            if (distances[size_t(row[i])] == INT_MAX) {
                distances[size_t(row[i])] = distances[size_t(v)] + 1;
                queue.push_back(row[i]);
            }
    }
    return distances;
}

} // namespace

PathGenerator::PathGenerator(const VertexAdjacency& adjacency, int start, int limit)
    : m_adjacency(adjacency), m_limit(limit < 1 ? INT_MAX : limit), m_distances(distancesFrom(adjacency, start)),
      m_visited(size_t(adjacency.count()), 0), m_edgePaths(adjacency, m_distances, start)
{
    if (start <= 0 || start >= adjacency.count()) {
        m_state = State::Done;
        return;
    }
    m_visited[size_t(start)] = 1;
    m_queue.push_back(start);
    m_depths.push_back(0);
}

bool PathGenerator::next(CandidatePath& path)
{
    for (;;) {
        switch (m_state) {
        case State::Done:
            return false;
        case State::TakeNext: {
            if (m_head == m_queue.size()) {
                m_state = State::Done;
                return false;
            }
            const int v = m_queue[m_head];
            m_depth = m_depths[m_head];
            ++m_head;
            m_row = m_adjacency.row(v);
            m_rowLength = m_adjacency.rowLength(v);
            m_position = 0;
            m_state = State::NextNeighbour;
            break;
        }
        case State::NextNeighbour: {
            if (m_position >= m_rowLength) {
                m_state = State::TakeNext;
                break;
            }
            const int w = m_row[m_position++];
            if (m_visited[size_t(w)])
                break;
            m_visited[size_t(w)] = 1;
            if (m_depth < m_limit - 2) {
                m_queue.push_back(w);
                m_depths.push_back(m_depth + 1);
            }
            m_edgePaths.setTarget(w);
            m_state = State::Emit;
            break;
        }
        case State::Emit:
            if (m_edgePaths.next(path))
                return true;
            m_state = State::NextNeighbour;
            break;
        }
    }
}

} // namespace SymmetryDetectionTBB
