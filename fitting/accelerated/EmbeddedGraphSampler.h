#pragma once

#include "EmbeddedGraphLevel.h"

#include <Eigen/Core>

#include <memory>
#include <vector>

namespace Welk {
class ProgressInterface;
}

namespace EmbeddedGraphCreator {

/// Progress for the graph build ("Building nodes").
struct EmbeddedGraphCreationCallback
{
    Welk::ProgressInterface* progress = nullptr;
};

} // namespace EmbeddedGraphCreator

namespace WelkingAcceleratedVersion {

using Vertex = Eigen::Vector3f;

/// Samples the nodes of each graph level over a mesh, then each vertex's
/// influencing nodes and weights, then the node neighbourhoods: three
/// passes, each parallel over the levels. Single precision, wide indices.
class EmbeddedGraphSampler
{
public:
    /// `triangles` holds three vertex indices per triangle.
    EmbeddedGraphSampler(int nodesPerVertex, std::vector<Vertex> vertices, std::vector<long long> triangles);
    virtual ~EmbeddedGraphSampler();

    /// One level per radius, in the order of `radii`.
    virtual std::vector<EmbeddedGraphLevel> sampleLevels(const std::vector<float>& radii,
                                                         const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback) = 0;

    const std::vector<Vertex>& vertices() const { return m_vertices; }

protected:
    /// Weights (1 - d / d_max)^2 normalised to 1, d_max being the farthest
    /// candidate, which gets no entry itself. `candidates` are (distance,
    /// node) pairs sorted nearest first, at most K + 1 of them.
    static void appendInfluences(const std::pair<float, long long>* candidates, size_t count,
                                 EmbeddedGraphLevel& level);
    /// Nodes that influence a common vertex are neighbours, both ways, and
    /// so are `extraPairs`.
    static void connectSharedInfluences(EmbeddedGraphLevel& level,
                                        std::vector<std::pair<long long, long long>> extraPairs = {});

    int m_k;
    std::vector<Vertex> m_vertices;
    std::vector<long long> m_triangles;
    /// The mesh's edge graph: compressed rows of (neighbour vertex, length).
    std::vector<long long> m_edgeOffsets;
    std::vector<std::pair<long long, float>> m_edges;
};

/// Geodesic sampling: nodes cover the surface within radius r along mesh
/// edges; a vertex's candidates are the nodes within 2.55 r. Besides
/// sharing a vertex, two nodes are neighbours when their regions (the
/// vertices nearest to each) meet along a mesh edge, so that a level whose
/// radius is below the edge length still has a connected graph.
class DijkstraGraphSampler : public EmbeddedGraphSampler
{
public:
    using EmbeddedGraphSampler::EmbeddedGraphSampler;
    std::vector<EmbeddedGraphLevel> sampleLevels(const std::vector<float>& radii,
                                                 const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback) override;
};

/// Straight-line sampling: a greedy disc cover in vertex order, with the K
/// nearest nodes by straight distance. Neighbours share an influenced
/// vertex, or influence a vertex within the node's radius along the surface.
class EuclideanGraphSampler : public EmbeddedGraphSampler
{
public:
    using EmbeddedGraphSampler::EmbeddedGraphSampler;
    std::vector<EmbeddedGraphLevel> sampleLevels(const std::vector<float>& radii,
                                                 const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback) override;
};

/// The sampler for a sampling type: 0 geodesic, otherwise Euclidean.
std::unique_ptr<EmbeddedGraphSampler> makeSampler(int nodesPerVertex, const std::vector<long long>& triangles,
                                                  const std::vector<Vertex>& vertices, int samplingType);

/// The radii of the levels, coarsest first: `samplingFinal` + i * step with
/// step = (initial - final) / levels fills level levels - 1 - i. With
/// `normalizeRadius` both settings are percentages of the diagonal of the
/// vertices' principal-axes box.
std::vector<float> levelRadii(const GraphSamplingParameters& parameters, const std::vector<Vertex>& vertices);

/// Builds the whole hierarchy, level 0 the coarsest. Empty when the
/// callback's progress was cancelled on the way.
std::vector<EmbeddedGraphLevel> buildEmbeddedGraph(const GraphSamplingParameters& parameters,
                                                   const std::vector<Vertex>& vertices,
                                                   const std::vector<long long>& triangles,
                                                   const EmbeddedGraphCreator::EmbeddedGraphCreationCallback* callback = nullptr);

} // namespace WelkingAcceleratedVersion
