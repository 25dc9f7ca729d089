#include "EmbeddedGraphSampler.h"

#include "NodeOrder.h"
#include "geometry/ProgressInterface.h"
#include "search/IndexedHeap.h"
#include "search/KDTreeEigen.h"

#include <Eigen/Eigenvalues>

#include <QDebug>
#include <QElapsedTimer>

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <set>

namespace WelkingAcceleratedVersion {

namespace {

constexpr float CandidateReach = 2.55f;

bool cancelled(const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback)
{
    return callback && callback->progress && callback->progress->isCancelled();
}

/// Polled every 1024 vertices, so that a stop request ends a pass over a
/// large mesh within a fraction of a second.
bool cancelledAt(size_t vertex, const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback)
{
    return (vertex & 1023u) == 0 && cancelled(callback);
}

void reportProgress(const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback, int pass)
{
    if (callback && callback->progress)
        callback->progress->setValue(pass, QStringLiteral("Building nodes"));
}

/// Dijkstra over the mesh edges with storage kept between runs; one per thread.
class DijkstraIterator
{
public:
    void reset(size_t vertexCount)
    {
        if (m_distance.size() != vertexCount)
            m_distance.assign(vertexCount, std::numeric_limits<float>::infinity());
    }

    /// Calls visit(vertex, distance) in order of distance up to `limit`.
    template <typename Visit>
    void run(long long start, float limit, const std::vector<long long>& offsets,
             const std::vector<std::pair<long long, float>>& edges, Visit visit)
    {
        // A heap kept between runs (the finest level runs one per vertex:
        // a queue of its own each time cost an allocation and its growth).
        const auto later = std::greater<Entry>();
        m_queue.clear();
        m_distance[size_t(start)] = 0.0f;
        m_touched.push_back(start);
        m_queue.emplace_back(0.0f, start);
        while (!m_queue.empty()) {
            std::pop_heap(m_queue.begin(), m_queue.end(), later);
            const auto [d, u] = m_queue.back();
            m_queue.pop_back();
            if (d > m_distance[size_t(u)])
                continue;
            if (d > limit)
                break;
            visit(u, d);
            for (long long e = offsets[size_t(u)]; e < offsets[size_t(u) + 1]; ++e) {
                const auto [v, length] = edges[size_t(e)];
                const float next = d + length;
                if (next < m_distance[size_t(v)]) {
                    if (std::isinf(m_distance[size_t(v)]))
                        m_touched.push_back(v);
                    m_distance[size_t(v)] = next;
                    m_queue.emplace_back(next, v);
                    std::push_heap(m_queue.begin(), m_queue.end(), later);
                }
            }
        }
        for (long long v : m_touched)
            m_distance[size_t(v)] = std::numeric_limits<float>::infinity();
        m_touched.clear();
    }

private:
    using Entry = std::pair<float, long long>;
    std::vector<float> m_distance;
    std::vector<long long> m_touched;
    std::vector<Entry> m_queue;
};

/// A node's geodesic distance to a vertex it reaches.
struct Reach
{
    int vertex;
    int node;
    float distance;
};

/// A thread's reaches, in fixed blocks. A list that doubles copies itself
/// as it grows; on a virtual machine every fresh page of those copies costs
/// more than the Dijkstra step that fills it.
class ReachList
{
public:
    void push(const Reach& reach)
    {
        if (m_used == Block) {
            // Not cleared: every element is written before it is read.
            m_blocks.emplace_back(new Reach[Block]);
            m_used = 0;
        }
        m_blocks.back()[m_used++] = reach;
    }

