#include "VertexSignatures.h"

#include <tbb/parallel_for.h>

namespace SymmetryDetectionTBB {

namespace {

/// A strong 64-bit mix (splitmix64's finaliser): neighbours' colours are
/// summed after mixing, so the sum does not depend on their order.
uint64_t mix(uint64_t x)
{
    x += 0x9e3779b97f4a7c15ull;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ull;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebull;
    return x ^ (x >> 31);
}

} // namespace

VertexSignatures::VertexSignatures(const VertexAdjacency& adjacency, int rounds)
    : m_colours(size_t(adjacency.count()), 0), m_rounds(rounds)
{
    if (rounds <= 0)
        return;
    const int count = adjacency.count();
    for (int v = 0; v < count; ++v)
        m_colours[size_t(v)] = uint64_t(adjacency.rowLength(v));
    std::vector<uint64_t> next(m_colours.size());
    for (int round = 0; round < rounds; ++round) {
        tbb::parallel_for(tbb::blocked_range<int>(0, count), [&](const tbb::blocked_range<int>& r) {
            for (int v = r.begin(); v != r.end(); ++v) {
                uint64_t sum = 0;
                const int* row = adjacency.row(v);
                for (int i = 0, n = adjacency.rowLength(v); i < n; ++i)
                    sum += mix(m_colours[size_t(row[i])]);
                next[size_t(v)] = mix(m_colours[size_t(v)] * 0x100000001b3ull ^ sum);
            }
        });
        m_colours.swap(next);
    }
}

} // namespace SymmetryDetectionTBB
