#include "NodesSamplerAndInfluenceSearcher.h"

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>

namespace DeformationGraphRoutine {

std::vector<float> NodesSamplerAndInfluenceSearcher::weightsFromDistances(const std::vector<float>& distances)
{
    std::vector<float> weights(distances.size(), 0.0f);
    if (distances.size() == 1) {
        weights[0] = 1.0f;
        return weights;
    }
    const float dmax = distances.empty() ? 0.0f : *std::max_element(distances.begin(), distances.end());
    float sum = 0.0f;
    for (size_t i = 0; i < distances.size(); ++i) {
        const float r = 1.0f - distances[i] * distances[i] / (dmax * dmax);
        weights[i] = std::max(0.0f, r * r * r);
        sum += weights[i];
    }
    // All nodes at one distance (or at zero) would give no weight at all;
    // they then share the vertex equally instead of making it NaN.
    if (!(sum > 0.0f)) {
        std::fill(weights.begin(), weights.end(), 1.0f);
        sum = float(weights.size());
    }
    for (float& w : weights)
        w /= sum;
    return weights;
}

NodesSamplerAndInfluenceSearcher::Result
NodesSamplerAndInfluenceSearcher::sample(const QVector<QVector3D>& vertices, const MeshConnectivity& connectivity,
                                         float radius, int nNodesToUse, SamplerNotifier* nodeNotifier,
                                         SamplerNotifier* weightNotifier) const
{
    Result result;
    const int n = vertices.size();
    result.influences.offsets.assign(size_t(n) + 1, 0);
    result.influences.weightOffsets.assign(size_t(n) + 1, 0);
    if (connectivity.vertexTriangles.empty() || n == 0) {
        // No triangles, no surface to sample.
        return result;
    }

    // Sampling: the first vertex not yet covered becomes a node; its
    // marching covers everything within the radius.
    std::vector<bool> covered(size_t(n), false);
    std::vector<int> nodeOfVertex(size_t(n), -1);
    std::unique_ptr<MarchingState> state = createState(vertices, connectivity);
    for (int v = 0; v < n; ++v) {
        if (nodeNotifier) {
            nodeNotifier->setValue(v);
            if (nodeNotifier->isInterrupted()) {
                result.interrupted = true;
                return result;
            }
        }
        if (covered[size_t(v)])
            continue;
        nodeOfVertex[size_t(v)] = result.sampleVertices.size();
        result.sampleVertices.append(v);
        std::vector<int> reached;
        state->begin(v);
        float d = 0.0f;
        for (int u = state->next(d); u >= 0 && d <= radius; u = state->next(d)) {
            covered[size_t(u)] = true;
            reached.push_back(u);
        }
        result.coverage.push_back(std::move(reached));
    }

    // Influences: march from each vertex until enough nodes are met.
    std::vector<std::vector<std::pair<int, float>>> found(static_cast<size_t>(n));
    tbb::enumerable_thread_specific<std::unique_ptr<MarchingState>> states(
        [&] { return createState(vertices, connectivity); });
    std::atomic<bool> interrupted{false};
    std::atomic<int> done{0};
    std::mutex reporting;
    int reported = 0;
    tbb::parallel_for(tbb::blocked_range<int>(0, n, 64), [&](const tbb::blocked_range<int>& range) {
        MarchingState& local = *states.local();
        for (int v = range.begin(); v < range.end(); ++v) {
            if (interrupted.load(std::memory_order_relaxed))
                return;
            std::vector<std::pair<int, float>>& list = found[size_t(v)];
            local.begin(v);
            float d = 0.0f;
            for (int u = local.next(d); u >= 0; u = local.next(d)) {
                if (nodeOfVertex[size_t(u)] >= 0) {
                    list.emplace_back(nodeOfVertex[size_t(u)], d);
                    if (int(list.size()) >= nNodesToUse)
                        break;
                }
            }
        }
        const int value = done.fetch_add(range.size()) + int(range.size());
        // The notifier is the caller's and need not be thread-safe: one
        // worker at a time asks it (a report per 64 vertices), and a value
        // counted earlier but reported later never takes the progress back.
        if (weightNotifier) {
            const std::lock_guard<std::mutex> lock(reporting);
            if (weightNotifier->isInterrupted()) {
                interrupted = true;
            } else if (value > reported) {
                reported = value;
                weightNotifier->setValue(value);
            }
        }
    });
    if (interrupted) {
        result.interrupted = true;
        return result;
    }

    InfluenceLists& lists = result.influences;
    for (int v = 0; v < n; ++v) {
        std::vector<float> distances;
        for (const auto& entry : found[size_t(v)])
            distances.push_back(entry.second);
        const std::vector<float> weights = weightsFromDistances(distances);
        for (size_t i = 0; i < weights.size(); ++i) {
            lists.nodeIndices.push_back(found[size_t(v)][i].first);
            lists.weights.push_back(weights[i]);
        }
        lists.offsets[size_t(v) + 1] = (long long)lists.nodeIndices.size();
        lists.weightOffsets[size_t(v) + 1] = (long long)lists.weights.size();
    }
    return result;
}

} // namespace DeformationGraphRoutine
