#pragma once

#include "VertexAdjacency.h"

#include <array>
#include <climits>
#include <vector>

namespace SymmetryDetectionTBB {

/// A candidate symmetry as four identifiers [a, a', b', b]: a is the start,
/// a' the vertex after it on a shortest path to the end b, and b' the vertex
/// before b. The candidate claims that a maps to b and a' to b'.
using CandidatePath = std::array<int, 4>;

/// For one target t, one candidate per shortest-path predecessor w of t,
/// from a record of the first two vertices of a shortest path to each
/// vertex reached so far.
class EdgePathGenerator
{
public:
    EdgePathGenerator(const VertexAdjacency& adjacency, const std::vector<int>& distances, int start);

    void setTarget(int target);
    bool next(CandidatePath& path);

private:
    const VertexAdjacency& m_adjacency;
    const std::vector<int>& m_distances;
    int m_start;
    int m_target = 0;
    int m_position = 0;
    std::vector<std::array<int, 2>> m_records;
    std::vector<char> m_valid;
};

/// The candidates from one start vertex, in breadth-first order of their
/// ends, produced one at a time. A limit of 3 reaches ends up to distance 2;
/// a limit below 1 means no limit (the whole connected mesh).
class PathGenerator
{
public:
    PathGenerator(const VertexAdjacency& adjacency, int start, int limit);
    PathGenerator(const PathGenerator&) = delete;
    PathGenerator& operator=(const PathGenerator&) = delete;

    bool next(CandidatePath& path);

private:
    enum class State
    {
        TakeNext,
        NextNeighbour,
        Emit,
        Done,
    };

    const VertexAdjacency& m_adjacency;
    int m_limit;
    std::vector<int> m_distances;
    std::vector<char> m_visited;
    std::vector<int> m_queue;
    std::vector<int> m_depths;
    size_t m_head = 0;
    int m_depth = 0;
    const int* m_row = nullptr;
    int m_rowLength = 0;
    int m_position = 0;
    State m_state = State::TakeNext;
    EdgePathGenerator m_edgePaths;
};

} // namespace SymmetryDetectionTBB
