#include "NodeOrder.h"

#include <algorithm>
#include <numeric>

namespace WelkingAcceleratedVersion {

std::vector<long long> localNodeOrder(const EmbeddedGraphLevel& level)
{
    const long long nodes = (long long)level.nodes.size();
    const auto degree = [&](long long n) {
        return level.neighbourOffsets[size_t(n) + 1] - level.neighbourOffsets[size_t(n)];
    };
    std::vector<long long> byDegree(static_cast<size_t>(nodes));
    std::iota(byDegree.begin(), byDegree.end(), 0LL);
    std::stable_sort(byDegree.begin(), byDegree.end(), [&](long long a, long long b) { return degree(a) < degree(b); });

    std::vector<long long> order;
    order.reserve(size_t(nodes));
    std::vector<char> seen(static_cast<size_t>(nodes), 0);
    std::vector<long long> next;
    for (long long start : byDegree) {
        if (seen[size_t(start)])
            continue;
        seen[size_t(start)] = 1;
        order.push_back(start);
        // The queue is the tail of `order` itself.
        for (size_t head = order.size() - 1; head < order.size(); ++head) {
            const long long n = order[head];
            next.clear();
            for (long long e = level.neighbourOffsets[size_t(n)]; e < level.neighbourOffsets[size_t(n) + 1]; ++e) {
                const long long m = level.neighbours[size_t(e)];
                if (!seen[size_t(m)]) {
                    seen[size_t(m)] = 1;
                    next.push_back(m);
                }
            }
            std::stable_sort(next.begin(), next.end(), [&](long long a, long long b) { return degree(a) < degree(b); });
            order.insert(order.end(), next.begin(), next.end());
        }
    }
    std::reverse(order.begin(), order.end());
    return order;
}

void renumberNodes(EmbeddedGraphLevel& level, const std::vector<long long>& order)
{
    const size_t nodes = order.size();
    std::vector<long long> newIndex(nodes);
    for (size_t i = 0; i < nodes; ++i)
        newIndex[size_t(order[i])] = (long long)i;

    std::vector<long long> vertexOfNode(nodes);
    for (size_t i = 0; i < nodes; ++i)
        vertexOfNode[i] = level.nodes[size_t(order[i])];
    level.nodes = std::move(vertexOfNode);

    for (long long& n : level.influences)
        n = newIndex[size_t(n)];

    std::vector<long long> offsets(nodes + 1, 0), neighbours;
    neighbours.reserve(level.neighbours.size());
    for (size_t i = 0; i < nodes; ++i) {
        const long long old = order[i];
        const size_t first = neighbours.size();
        for (long long e = level.neighbourOffsets[size_t(old)]; e < level.neighbourOffsets[size_t(old) + 1]; ++e)
            neighbours.push_back(newIndex[size_t(level.neighbours[size_t(e)])]);
        std::sort(neighbours.begin() + long(first), neighbours.end());
        offsets[i + 1] = (long long)neighbours.size();
    }
    level.neighbourOffsets = std::move(offsets);
    level.neighbours = std::move(neighbours);
}

} // namespace WelkingAcceleratedVersion