    template <typename Visit> void forEach(Visit visit) const
    {
        for (size_t b = 0; b < m_blocks.size(); ++b) {
            const size_t count = b + 1 == m_blocks.size() ? m_used : Block;
            for (size_t i = 0; i < count; ++i)
                visit(m_blocks[b][i]);
        }
    }

private:
    static constexpr size_t Block = 8192;
    std::vector<std::unique_ptr<Reach[]>> m_blocks;
    size_t m_used = Block;
};

} // namespace

EmbeddedGraphSampler::EmbeddedGraphSampler(int nodesPerVertex, std::vector<Vertex> vertices,
                                           std::vector<long long> triangles)
    : m_k(std::max(1, nodesPerVertex)), m_vertices(std::move(vertices)), m_triangles(std::move(triangles))
{
    // Each vertex's neighbours, ascending and once each: listed per vertex
    // from its triangles, then each short list sorted on its own (sorting
    // every directed edge of the mesh at once took longer than the levels).
    const size_t vertexCount = m_vertices.size();
    std::vector<long long> listed(vertexCount + 1, 0);
    for (size_t t = 0; t + 2 < m_triangles.size(); t += 3)
        for (int c = 0; c < 3; ++c)
            listed[size_t(m_triangles[t + size_t(c)]) + 1] += 2;
    for (size_t v = 0; v < vertexCount; ++v)
        listed[v + 1] += listed[v];
    std::vector<long long> around(static_cast<size_t>(listed[vertexCount]));
    {
        std::vector<long long> fill(listed.begin(), listed.end() - 1);
        for (size_t t = 0; t + 2 < m_triangles.size(); t += 3)
            for (int c = 0; c < 3; ++c) {
                const long long a = m_triangles[t + size_t(c)];
                around[size_t(fill[size_t(a)]++)] = m_triangles[t + size_t((c + 1) % 3)];
                around[size_t(fill[size_t(a)]++)] = m_triangles[t + size_t((c + 2) % 3)];
            }
    }
    m_edgeOffsets.assign(vertexCount + 1, 0);
    tbb::parallel_for(tbb::blocked_range<size_t>(0, vertexCount, 4096), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t v = r.begin(); v < r.end(); ++v) {
            const auto first = around.begin() + listed[v], last = around.begin() + listed[v + 1];
            std::sort(first, last);
            m_edgeOffsets[v + 1] = std::unique(first, last) - first;
        }
    });
    for (size_t v = 0; v < vertexCount; ++v)
        m_edgeOffsets[v + 1] += m_edgeOffsets[v];
    m_edges.resize(size_t(m_edgeOffsets[vertexCount]));
    tbb::parallel_for(tbb::blocked_range<size_t>(0, vertexCount, 4096), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t v = r.begin(); v < r.end(); ++v)
            for (long long e = m_edgeOffsets[v]; e < m_edgeOffsets[v + 1]; ++e) {
                const long long u = around[size_t(listed[v] + e - m_edgeOffsets[v])];
                m_edges[size_t(e)] = {u, (m_vertices[v] - m_vertices[size_t(u)]).norm()};
            }
    });
}

EmbeddedGraphSampler::~EmbeddedGraphSampler() = default;

void EmbeddedGraphSampler::appendInfluences(const std::pair<float, long long>* candidates, size_t count,
                                            EmbeddedGraphLevel& level)
{
    if (level.influenceOffsets.empty()) {
        level.influenceOffsets.push_back(0);
        level.weightOffsets.push_back(0);
    }
    const size_t length = count > 1 ? count - 1 : count;
    const float dMax = count > 0 ? candidates[count - 1].first : 0.0f;
    float sum = 0.0f;
    const size_t first = level.weights.size();
    for (size_t i = 0; i < length; ++i) {
        const float raw = dMax > 0.0f ? (1.0f - candidates[i].first / dMax) * (1.0f - candidates[i].first / dMax) : 0.0f;
        level.influences.push_back(candidates[i].second);
        level.weights.push_back(raw);
        sum += raw;
    }
    for (size_t i = first; i < level.weights.size(); ++i)
        level.weights[i] = sum > 0.0f ? level.weights[i] / sum : 1.0f / float(length);
    level.influenceOffsets.push_back((long long)level.influences.size());
    level.weightOffsets.push_back((long long)level.weights.size());
}

