#pragma once

#include <vector>

namespace WelkingAcceleratedVersion {

/// How the graph levels are sampled; filled from the fitting settings.
struct GraphSamplingParameters
{
    int nodesPerVertex = 8;       ///< K: nodes that influence one vertex
    int samplingType = 0;         ///< 0 geodesic (Dijkstra), otherwise Euclidean
    float samplingFinal = 0.1f;   ///< radius of the finest level
    float samplingInitial = 10.0f;
    int levels = 3;
    bool normalizeRadius = true;  ///< radii in percent of the oriented box diagonal
};

/// One level of the embedded deformation graph of a basemesh. Rows are
/// compressed: row i spans [offsets[i], offsets[i + 1]).
struct EmbeddedGraphLevel
{
    std::vector<long long> nodes;            ///< basemesh vertex of each node
    std::vector<long long> influenceOffsets; ///< per vertex
    std::vector<long long> influences;       ///< node indices local to the level
    std::vector<long long> weightOffsets;    ///< per vertex, same as influenceOffsets
    std::vector<float> weights;              ///< summing to 1 per vertex
    std::vector<long long> neighbourOffsets; ///< per node
    std::vector<long long> neighbours;       ///< symmetric, sorted per row
};

} // namespace WelkingAcceleratedVersion
