#pragma once

#include "fitting/accelerated/DeformerTypes.h"
#include "fitting/accelerated/EmbeddedGraphSampler.h"

#include <cmath>
#include <vector>

namespace TestSupport {

/// A wavy n x n grid of unit spacing with one graph level of radius 2.5:
/// small enough for exact checks, curved enough that rotations matter.
struct WavyPatch
{
    std::vector<EmbeddedGraphDeformer::Vec3> vertices;
    std::vector<long long> triangles;
    WelkingAcceleratedVersion::EmbeddedGraphLevel level;
    std::vector<EmbeddedGraphDeformer::Vec3> nodes;

    explicit WavyPatch(int n)
    {
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                vertices.emplace_back(float(x), float(y), 0.4f * std::sin(0.9f * float(x)) * std::cos(0.5f * float(y)));
        for (int y = 0; y + 1 < n; ++y)
            for (int x = 0; x + 1 < n; ++x) {
                const long long a = y * n + x;
                triangles.insert(triangles.end(), {a, a + 1, a + n + 1, a, a + n + 1, a + n});
            }
        WelkingAcceleratedVersion::GraphSamplingParameters parameters;
        parameters.levels = 1;
        parameters.samplingFinal = 2.5f;
        parameters.samplingInitial = 5.0f;
        parameters.normalizeRadius = false;
        parameters.nodesPerVertex = 4;
        level = WelkingAcceleratedVersion::buildEmbeddedGraph(parameters, vertices, triangles)[0];
        for (long long node : level.nodes)
            nodes.push_back(vertices[size_t(node)]);
    }
};

} // namespace TestSupport