void EmbeddedGraphSampler::connectSharedInfluences(EmbeddedGraphLevel& level,
                                                   std::vector<std::pair<long long, long long>> extraPairs)
{
    // Each node's neighbours ascending and unique: per node, the union of
    // the influence lists of the vertices it influences, and its extra
    // partners, collected with a mark per node rather than by sorting every
    // (a, b) pair of the level (as many as 56 per vertex on coarse levels).
    const size_t nodes = level.nodes.size();
    const size_t vertices = level.influenceOffsets.empty() ? 0 : level.influenceOffsets.size() - 1;
    // The vertices of each node, and its extra partners, by counting.
    const auto invert = [nodes](size_t count, const auto& each) {
        std::pair<std::vector<long long>, std::vector<long long>> lists;
        auto& [offsets, items] = lists;
        offsets.assign(nodes + 1, 0);
        each([&](long long node, long long) { ++offsets[size_t(node) + 1]; });
        for (size_t n = 0; n < nodes; ++n)
            offsets[n + 1] += offsets[n];
        items.resize(count);
        std::vector<long long> fill(offsets.begin(), offsets.end() - 1);
        each([&](long long node, long long item) { items[size_t(fill[size_t(node)]++)] = item; });
        return lists;
    };
    const auto [vertexOffsets, byNode] = invert(level.influences.size(), [&](const auto& add) {
        for (size_t v = 0; v < vertices; ++v)
            for (long long i = level.influenceOffsets[v]; i < level.influenceOffsets[v + 1]; ++i)
                add(level.influences[size_t(i)], (long long)v);
    });
    const auto [extraOffsets, extra] = invert(2 * extraPairs.size(), [&](const auto& add) {
        for (const auto& p : extraPairs) {
            add(p.first, p.second);
            add(p.second, p.first);
        }
    });
    std::vector<std::vector<long long>> lists(nodes);
    tbb::enumerable_thread_specific<std::vector<long long>> marks(std::vector<long long>(nodes, -1));
    tbb::parallel_for(size_t(0), nodes, [&](size_t n) {
        std::vector<long long>& mark = marks.local();
        std::vector<long long>& list = lists[n];
        const long long self = (long long)n;
        mark[n] = self;
        const auto add = [&](long long other) {
            if (mark[size_t(other)] != self) {
                mark[size_t(other)] = self;
                list.push_back(other);
            }
        };
        for (long long e = vertexOffsets[n]; e < vertexOffsets[n + 1]; ++e) {
            const size_t v = size_t(byNode[size_t(e)]);
            for (long long i = level.influenceOffsets[v]; i < level.influenceOffsets[v + 1]; ++i)
                add(level.influences[size_t(i)]);
        }
        for (long long e = extraOffsets[n]; e < extraOffsets[n + 1]; ++e)
            add(extra[size_t(e)]);
        std::sort(list.begin(), list.end());
    });
    level.neighbourOffsets.assign(nodes + 1, 0);
    for (size_t n = 0; n < nodes; ++n)
        level.neighbourOffsets[n + 1] = level.neighbourOffsets[n] + (long long)lists[n].size();
    level.neighbours.resize(size_t(level.neighbourOffsets[nodes]));
    tbb::parallel_for(size_t(0), nodes, [&](size_t n) {
        std::copy(lists[n].begin(), lists[n].end(), level.neighbours.begin() + level.neighbourOffsets[n]);
    });
}

// --- geodesic -----------------------------------------------------------------

