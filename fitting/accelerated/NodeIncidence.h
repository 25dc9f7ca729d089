#pragma once

#include <algorithm>
#include <vector>

namespace EmbeddedGraphDeformer {

/// For each graph node, the row groups of a Jacobian that touch it, so that
/// a product can first reduce every group to one vector and then let each
/// node gather its own sum: no node is written by two tasks, no per-thread
/// copies of the output are cleared and added, and the order of every sum
/// is fixed, whatever the scheduling.
///
/// An entry is (group, block): the group's vector reaches the node through
/// the Jacobian's block `block`, or, with block -1, as the far end of a
/// graph edge (minus the vector, on the translation). A node's entries with
/// a block come first, up to `split`, so that the gather runs without a
/// branch per entry.
struct NodeIncidence
{
    std::vector<long long> offsets{0};
    std::vector<long long> split;
    std::vector<int> group;
    std::vector<int> block;

    long long entries() const { return offsets.back(); }

    /// `visit(add)` calls add(node, group, block) for every entry, in the
    /// order the nodes are to sum them.
    template <typename Visit> void build(long long nodes, const Visit& visit)
    {
        offsets.assign(size_t(nodes) + 1, 0);
        split.assign(size_t(nodes), 0);
        visit([&](long long node, long long, long long b) {
            ++offsets[size_t(node) + 1];
            if (b >= 0)
                ++split[size_t(node)];
        });
        for (long long k = 0; k < nodes; ++k) {
            offsets[size_t(k) + 1] += offsets[size_t(k)];
            split[size_t(k)] += offsets[size_t(k)];
        }
        std::vector<long long> withBlock(offsets.begin(), offsets.end() - 1);
        std::vector<long long> farEnds(split);
        group.resize(size_t(offsets.back()));
        block.resize(size_t(offsets.back()));
        visit([&](long long node, long long g, long long b) {
            const long long at = b >= 0 ? withBlock[size_t(node)]++ : farEnds[size_t(node)]++;
            group[size_t(at)] = int(g);
            block[size_t(at)] = int(b);
        });
    }

    /// Nodes per task for a gather, so that coarse levels (few nodes with
    /// thousands of entries each) still split into several tasks.
    long long grain(long long nodes, long long entriesPerTask) const
    {
        return std::max<long long>(1, entriesPerTask * nodes / std::max<long long>(1, entries()));
    }
};

} // namespace EmbeddedGraphDeformer
