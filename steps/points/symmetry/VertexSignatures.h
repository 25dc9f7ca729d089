#pragma once

#include "VertexAdjacency.h"

#include <cstdint>
#include <vector>

namespace SymmetryDetectionTBB {

/// A number per vertex that every symmetry of the mesh keeps: rounds of
/// colour refinement over the adjacency table (a vertex's colour mixes its
/// own with the multiset of its neighbours' colours, starting from the
/// number of neighbours). After r rounds two vertices with different
/// numbers have different r-rings, so no mirror can map one onto the other;
/// equal numbers prove nothing. Zero rounds leave every number equal.
class VertexSignatures
{
public:
    VertexSignatures(const VertexAdjacency& adjacency, int rounds);

    uint64_t operator[](int v) const { return m_colours[size_t(v)]; }
    bool mayMap(int a, int b) const { return m_colours[size_t(a)] == m_colours[size_t(b)]; }
    int rounds() const { return m_rounds; }

private:
    std::vector<uint64_t> m_colours;
    int m_rounds = 0;
};

} // namespace SymmetryDetectionTBB