std::vector<EmbeddedGraphLevel> DijkstraGraphSampler::sampleLevels(
    const std::vector<float>& radii, const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback)
{
    const size_t levelCount = radii.size();
    std::vector<EmbeddedGraphLevel> levels(levelCount);
    // Per level, the (distance, node) candidates within reach of every
    // vertex, by vertex: candidateOffsets cut candidates into the vertices'
    // lists.
    std::vector<std::vector<long long>> candidateOffsets(levelCount);
    std::vector<std::vector<std::pair<float, long long>>> candidates(levelCount);
    tbb::enumerable_thread_specific<DijkstraIterator> iterators{DijkstraIterator()};

    reportProgress(callback, 0);
    tbb::parallel_for(size_t(0), levelCount, [&](size_t l) {
        const float r = radii[l];
        // The nodes, in vertex order: a vertex that no earlier node reaches
        // within r becomes one. Only this walk is sequential.
        {
            DijkstraIterator& dijkstra = iterators.local();
            dijkstra.reset(m_vertices.size());
            std::vector<char> covered(m_vertices.size(), 0);
            for (size_t v = 0; v < m_vertices.size(); ++v) {
                if (cancelledAt(v, callback))
                    return;
                if (covered[v])
                    continue;
                levels[l].nodes.push_back((long long)v);
                covered[v] = 1;
                dijkstra.run((long long)v, r, m_edgeOffsets, m_edges, [&](long long u, float) { covered[size_t(u)] = 1; });
            }
        }
        // Every node's candidates, farther out, one node a task; then by vertex.
        const std::vector<long long>& nodes = levels[l].nodes;
        // Each thread lists what its nodes reach in one list: the order
        // within a vertex's candidates does not matter, as (distance, node)
        // orders them completely.
        tbb::enumerable_thread_specific<ReachList> reached;
        tbb::parallel_for(size_t(0), nodes.size(), [&](size_t node) {
            if (cancelled(callback))
                return;
            DijkstraIterator& dijkstra = iterators.local();
            dijkstra.reset(m_vertices.size());
            ReachList& list = reached.local();
            dijkstra.run(nodes[node], CandidateReach * r, m_edgeOffsets, m_edges,
                         [&](long long u, float d) { list.push({int(u), int(node), d}); });
        });
        std::vector<long long>& offsets = candidateOffsets[l];
        offsets.assign(m_vertices.size() + 1, 0);
        for (const ReachList& list : reached)
            list.forEach([&](const Reach& reach) { ++offsets[size_t(reach.vertex) + 1]; });
        for (size_t v = 0; v < m_vertices.size(); ++v)
            offsets[v + 1] += offsets[v];
        std::vector<long long> fill(offsets.begin(), offsets.end() - 1);
        candidates[l].resize(size_t(offsets.back()));
        for (ReachList& list : reached) {
            list.forEach([&](const Reach& reach) {
                candidates[l][size_t(fill[size_t(reach.vertex)]++)] = {reach.distance, (long long)reach.node};
            });
            list = ReachList();
        }
    });
    if (cancelled(callback))
        return {};
    reportProgress(callback, 1);
    std::vector<std::vector<long long>> nearestNode(levelCount);
    tbb::parallel_for(size_t(0), levelCount, [&](size_t l) {
        nearestNode[l].assign(m_vertices.size(), -1);
        const std::vector<long long>& offsets = candidateOffsets[l];
        for (size_t v = 0; v < m_vertices.size(); ++v) {
            if (cancelledAt(v, callback))
                return;
            // (distance, node) orders the candidates completely: a node
            // reaches a vertex once.
            std::pair<float, long long>* first = candidates[l].data() + offsets[v];
            std::pair<float, long long>* last = candidates[l].data() + offsets[v + 1];
            const long keep = std::min<long>(last - first, long(m_k) + 1);
            std::partial_sort(first, first + keep, last);
            if (keep > 0)
                nearestNode[l][v] = first->second;
            appendInfluences(first, size_t(keep), levels[l]);
        }
        std::vector<std::pair<float, long long>>().swap(candidates[l]);
    });
    if (cancelled(callback))
        return {};
    reportProgress(callback, 2);
    tbb::parallel_for(size_t(0), levelCount, [&](size_t l) {
        std::vector<std::pair<long long, long long>> touching;
        for (size_t u = 0; u < m_vertices.size(); ++u)
            for (long long e = m_edgeOffsets[u]; e < m_edgeOffsets[u + 1]; ++e) {
                const long long a = nearestNode[l][u], b = nearestNode[l][size_t(m_edges[size_t(e)].first)];
                if (a >= 0 && b >= 0 && a < b)
                    touching.emplace_back(a, b);
            }
        connectSharedInfluences(levels[l], std::move(touching));
    });
    if (cancelled(callback))
        return {};
    return levels;
}

