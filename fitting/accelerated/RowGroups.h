#pragma once

#include "DeformerTypes.h"
#include "NodeIncidence.h"
#include "ParallelRange.h"

#include <utility>
#include <vector>

namespace EmbeddedGraphDeformer {

/// The row groups of a fit's Jacobian, by kind and in row order: pairs,
/// each moving with a list of nodes; directed graph edges (j, k); control
/// points, each moving with a list of nodes. Every (group, node) with a
/// block of values has a block index: the pairs' slots first, then one per
/// edge (its node j), then the control points' slots. With them, the
/// per-node incidence the products gather with.
struct RowGroups
{
    long long nodes = 0;
    std::vector<long long> pairOffsets{0};
    std::vector<int> pairNodes;
    std::vector<int> edgeNodes; ///< j, k per edge
    std::vector<long long> controlOffsets{0};
    std::vector<int> controlNodes;
    long long edgeBlock = 0, controlBlock = 0;
    NodeIncidence incidence;

    long long pairs() const { return (long long)pairOffsets.size() - 1; }
    long long edges() const { return (long long)edgeNodes.size() / 2; }
    long long controls() const { return (long long)controlOffsets.size() - 1; }
    long long groups() const { return pairs() + edges() + controls(); }
    long long blocks() const { return controlBlock + (long long)controlNodes.size(); }

    void set(long long nodeCount, std::vector<long long> pairOffsetList, std::vector<int> pairNodeList,
             const std::vector<std::pair<long long, long long>>& edgeList, std::vector<long long> controlOffsetList,
             std::vector<int> controlNodeList)
    {
        nodes = nodeCount;
        pairOffsets = std::move(pairOffsetList);
        pairNodes = std::move(pairNodeList);
        edgeNodes.resize(2 * edgeList.size());
        for (size_t e = 0; e < edgeList.size(); ++e) {
            edgeNodes[2 * e] = int(edgeList[e].first);
            edgeNodes[2 * e + 1] = int(edgeList[e].second);
        }
        controlOffsets = std::move(controlOffsetList);
        controlNodes = std::move(controlNodeList);
        edgeBlock = (long long)pairNodes.size();
        controlBlock = edgeBlock + edges();
        incidence.build(nodes, [&](const auto& add) {
            for (long long p = 0; p < pairs(); ++p)
                for (long long i = pairOffsets[size_t(p)]; i < pairOffsets[size_t(p) + 1]; ++i)
                    add(pairNodes[size_t(i)], p, i);
            const long long edgeGroup = pairs();
            for (long long e = 0; e < edges(); ++e) {
                add(edgeNodes[size_t(2 * e)], edgeGroup + e, edgeBlock + e);
                add(edgeNodes[size_t(2 * e + 1)], edgeGroup + e, -1);
            }
            const long long controlGroup = edgeGroup + edges();
            for (long long c = 0; c < controls(); ++c)
                for (long long i = controlOffsets[size_t(c)]; i < controlOffsets[size_t(c) + 1]; ++i)
                    add(controlNodes[size_t(i)], controlGroup + c, controlBlock + i);
        });
    }
};

/// A group's 3-vector while `reducePairsAndControls` sums it, on plain
/// floats (`v`).
struct PlainSum
{
    float v[4];

    static PlainSum zero() { return {{0.0f, 0.0f, 0.0f, 0.0f}}; }
    void store(float* p) const
    {
        for (int i = 0; i < 4; ++i)
            p[i] = v[i];
    }
};

/// The first pass of J^T J v for the pairs and the control points: each
/// group's rows of J v, weighted once more by their own row weights, as
/// one 3-vector per group in `reduced` (`stride` floats per group, in group
/// order). `add(block, node, sum)` adds to the `Sum` (`PlainSum` or
/// `Float4`) the motion of the group's rows through one block of values and
/// the unknowns of its node. The edges, whose rows take a node's
/// translation with both signs, are the caller's.
template <typename Sum, typename Add>
void reducePairsAndControls(const RowGroups& groups, const std::vector<Vec3>& pairNormals,
                            const EnergyWeights& weights, float* reduced, int stride, bool parallel,
                            const Add& add)
{
    const float a2 = weights.pointToPoint * weights.pointToPoint;
    const float b2 = weights.pointToPlane * weights.pointToPlane;
    const float k2 = weights.controlPoints * weights.controlPoints;
    forRange(groups.pairs(), parallel, [&](long long begin, long long end) {
        for (long long p = begin; p < end; ++p) {
            Sum sum = Sum::zero();
            for (long long i = groups.pairOffsets[size_t(p)]; i < groups.pairOffsets[size_t(p) + 1]; ++i)
                add(i, (long long)groups.pairNodes[size_t(i)], sum);
            alignas(16) float d[4];
            sum.store(d);
            const float* n = pairNormals[size_t(p)].data();
            const float plane = b2 * (n[0] * d[0] + n[1] * d[1] + n[2] * d[2]);
            for (int r = 0; r < 3; ++r)
                reduced[stride * p + r] = a2 * d[r] + plane * n[r];
        }
    }, 256);
    const long long controlGroup = groups.pairs() + groups.edges();
    for (long long c = 0; c < groups.controls(); ++c) {
        Sum sum = Sum::zero();
        for (long long i = groups.controlOffsets[size_t(c)]; i < groups.controlOffsets[size_t(c) + 1]; ++i)
            add(groups.controlBlock + i, (long long)groups.controlNodes[size_t(i)], sum);
        alignas(16) float d[4];
        sum.store(d);
        for (int r = 0; r < 3; ++r)
            reduced[stride * (controlGroup + c) + r] = k2 * d[r];
    }
}

} // namespace EmbeddedGraphDeformer
