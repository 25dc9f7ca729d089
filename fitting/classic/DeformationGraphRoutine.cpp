#include "DeformationGraphRoutine.h"

#include <algorithm>

namespace DeformationGraphRoutine {

MeshConnectivity::MeshConnectivity(int vertexCount, const QVector<int>& triangleList)
    : triangles(triangleList.begin(), triangleList.begin() + (triangleList.size() / 3) * 3)
{
    triangleOffsets.assign(size_t(vertexCount) + 1, 0);
    for (int v : triangles)
        ++triangleOffsets[size_t(v) + 1];
    for (int v = 0; v < vertexCount; ++v)
        triangleOffsets[size_t(v) + 1] += triangleOffsets[size_t(v)];
    vertexTriangles.resize(triangles.size());
    std::vector<int> fill(triangleOffsets.begin(), triangleOffsets.end() - 1);
    for (size_t i = 0; i < triangles.size(); ++i)
        vertexTriangles[size_t(fill[size_t(triangles[i])]++)] = int(i / 3);

    neighbourOffsets.assign(size_t(vertexCount) + 1, 0);
    std::vector<int> around;
    for (int v = 0; v < vertexCount; ++v) {
        around.clear();
        for (int k = triangleOffsets[size_t(v)]; k < triangleOffsets[size_t(v) + 1]; ++k) {
            const int* c = triangleCorners(vertexTriangles[size_t(k)]);
            for (int i = 0; i < 3; ++i)
                if (c[i] != v)
                    around.push_back(c[i]);
        }
        std::sort(around.begin(), around.end());
        around.erase(std::unique(around.begin(), around.end()), around.end());
        vertexNeighbours.insert(vertexNeighbours.end(), around.begin(), around.end());
        neighbourOffsets[size_t(v) + 1] = int(vertexNeighbours.size());
    }
}

int MeshConnectivity::triangleAcross(int triangle, int a, int b) const
{
    for (int k = triangleOffsets[size_t(a)]; k < triangleOffsets[size_t(a) + 1]; ++k) {
        const int t = vertexTriangles[size_t(k)];
        if (t == triangle)
            continue;
        const int* c = triangleCorners(t);
        if (c[0] == b || c[1] == b || c[2] == b)
            return t;
    }
    return -1;
}

DeformationGraphUniversalNodesCreator::DeformationGraphUniversalNodesCreator(
    int nNodesToUse, QVector<QVector3D> vertices, QVector<int> triangles,
    std::shared_ptr<const MeshConnectivity> connectivity, std::unique_ptr<NodesSamplerAndInfluenceSearcher> sampler)
    : m_nNodesToUse(nNodesToUse), m_vertices(std::move(vertices)), m_triangles(std::move(triangles)),
      m_connectivity(std::move(connectivity)), m_sampler(std::move(sampler))
{
}

bool DeformationGraphUniversalNodesCreator::createLevel(float radius, QVector<int>& nodeVertices,
                                                        QVector<QVector3D>& nodes, InfluenceLists& influences,
                                                        NeighbourLists& neighbours, SamplerNotifier* nodeNotifier,
                                                        SamplerNotifier* weightNotifier)
{
    NodesSamplerAndInfluenceSearcher::Result sampled =
        m_sampler->sample(m_vertices, *m_connectivity, radius, m_nNodesToUse, nodeNotifier, weightNotifier);
    if (sampled.interrupted)
        return false;
    nodeVertices = sampled.sampleVertices;
    nodes.clear();
    for (int v : nodeVertices)
        nodes.append(m_vertices[v]);
    influences = std::move(sampled.influences);

    std::vector<std::pair<int, int>> pairs;
    auto nodesOf = [&](int v) {
        return std::make_pair(influences.nodeIndices.begin() + influences.offsets[size_t(v)],
                              influences.nodeIndices.begin() + influences.offsets[size_t(v) + 1]);
    };
    auto addPair = [&](int n, int m) {
        if (n != m) {
            pairs.emplace_back(n, m);
            pairs.emplace_back(m, n);
        }
    };
    for (int n = 0; n < int(sampled.coverage.size()); ++n)
        for (int v : sampled.coverage[size_t(n)]) {
            const auto range = nodesOf(v);
            for (auto m = range.first; m != range.second; ++m)
                addPair(n, *m);
        }
    // Nodes that move one vertex, or the two ends of one edge, must be
    // neighbours, or a fine level could fall apart between its nodes.
    for (int v = 0; v < m_vertices.size(); ++v) {
        const auto range = nodesOf(v);
        for (auto n = range.first; n != range.second; ++n)
            for (auto m = n + 1; m != range.second; ++m)
                addPair(*n, *m);
    }
    const MeshConnectivity& mesh = *m_connectivity;
    for (int v = 0; v < m_vertices.size(); ++v)
        for (int k = mesh.neighbourOffsets[size_t(v)]; k < mesh.neighbourOffsets[size_t(v) + 1]; ++k) {
            const int u = mesh.vertexNeighbours[size_t(k)];
            if (u < v)
                continue;
            const auto a = nodesOf(v), b = nodesOf(u);
            for (auto n = a.first; n != a.second; ++n)
                for (auto m = b.first; m != b.second; ++m)
                    addPair(*n, *m);
        }
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());

    neighbours.offsets.assign(size_t(nodes.size()) + 1, 0);
    neighbours.indices.clear();
    for (const auto& p : pairs) {
        ++neighbours.offsets[size_t(p.first) + 1];
        neighbours.indices.push_back(p.second);
    }
    for (int n = 0; n < nodes.size(); ++n)
        neighbours.offsets[size_t(n) + 1] += neighbours.offsets[size_t(n)];
    return true;
}

bool createLevels(NodesCreator& creator, float radiusMin, float radiusMax, int nLevels, std::vector<NodeLevel>& levels,
                  DeformationGraphCreatorUpdateCallback* callback)
{
    levels.assign(size_t(std::max(0, nLevels)), NodeLevel());
    const float step = (radiusMax - radiusMin) / float(nLevels);
    for (int i = 0; i < nLevels; ++i) {
        if (callback) {
            if (callback->isInterrupted())
                return false;
            callback->levelStarted(i);
        }
        NodeLevel& level = levels[size_t(nLevels - 1 - i)];
        auto* universal = dynamic_cast<DeformationGraphUniversalNodesCreator*>(&creator);
        DGC2NodeNotifier nodeNotifier(callback);
        DGC2WeightNotifier weightNotifier(callback, universal ? universal->vertexCount() : 0);
        if (!creator.createLevel(float(i) * step + radiusMin, level.nodeVertices, level.nodes, level.influences,
                                 level.neighbours, &nodeNotifier, &weightNotifier))
            return false;
    }
    return true;
}

} // namespace DeformationGraphRoutine