// --- straight-line --------------------------------------------------------------

std::vector<EmbeddedGraphLevel> EuclideanGraphSampler::sampleLevels(
    const std::vector<float>& radii, const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback)
{
    const size_t levelCount = radii.size();
    std::vector<EmbeddedGraphLevel> levels(levelCount);
    std::unique_ptr<KDTreeEigen::NodeBaseEigen<float, long long>> tree(
        KDTreeEigen::build<float, long long>(m_vertices, 1));

    reportProgress(callback, 0);
    tbb::parallel_for(size_t(0), levelCount, [&](size_t l) {
        const float r = radii[l];
        std::vector<char> isNode(m_vertices.size(), 0);
        std::vector<long long> near;
        for (size_t v = 0; v < m_vertices.size(); ++v) {
            if (cancelledAt(v, callback))
                return;
            near.clear();
            tree->findNearestPointInRadius(m_vertices[v], m_vertices, near, r * r);
            if (std::any_of(near.begin(), near.end(), [&](long long i) { return isNode[size_t(i)] != 0; }))
                continue;
            isNode[v] = 1;
            levels[l].nodes.push_back((long long)v);
        }
    });
    if (cancelled(callback))
        return {};
    reportProgress(callback, 1);
    tbb::parallel_for(size_t(0), levelCount, [&](size_t l) {
        EmbeddedGraphLevel& level = levels[l];
        std::vector<Vertex> nodePositions;
        for (long long n : level.nodes)
            nodePositions.push_back(m_vertices[size_t(n)]);
        std::unique_ptr<KDTreeEigen::NodeBaseEigen<float, long long>> nodeTree(
            KDTreeEigen::build<float, long long>(nodePositions, 1));
        Welk::IndexedHeap heap(int(nodePositions.size()));
        std::vector<std::pair<float, long long>> found;
        for (size_t vi = 0; vi < m_vertices.size(); ++vi) {
            if (cancelledAt(vi, callback))
                return;
            const Vertex& v = m_vertices[vi];
            heap.clear();
            nodeTree->findKNearestPointsInds(v, nodePositions, m_k + 1, heap);
            found.clear();
            for (int i = 0; i < heap.count(); ++i)
                found.emplace_back(std::sqrt(float(heap.entry(i).key)), heap.entry(i).id);
            std::sort(found.begin(), found.end());
            appendInfluences(found.data(), found.size(), level);
        }
    });
    if (cancelled(callback))
        return {};
    reportProgress(callback, 2);
    tbb::enumerable_thread_specific<DijkstraIterator> iterators{DijkstraIterator()};
    tbb::parallel_for(size_t(0), levelCount, [&](size_t l) {
        EmbeddedGraphLevel& level = levels[l];
        // Nodes met by influence within the node's radius along the surface
        // are neighbours too, not only those sharing a vertex.
        std::set<std::pair<long long, long long>> shared;
        for (size_t v = 0; v + 1 < level.influenceOffsets.size(); ++v)
            for (long long a = level.influenceOffsets[v]; a < level.influenceOffsets[v + 1]; ++a)
                for (long long b = level.influenceOffsets[v]; b < level.influenceOffsets[v + 1]; ++b)
                    if (level.influences[size_t(a)] != level.influences[size_t(b)])
                        shared.emplace(level.influences[size_t(a)], level.influences[size_t(b)]);
        std::vector<std::pair<long long, long long>> expansion;
        DijkstraIterator& dijkstra = iterators.local();
        dijkstra.reset(m_vertices.size());
        for (size_t n = 0; n < level.nodes.size(); ++n) {
            if (cancelledAt(n, callback))
                return;
            dijkstra.run(level.nodes[n], radii[l], m_edgeOffsets, m_edges, [&](long long u, float) {
                for (long long i = level.influenceOffsets[size_t(u)]; i < level.influenceOffsets[size_t(u) + 1]; ++i) {
                    const long long m = level.influences[size_t(i)];
                    if (m == (long long)n || shared.count({(long long)n, m}))
                        continue;
                    qDebug().nospace() << "adding new pair std::pair(" << n << ", " << m << ")";
                    shared.emplace((long long)n, m);
                    shared.emplace(m, (long long)n);
                    expansion.emplace_back((long long)n, m);
                }
            });
        }
        connectSharedInfluences(level, std::move(expansion));
    });
    if (cancelled(callback))
        return {};
    return levels;
}

// --- the hierarchy ----------------------------------------------------------------

std::unique_ptr<EmbeddedGraphSampler> makeSampler(int nodesPerVertex, const std::vector<long long>& triangles,
                                                  const std::vector<Vertex>& vertices, int samplingType)
{
    if (samplingType == 0)
        return std::make_unique<DijkstraGraphSampler>(nodesPerVertex, vertices, triangles);
    return std::make_unique<EuclideanGraphSampler>(nodesPerVertex, vertices, triangles);
}

std::vector<float> levelRadii(const GraphSamplingParameters& p, const std::vector<Vertex>& vertices)
{
    float initial = p.samplingInitial, final = p.samplingFinal;
    if (p.normalizeRadius && vertices.size() > 1) {
        Eigen::Vector3d mean = Eigen::Vector3d::Zero();
        for (const Vertex& v : vertices)
            mean += v.cast<double>();
        mean /= double(vertices.size());
        Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
        for (const Vertex& v : vertices) {
            const Eigen::Vector3d d = v.cast<double>() - mean;
            covariance += d * d.transpose();
        }
        // The principal axes of the centred vertices.
        const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> axes(covariance);
        Eigen::Vector3d lo = Eigen::Vector3d::Constant(std::numeric_limits<double>::max());
        Eigen::Vector3d hi = -lo;
        for (const Vertex& v : vertices) {
            const Eigen::Vector3d p = axes.eigenvectors().transpose() * (v.cast<double>() - mean);
            lo = lo.cwiseMin(p);
            hi = hi.cwiseMax(p);
        }
        const float scale = float(0.01 * (hi - lo).norm());
        initial *= scale;
        final *= scale;
    }
    std::vector<float> radii;
    const float step = (initial - final) / float(std::max(1, p.levels));
    for (int i = 0; i < p.levels; ++i)
        radii.push_back(float(i) * step + final);
    return radii;
}

std::vector<EmbeddedGraphLevel> buildEmbeddedGraph(const GraphSamplingParameters& parameters,
                                                   const std::vector<Vertex>& vertices,
                                                   const std::vector<long long>& triangles,
                                                   const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback)
{
    QElapsedTimer timer;
    timer.start();
    const std::vector<float> radii = levelRadii(parameters, vertices);
    auto sampler = makeSampler(parameters.nodesPerVertex, triangles, vertices, parameters.samplingType);
    if (callback && callback->progress)
        callback->progress->start(QStringLiteral("Building nodes"), 3);
    std::vector<EmbeddedGraphLevel> byRadius = sampler->sampleLevels(radii, callback);
    if (callback && callback->progress)
        callback->progress->end();
    // Level 0 is the coarsest: the largest radius.
    std::vector<EmbeddedGraphLevel> levels(byRadius.size());
    for (size_t i = 0; i < byRadius.size(); ++i)
        levels[byRadius.size() - 1 - i] = std::move(byRadius[i]);
    // The samplers number nodes in the vertices' order; the fits want
    // neighbours numbered close together, whatever order the mesh came in.
    tbb::parallel_for(size_t(0), levels.size(),
                      [&](size_t l) { renumberNodes(levels[l], localNodeOrder(levels[l])); });
    qDebug() << "Building nodes time:" << double(timer.elapsed()) / 1000.0;
    return levels;
}

} // namespace WelkingAcceleratedVersion
